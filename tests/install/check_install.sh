#!/usr/bin/env bash
# What `make install` and `make package` deliver: exactly the three programs,
# their man pages and their completion, under the prefix and nowhere else; the
# programs run from there, the pages format without a warning, the completion
# completes; every program, page, changelog and the package carry the one
# version number. Usage: check_install.sh tree|package BUILD_DIR VERSION
set -euo pipefail
mode=$1
build=$2
version=$3
work=$(mktemp -d "${TMPDIR:-/tmp}/qrxbpl-install.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

expected=$(for program in qrxbpl qrxvps qrxfw; do
  echo "bin/$program"
  echo "share/bash-completion/completions/$program"
  echo "share/man/man1/$program.1.gz"
done | sort)

if [ "$mode" = package ]; then
  cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/cpack.log" || { cat "$work/cpack.log"; fail cpack; }
  deb=$(echo "$work"/qrxbpl_*.deb)
  [ -f "$deb" ] || fail "no .deb in $work"
  files=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ {print $6}' | sort)
  # Beside what `make install` installs: Debian's changelog, copyright and lintian overrides.
  debian_files=$(printf '%s\n' ./usr/share/doc/qrxbpl/changelog.gz ./usr/share/doc/qrxbpl/copyright \
    ./usr/share/lintian/overrides/qrxbpl)
  diff <( (echo "$expected" | sed 's|^|./usr/|'; echo "$debian_files") | sort) <(echo "$files") ||
    fail "package contents"
  [ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "package version $(dpkg-deb -f "$deb" Version)"
  dpkg-deb --fsys-tarfile "$deb" | tar -xOf - ./usr/share/doc/qrxbpl/changelog.gz | gzip -dc |
    head -n 1 | grep -q "^qrxbpl ($version) " || fail "the changelog's last entry is not $version"
  depends=$(dpkg-deb -f "$deb" Depends)
  for library in libc6 libstdc++6; do
    [[ $depends == *"$library"* ]] || fail "Depends '$depends' lacks $library"
  done
  [ -n "$(dpkg-deb -f "$deb" Maintainer)" ] || fail "no Maintainer"
  echo "package ok: $(basename "$deb") Depends: $depends"
  exit 0
fi

# The Makefile's install: DESTDIR from the environment, the prefix on the command line.
DESTDIR="$work/stage" cmake --install "$build" --prefix /opt/qrx >/dev/null
diff <(echo "$expected" | sed 's|^|opt/qrx/|') <(cd "$work/stage" && find . -type f | sed 's|^\./||' | sort) ||
  fail "installed files"
root="$work/stage/opt/qrx"

status=0
"$root/bin/qrxbpl" 2>"$work/stderr" || status=$?
[ "$status" -eq 255 ] && [ "$(head -n 1 "$work/stderr")" = "Invalid number of arguments" ] ||
  fail "installed qrxbpl: status $status"
"$root/bin/qrxvps" --print-key >/dev/null || fail "installed qrxvps"
"$root/bin/qrxfw" --help >/dev/null || fail "installed qrxfw"
for program in qrxbpl qrxvps qrxfw; do
  said=$("$root/bin/$program" --version | head -n 1)
  [ "$said" = "$program $version" ] || fail "$program --version says '$said'"
done

for page in "$root"/share/man/man1/*.1.gz; do
  warnings=$(gzip -dc "$page" | LC_ALL=C.UTF-8 groff -man -Tutf8 -ww -z 2>&1)
  [ -z "$warnings" ] || fail "$page: $warnings"
  gzip -dc "$page" | head -n 1 | grep -q " \"qrxbpl $version\" " || fail "$page: not version $version"
done

# Completion, outside an interactive shell: compopt only works inside one.
compopt() { :; }
for program in qrxbpl qrxvps qrxfw; do
  # shellcheck source=/dev/null
  source "$root/share/bash-completion/completions/$program"
done
completes() {
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  "_$1"
  echo "${COMPREPLY[*]}"
}
while IFS='|' read -r words current want; do
  # shellcheck disable=SC2086
  got=$(completes $words "$current")
  [ "$got" = "$want" ] || fail "completing '$words $current': got '$got', want '$want'"
done <<'CASES'
qrxbpl||-i --help --version --list-ports
qrxbpl -i||2 3
qrxbpl -i 2 -p /dev/tty -nocc|-|-p -a -h -r -b -f -fw -bd -nocc -v -t --firmware --progress --no-progress --btsnoop --report --tcp-nodelay --no-low-latency --tcp-timeout
qrxvps --pty|--pa|--paced
qrxbpl -i 2 -h 1 -r|3|3000000 3250000
qrxbpl -i 2 -r|3|3000000 3250000 3714286
qrxbpl -i 3 -p||
qrxvps --profile|tlv|tlv-boot tlv-op
qrxvps --delayed-ack --secure-boot||on off
qrxfw||sfi two-block bseq fwdat inspect --help --version
qrxfw two-block out.sfi|-|--no-second-block --body-bytes --seed --patch --corrupt-body
qrxfw fwdat out.dat|sig|signed:
CASES
# Every field and fault kind the simulator knows, and no other.
known=$("$root/bin/qrxvps" --help | grep -E '^ {24}[a-z]' | awk '{print $1}' | sort)
offered=$( (completes qrxvps --set ""; completes qrxvps --fault "") | tr ' ' '\n' | sed 's/[=:]$//' | sort)
diff <(echo "$known") <(echo "$offered") || fail "qrxvps --set/--fault completion differs from qrxvps --help"
# The double-dash options and variables: --help prints them from the loader's
# one table; the man page and the completion must offer the same, no more.
help=$("$root/bin/qrxbpl" --help | sed -n '/^Options of this platform:/,$p')
helped_options=$(echo "$help" | grep -oE '^  --[a-z-]+' | sed 's/^  //' | sort)
helped_variables=$(echo "$help" | grep -oE '^  QRXBPL_[A-Z_]+' | sed 's/^  //' | sort)
page=$(gzip -dc "$root/share/man/man1/qrxbpl.1.gz")
paged_options=$(echo "$page" | sed -n '/^\.SS Double-dash options/,/^\.SH/p' | grep -E '^\.BI? \\-\\-[a-z]' |
  sed 's/\\-/-/g' | awk '{print $2}' | sort -u)
paged_variables=$(echo "$page" | sed -n '/^\.SH ENVIRONMENT/,/^\.SH/p' | grep -oE '^\.BI? QRXBPL_[A-Z_]+' |
  awk '{print $2}' | sort -u)
offered_options=$( (completes qrxbpl ""; completes qrxbpl -i 2 -p /dev/tty --) | tr ' ' '\n' |
  grep -E '^--' | sort -u)
diff <(echo "$helped_options") <(echo "$paged_options") || fail "man page options differ from qrxbpl --help"
diff <(echo "$helped_variables") <(echo "$paged_variables") || fail "man page variables differ from qrxbpl --help"
diff <(echo "$helped_options") <(echo "$offered_options") || fail "completion differs from qrxbpl --help"
echo "install ok"
