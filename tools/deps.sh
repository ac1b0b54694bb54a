#!/usr/bin/env bash
# What each make target needs from the system, in one list, and the one place
# that checks it. Usage:
#   tools/deps.sh TARGET...   check what the targets need; install what is
#                             missing when that needs no question (root, or
#                             `sudo -n` works), else stop with the command to run
#   tools/deps.sh --table     the README's package table, made from the list
# QRX_DEPS_INSTALL=no only reports (tests that hide packages use it).
set -euo pipefail

# One need a line: target, probe, then the package on Debian/Ubuntu,
# Fedora/RHEL and Arch ("-": the distribution has none). A probe is
# cmd:PROGRAM or file:PATH (a glob is fine); alternatives are joined by '|'.
# To add a need, add a line; a new target also needs a line in TARGETS below.
NEEDS='
build     cmd:cmake                                         cmake               cmake            cmake
build     cmd:make                                          make                make             make
build     cmd:g++|cmd:c++                                   g++                 gcc-c++          gcc
build     file:/usr/include/nlohmann/json.hpp|file:/usr/local/include/nlohmann/json.hpp  nlohmann-json3-dev  json-devel  nlohmann-json
build     cmd:pkg-config|cmd:pkgconf                        pkg-config          pkgconf-pkg-config  pkgconf
build     file:/usr/include/libudev.h                       libudev-dev         systemd-devel    systemd-libs
check     file:/usr/include/gtest/gtest.h|file:/usr/local/include/gtest/gtest.h          libgtest-dev        gtest-devel      gtest
check     file:/usr/include/gmock/gmock.h|file:/usr/local/include/gmock/gmock.h          libgmock-dev        gmock-devel      gtest
check     cmd:groff                                         groff-base          groff-base       groff
check     cmd:btmon                                         bluez               bluez            bluez-utils
check     file:/usr/lib/python3/dist-packages/jsonschema   python3-jsonschema  python3-jsonschema  python-jsonschema
check     cmd:strace                                        strace              strace           strace
package   cmd:dpkg-deb                                      dpkg                dpkg             dpkg
package   cmd:dpkg-shlibdeps                                dpkg-dev            dpkg-dev         dpkg
package   cmd:file                                          file                file             file
windows   cmd:x86_64-w64-mingw32-g++                        g++-mingw-w64-x86-64  mingw64-gcc-c++  mingw-w64-gcc
wine      cmd:wine64|cmd:wine|file:/usr/lib/wine/wine64     wine64              wine             wine
fuzz      cmd:clang++-14                                    clang-14            clang            clang
fuzz      file:/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a  libclang-rt-14-dev  compiler-rt  compiler-rt
lint      cmd:lintian                                       lintian             -                -
lint      cmd:hardening-check                               devscripts          -                -
'

# Each make target and the groups of the list it takes ("lint" is the package
# checks .ci/run adds).
TARGETS='
all         build
demo        build
install     build
check       build check package
package     build package
bench       build check package
windows     build windows
wine-check  build check package windows wine
fuzz        build fuzz
lint        build package lint
'

# The distribution's column in NEEDS and how it installs.
distribution() {
  local ids=""
  if [ -r /etc/os-release ]; then
    ids=$(. /etc/os-release && echo " ${ID:-} ${ID_LIKE:-} ")
  fi
  case $ids in
    *" debian "* | *" ubuntu "*) echo "debian 1 apt-get install" ;;
    *" fedora "* | *" rhel "* | *" centos "*) echo "fedora 2 dnf install" ;;
    *" arch "*) echo "arch 3 pacman -S --needed" ;;
    *) echo "unknown 1 apt-get install" ;;
  esac
}

probe_passes() {
  local alternative
  IFS='|' read -ra alternatives <<<"$1"
  for alternative in "${alternatives[@]}"; do
    case $alternative in
      cmd:*) command -v "${alternative#cmd:}" >/dev/null 2>&1 && return 0 ;;
      file:*) compgen -G "${alternative#file:}" >/dev/null && return 0 ;;
    esac
  done
  return 1
}

# What a probe looks for, for people: the program or the file's last two parts.
probe_name() {
  local first=${1%%|*}
  first=${first#*:}
  case $first in */*/*) first=${first#"${first%/*/*}/"} ;; esac
  echo "$first"
}

