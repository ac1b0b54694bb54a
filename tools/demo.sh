#!/usr/bin/env bash
# `make demo`: makes firmware with qrxfw, starts the simulator and runs two
# complete downloads with qrxbpl, one over TCP and one over a pseudo-terminal
# UART with a rate switch to 3000000. Leaves no process or file behind.
set -euo pipefail

build=${1:-build}
qrxbpl="$build/src/qrxbpl"
qrxvps="$build/sim/qrxvps"
qrxfw="$build/tools/qrxfw"
for program in "$qrxbpl" "$qrxvps" "$qrxfw"; do
  [ -x "$program" ] || { echo "demo: $program is missing; run make first" >&2; exit 1; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/qrxbpl-demo.XXXXXX")
sim_pid=""
cleanup() {
  if [ -n "$sim_pid" ] && kill -0 "$sim_pid" 2>/dev/null; then
    kill "$sim_pid" 2>/dev/null || true
    wait "$sim_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The simulator's first line says where it can be reached; it is left in
# $sim_line. Not run in a subshell, so this shell stays its parent and reaps it.
start_simulator() {
  "$qrxvps" "$@" --once --profile tlv-boot >"$work/sim.out" 2>"$work/sim.err" &
  sim_pid=$!
  for _ in $(seq 100); do
    [ -s "$work/sim.out" ] && break
    sleep 0.05
  done
  sim_line=$(head -n 1 "$work/sim.out")
  echo "$sim_line"
}

stop_simulator() {
  wait "$sim_pid" 2>/dev/null || true
  sim_pid=""
}

banner() { printf '\n===== %s =====\n' "$1"; }

drive="$work/drive"
folder="$drive/Program Files/Norix/Bluetooth"
mkdir -p "$folder"

banner "Firmware: a signed image in a FWDAT container, keyed for the simulated controller"
key=$("$qrxvps" --profile tlv-boot --print-key)
"$qrxfw" two-block "$work/fw.sfi" --body-bytes 4096
"$qrxfw" fwdat "$folder/qrxfw.dat" "signed:$key:$work/fw.sfi"
echo "QRXBPL_DRIVE_C=$drive"

banner "Download over TCP to the Virtual Platform Server"
start_simulator --tcp --port 0
port=${sim_line##*:}
echo "\$ qrxbpl -i 3 -a 127.0.0.1 -p $port"
tcp_status=0
QRXBPL_DRIVE_C="$drive" "$qrxbpl" -i 3 -a 127.0.0.1 -p "$port" || tcp_status=$?
echo "exit status $tcp_status"
stop_simulator

banner "Download over a UART (pseudo-terminal), switching to 3000000 bit/s"
start_simulator --pty
pty=${sim_line##* }
echo "\$ qrxbpl -i 2 -h 2 -p $pty -r 3000000"
uart_status=0
QRXBPL_DRIVE_C="$drive" "$qrxbpl" -i 2 -h 2 -p "$pty" -r 3000000 || uart_status=$?
echo "exit status $uart_status"
stop_simulator
tail -n 1 "$work/sim.out"

banner "Result"
if [ "$tcp_status" -eq 0 ] && [ "$uart_status" -eq 0 ]; then
  echo "Both downloads succeeded."
else
  echo "A download failed (TCP: $tcp_status, UART: $uart_status)."
  exit 1
fi
