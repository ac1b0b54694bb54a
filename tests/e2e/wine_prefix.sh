#!/usr/bin/env bash
# The Wine prefix the Windows end-to-end runs share: `start` makes it (the
# first start of a prefix takes seconds) and keeps one wineserver running for
# the whole suite, so each run starts in about a second; `stop` ends it.
# Usage: wine_prefix.sh start|stop WINE WINEPREFIX
set -euo pipefail
action=$1 wine=$2
export WINEPREFIX=$3 WINEDEBUG=-all
wineserver=$(dirname "$wine")/wineserver
[ -x "$wineserver" ] || wineserver=$(command -v wineserver)

case $action in
  start)
    mkdir -p "$WINEPREFIX"
    "$wine" wineboot --init </dev/null >/dev/null 2>&1
    # A COM port of Wine's own registry besides those of the host's serial
    # devices, for --list-ports to find; Wine publishes it when it starts.
    "$wine" reg add 'HKLM\Software\Wine\Ports' /v COM7 /d /dev/null /f </dev/null >/dev/null 2>&1
    "$wineserver" -k </dev/null >/dev/null 2>&1 || true
    # Persistent for two minutes after the last program: longer than any gap
    # between two runs. Neither it nor the services started with it may hold
    # the test's pipes open, so both start here.
    "$wineserver" -p120 </dev/null >/dev/null 2>&1 || true
    "$wine" wineboot </dev/null >/dev/null 2>&1
    # No other program may sit on the port the runs map onto the simulator.
    rm -f "$WINEPREFIX/dosdevices/com5"
    ;;
  stop)
    "$wineserver" -k </dev/null >/dev/null 2>&1 || true
    ;;
esac
