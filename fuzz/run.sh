#!/usr/bin/env bash
# Runs every fuzz target built in BUILD_DIR for SECONDS seconds each, on a
# scratch copy of its seed corpus (new inputs stay in the build tree), and
# fails if any target crashes, times out, leaks or breaks a promise it checks.
# Usage: fuzz/run.sh BUILD_DIR SECONDS [TARGET...]
set -uo pipefail
build=$(cd "$1" && pwd)
seconds=$2
shift 2
source_dir=$(cd "$(dirname "$0")" && pwd)
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for dir in "$source_dir"/corpus/*/; do targets+=("$(basename "$dir")"); done
fi

failed=0
summary=()
for target in "${targets[@]}"; do
  exe=$build/fuzz/fuzz_$target
  run=$build/fuzz-runs/$target
  rm -rf "$run" && mkdir -p "$run/corpus" "$run/artifacts"
  cp "$source_dir/corpus/$target/"* "$run/corpus/"
  echo "== fuzz_$target for ${seconds}s"
  # stdout is closed: the camera model prints its validity lines there on
  # every load. A single input may take at most 25 s before it counts as a hang.
  (cd "$run" && ASAN_OPTIONS=abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
     "$exe" -max_total_time="$seconds" -timeout=25 -close_fd_mask=1 -print_final_stats=1 \
     -artifact_prefix="$run/artifacts/" corpus) >"$run/log" 2>&1
  status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/log" | tail -1)
  if [ $status -ne 0 ] || [ -n "$(ls -A "$run/artifacts")" ]; then
    failed=1
    summary+=("fuzz_$target: FAILED (exit $status) after ${runs:-?} runs; log $run/log, inputs in $run/artifacts")
    grep -m1 -B2 -A25 -E 'ERROR: |FUZZ_CHECK|runtime error|deadly signal' "$run/log"
  else
    summary+=("fuzz_$target: ${runs:-?} runs, no crash")
  fi
done
printf '%s\n' "${summary[@]}"
exit $failed
