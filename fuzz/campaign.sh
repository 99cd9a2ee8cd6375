#!/usr/bin/env bash
# The fuzz campaign: every target named (all of them by default), one after the other, each to
# RUNS executions (10 million unless set) or for MAX_TIME seconds, whichever comes first, at the
# lowest priority, with one job. New inputs go to
# build/fuzz/corpus/<target>, crashes and the libFuzzer logs to build/fuzz/campaign/<target>; the
# figures of each run are its final stats lines, summed up in build/fuzz/campaign/summary.txt.
#
#   fuzz/campaign.sh [target...]          after building build/fuzz as README.md says
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$root/build/fuzz
runs=${RUNS:-10000000}
limit=${MAX_TIME:-0}
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(token jsonsignature pemkey records authenticate challenge servicetoken loginlist passwordreset
           playedservice)
fi

mkdir -p "$build/campaign"
for target in "${targets[@]}"; do
  work=$build/campaign/$target
  mkdir -p "$work" "$build/corpus/$target"
  echo "== fuzz_$target: $runs runs, at most ${limit}s (0: no limit), started $(date -u +%FT%TZ)"
  # The fuzzer's exit status is the finding; the summary line says it, the script goes on.
  (cd "$work" && ASAN_OPTIONS=detect_leaks=0 nice -n 19 "$build/fuzz/fuzz_$target" -runs="$runs" \
      -max_total_time="$limit" -jobs=1 -timeout=10 -print_final_stats=1 -artifact_prefix="$work/" \
      "$build/corpus/$target" "$root/fuzz/corpus/$target" > "$work/run.txt" 2>&1) || true
  log=$work/fuzz-0.log
  executed=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | awk '{print $2}' || true)
  speed=$(grep -o 'stat::average_exec_per_sec: *[0-9]*' "$log" | awk '{print $2}' || true)
  findings=$(ls "$work" | grep -c -E '^(crash|leak|timeout|oom)-' || true)
  echo "fuzz_$target executed=${executed:-?} exec_per_sec=${speed:-?} findings=$findings" |
    tee -a "$build/campaign/summary.txt"
done