groups_of() {
  local name groups
  while read -r name groups; do
    [ "$name" = "$1" ] || continue
    echo "$groups"
    return 0
  done <<<"$TARGETS"
  return 1
}

# One row a group: who needs it, then its packages per distribution.
table() {
  echo '| needed by | Debian 12, Ubuntu 22.04 and later | Fedora, RHEL 9 | Arch Linux |'
  echo '|---|---|---|---|'
  local group every=yes users name groups
  for group in $(awk 'NF {print $1}' <<<"$NEEDS" | uniq); do
    users=""
    every=yes
    while read -r name groups; do
      [ -n "$name" ] || continue
      if [[ " $groups " == *" $group "* ]]; then
        case $name in
          all) name=make ;;
          lint) name=".ci/run (lintian, hardening-check)" ;;
          *) name="make $name" ;;
        esac
        users+="${users:+, }\`$name\`"
      else
        every=no
      fi
    done <<<"$TARGETS"
    [ $every = no ] || users="every target"
    local cells=("" "" "") g probe column package row
    while read -r g probe rest; do
      [ "$g" = "$group" ] || continue
      read -ra packages <<<"$rest"
      for column in 0 1 2; do
        package=${packages[column]}
        [ "$package" != - ] || continue
        [[ " ${cells[column]} " == *" $package "* ]] || cells[column]+="${cells[column]:+ }$package"
      done
    done <<<"$NEEDS"
    row="| $users |"
    for column in 0 1 2; do
      if [ -n "${cells[column]}" ]; then row+=" \`${cells[column]}\` |"; else row+=" - |"; fi
    done
    echo "$row"
  done
}

if [ "${1:-}" = --table ]; then
  table
  exit 0
fi
[ $# -gt 0 ] || { echo "usage: tools/deps.sh TARGET... | --table" >&2; exit 2; }

read -r distro column install <<<"$(distribution)"
targets="$*"
missing=()
why=()
unavailable=()
wanted=" "
for target in "$@"; do
  groups=$(groups_of "$target") || { echo "tools/deps.sh: no target '$target' in the list" >&2; exit 2; }
  for group in $groups; do
    while read -r g probe rest; do
      [ "$g" = "$group" ] || continue
      probe_passes "$probe" && continue
      read -ra packages <<<"$rest"
      package=${packages[column - 1]}
      if [ "$package" = - ]; then
        unavailable+=("$(probe_name "$probe")")
        continue
      fi
      case $wanted in *" $package "*) continue ;; esac
      wanted+="$package "
      missing+=("$package")
      why+=("$(probe_name "$probe")")
    done <<<"$NEEDS"
  done
done
[ ${#unavailable[@]} -eq 0 ] ||
  { echo "make $targets: needs ${unavailable[*]}, which $distro does not package; install it by hand." >&2; exit 1; }
[ ${#missing[@]} -gt 0 ] || exit 0

if [ "${QRX_DEPS_INSTALL:-yes}" != no ] && [ "$distro" != unknown ]; then
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo -n true 2>/dev/null && sudo="sudo -n"
  fi
  if [ "$(id -u)" -eq 0 ] || [ -n "$sudo" ]; then
    echo "make $targets: installing ${missing[*]} (for ${why[*]})" >&2
    log=$(mktemp "${TMPDIR:-/tmp}/qrxbpl-deps.XXXXXX")
    status=0
    case $distro in
      debian)
        $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q >"$log" 2>&1 &&
          $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends \
            "${missing[@]}" >>"$log" 2>&1 || status=$?
        ;;
      fedora) $sudo dnf install -y "${missing[@]}" >"$log" 2>&1 || status=$? ;;
      arch) $sudo pacman -S --needed --noconfirm "${missing[@]}" >"$log" 2>&1 || status=$? ;;
    esac
    [ $status -eq 0 ] || { cat "$log" >&2; rm -f "$log"; echo "make $targets: installing ${missing[*]} failed" >&2; exit 1; }
    rm -f "$log"
    exit 0
  fi
fi
sudo="sudo "
[ "$(id -u)" -ne 0 ] || sudo=""
echo "make $targets needs ${why[*]}: run  $sudo$install ${missing[*]}" >&2
exit 1
