#!/usr/bin/env bash
# Fails when a source file reaches up a floor (platform, run, transport, hci,
# fwlib, app, bottom up) or when a file outside the platform and transport
# floors includes an operating-system header.
set -u
src=${1:?usage: check_floors.sh SRC_DIR}
floors=(platform run transport hci fwlib app)
rank() {
  local i
  for i in "${!floors[@]}"; do [ "${floors[$i]}" = "$1" ] && { echo "$i"; return; }; done
  echo 99
}
bad=0
while IFS= read -r file; do
  floor=${file#"$src"/}; floor=${floor%%/*}
  own=$(rank "$floor")
  while IFS= read -r included; do
    if [ "$(rank "${included%%/*}")" -gt "$own" ]; then
      echo "${file#"$src"/} includes $included, a floor above it"; bad=1
    fi
  done < <(sed -n 's/^#include "\([^"]*\)".*/\1/p' "$file")
  case "$floor" in
    platform | transport) ;;
    *) if grep -q '^#include <[^>]*\.h>' "$file"; then
         echo "${file#"$src"/} includes a system header"; bad=1
       fi ;;
  esac
done < <(find "$src" -name '*.cpp' -o -name '*.h')
exit $bad
