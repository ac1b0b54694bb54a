#!/usr/bin/env bash
# What `make windows-package` delivers: the zip holds exactly the two programs
# and a README in CR LF line ends that starts with how to run them on Windows;
# unpacked, its qrxfw.exe makes an image and its qrxbpl.exe, run from a batch
# file by Wine's cmd, fails with %errorlevel% -1 and then downloads the image
# into the simulator with %errorlevel% 0.
# Usage: check_windows_zip.sh WINE WINEPREFIX ZIP BUILD_DIR
set -euo pipefail
wine=$1 zip=$3 build=$4
export WINEPREFIX=$2 WINEDEBUG=-all
work=$(mktemp -d "${TMPDIR:-/tmp}/qrxbpl-zip.XXXXXX")
sim_pid=
trap 'kill $sim_pid 2>/dev/null || true; rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
windows() { echo "Z:${1//\//\\}"; }  # a path here as Wine's drive Z names it

[ -f "$zip" ] || fail "no $zip: run make windows-package"
folder=$(basename "$zip" .zip)
(cd "$work" && cmake -E tar xf "$zip")
diff <(printf '%s\n' "$folder/LICENSE.txt" "$folder/README.txt" "$folder/qrxbpl.exe" "$folder/qrxfw.exe") \
  <(cd "$work" && find . -type f | sed 's|^\./||' | sort) || fail "zip contents"
dir=$work/$folder
readme=$dir/README.txt
head -c 60 "$readme" | grep -q "^qrxbpl [0-9.]* for Windows" || fail "README's first line: $(head -1 "$readme")"
sed -n 4p "$readme" | grep -q "^Running it on Windows" || fail "README does not start with running it"
[ "$(grep -c $'\r$' "$readme")" = "$(wc -l <"$readme")" ] || fail "README has a line end without CR"

# The simulator on a free port, for one session.
"$build/sim/qrxvps" --tcp --port 0 --profile tlv-boot --once >"$work/sim.out" &
sim_pid=$!
for _ in $(seq 100); do grep -q "listening" "$work/sim.out" && break; sleep 0.1; done
port=$(sed -n 's/^qrxvps: listening on 127\.0\.0\.1://p' "$work/sim.out")
[ -n "$port" ] || fail "the simulator did not start"

"$wine" "$dir/qrxfw.exe" sfi "$(windows "$work/fw.sfi")" --body-bytes 300 </dev/null >/dev/null ||
  fail "qrxfw.exe sfi"
printf '%s\r\n' "@echo off" "cd /d $(windows "$dir")" "qrxbpl.exe" "echo errorlevel %errorlevel%" \
  "qrxbpl.exe -i 3 -a 127.0.0.1 -p $port --firmware $(windows "$work/fw.sfi")" \
  "echo errorlevel %errorlevel%" >"$work/run.bat"
"$wine" cmd /c "$(windows "$work/run.bat")" </dev/null >"$work/out" 2>"$work/err" || true
diff <(printf 'errorlevel %s\r\n' -1 0) <(grep '^errorlevel' "$work/out") || fail "batch file's errorlevels"
grep -q $'^Downloading SFI file\.\.\.\r$' "$work/err" && grep -q $'^Download complete\.\r$' "$work/err" ||
  { cat "$work/err"; fail "the download"; }
echo "zip ok: $(basename "$zip")"
