#!/usr/bin/env bash
# Runs the fuzz targets built in BUILD.
#   fuzz/run.sh replay BUILD           every seed and reproducer, once each
#   fuzz/run.sh fuzz BUILD SECONDS     replay, then fuzz each target for SECONDS
# Any crash, sanitizer report, leak or time-out fails; what was found is kept
# under BUILD/findings/<target>/ (copy it into fuzz/reproducers/<target>/).
set -euo pipefail
cd "$(dirname "$0")/.."

mode=${1:?mode: replay or fuzz}
build=${2:?build directory}
seconds=${3:-60}
targets=(fwdat fragments run firmware_report)
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}

failed=()
for target in "${targets[@]}"; do
  program="$build/fuzz/fuzz_$target"
  log="$build/findings/$target.log"
  mkdir -p "$build/findings/$target" "$build/corpus/$target" "fuzz/reproducers/$target"
  mapfile -t inputs < <(find "fuzz/corpus/$target" "fuzz/reproducers/$target" -type f | sort)
  if [ ${#inputs[@]} -gt 0 ] && ! "$program" -timeout=10 "${inputs[@]}" >"$log" 2>&1; then
    echo "FAIL replay $target (see $log)"
    tail -n 30 "$log"
    failed+=("$target")
    continue
  fi
  echo "ok   replay $target: ${#inputs[@]} input(s)"
  [ "$mode" = fuzz ] || continue
  if ! nice -n 10 "$program" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
      -artifact_prefix="$build/findings/$target/" \
      "$build/corpus/$target" "fuzz/corpus/$target" "fuzz/reproducers/$target" >"$log" 2>&1; then
    echo "FAIL fuzz $target (see $log; findings in $build/findings/$target/)"
    grep -E "ERROR|SUMMARY|Test unit written" "$log" | head -n 10 || true
    failed+=("$target")
    continue
  fi
  echo "ok   fuzz $target: $(grep -E 'DONE' "$log" | tail -n 1)"
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: failed: ${failed[*]}"
  exit 1
fi
