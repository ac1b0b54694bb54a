#!/usr/bin/env bash
# A new user's first commands, in a fresh clone of this commit:
# - with nlohmann-json's and GoogleTest's files hidden (a private mount
#   namespace), `make demo` and `make check` stop with one line naming the
#   packages, and a configure that fails half-way leaves no finished look;
# - once they are back, the same `make demo` succeeds, nothing deleted by hand;
# - `make package` there gives programs byte-identical to REFERENCE_DEB's (a
#   package of the same commit built in another place, at another time), a
#   .deb lintian says nothing about, and programs hardening-check passes.
# Run by .ci/run as root. Usage: fresh_clone.sh REFERENCE_DEB
set -euo pipefail
reference=$(realpath "$1")
if [ "$(id -u)" -ne 0 ]; then
  echo "fresh_clone: skipped: hiding packages takes a mount namespace, which needs root"
  exit 0
fi
source_dir=$(git -C "$(dirname "$0")" rev-parse --show-toplevel)
work=$(mktemp -d "${TMPDIR:-/tmp}/qrxbpl-fresh.XXXXXX")
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

git clone -q --no-hardlinks "$source_dir" "$work/clone"
cd "$work/clone"

# Each package's headers and CMake files, covered by an empty directory.
hidden=(/usr/include/nlohmann /usr/share/cmake/nlohmann_json /usr/include/gtest /usr/include/gmock
  /usr/lib/x86_64-linux-gnu/cmake/GTest)
hide_and_run() {
  local mounts="" dir
  for dir in "${hidden[@]}"; do
    [ -d "$dir" ] && mounts+="mount -t tmpfs -o ro,size=4k none '$dir' && "
  done
  unshare -m --propagation private bash -c "$mounts $*"
}

status=0
hide_and_run QRX_DEPS_INSTALL=no make demo >"$work/demo.log" 2>&1 || status=$?
[ $status -ne 0 ] || { cat "$work/demo.log"; fail "make demo ran without nlohmann-json"; }
grep -qx "make demo needs nlohmann/json.hpp: run  apt-get install nlohmann-json3-dev" "$work/demo.log" ||
  { cat "$work/demo.log"; fail "make demo did not name nlohmann-json3-dev"; }
[ ! -e build ] || fail "make demo configured although a package was missing"

status=0
hide_and_run QRX_DEPS_INSTALL=no make check >"$work/check.log" 2>&1 || status=$?
[ $status -ne 0 ] || fail "make check ran without GoogleTest"
grep -q "^make check needs .*: run  apt-get install nlohmann-json3-dev libgtest-dev libgmock-dev$" "$work/check.log" ||
  { cat "$work/check.log"; fail "make check did not name the packages"; }

# Past the check (DEPS=true): CMake itself fails half-way and leaves its cache.
status=0
hide_and_run make demo DEPS=true JOBS=2 >"$work/configure.log" 2>&1 || status=$?
[ $status -ne 0 ] && [ -f build/CMakeCache.txt ] || { cat "$work/configure.log"; fail "configure did not fail half-way"; }

# The packages are back: the same command just works.
make demo JOBS=2 >"$work/demo.log" 2>&1 || { cat "$work/demo.log"; fail "make demo after the packages came back"; }
tail -n 1 "$work/demo.log" | grep -qx "Both downloads succeeded." || { cat "$work/demo.log"; fail "demo output"; }
# Only what the demo runs was built: no test program.
[ -z "$(find build -name 'test_*' -type f -perm -u+x)" ] || fail "make demo built the tests"
echo "ok   fresh clone: make demo names nlohmann-json3-dev, then succeeds"

make package JOBS=2 >"$work/package.log" 2>&1 || { cat "$work/package.log"; fail "make package"; }
deb=$(echo build/qrxbpl_*.deb)
mkdir -p "$work/ours" "$work/theirs"
dpkg-deb -x "$deb" "$work/ours"
dpkg-deb -x "$reference" "$work/theirs"
for program in qrxbpl qrxvps qrxfw; do
  cmp "$work/ours/usr/bin/$program" "$work/theirs/usr/bin/$program" ||
    fail "$program differs between two packages of one commit"
done
echo "ok   reproducible: the three programs are byte-identical to $(basename "$reference")'s"

# lintian warns that it runs as root; that line is about the run, not the package.
report=$(lintian "$deb" 2>&1 | grep -v '^running with root privileges' || true)
[ -z "$report" ] || fail "lintian: $report"
report=$(lintian --pedantic "$deb" 2>&1 | grep -E 'hardening' || true)
[ -z "$report" ] || fail "lintian --pedantic: $report"
# Debian 12's C start files carry no control-flow (IBT) mark, so no program
# linked there passes that line, /usr/bin/ls neither; the rest is required.
hardening-check --nocfprotection "$work"/ours/usr/bin/* >"$work/hardening.log" || { cat "$work/hardening.log"; fail hardening-check; }
echo "ok   $(basename "$deb"): lintian silent, hardening-check passes"
