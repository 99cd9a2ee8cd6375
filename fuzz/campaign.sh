#!/usr/bin/env bash
# The fuzz campaign: every target named (all of them by default), one after the other, each to
# RUNS executions (10 million unless set), at the lowest priority, with JOBS libFuzzer jobs sharing
# one corpus (one unless set). A target runs in pieces of CHUNK executions (1 million unless set),
# each started from the corpus the earlier pieces grew, so a campaign that is stopped (a machine
# going down, Ctrl-C) goes on where it stopped when it is run again: only the piece under way is lost.
#
# Each finished piece is a line of build/fuzz/campaign/<target>/ledger: its start, the code it
# fuzzed, its executions, exec/s and findings. Pieces count only for the code they ran against: the
# key is a hash of the sources compiled into the target, so a change to what it runs starts the count
# again and a change elsewhere does not. New inputs go to
# build/fuzz/corpus/<target>; crashes and the libFuzzer logs to build/fuzz/campaign/<target>; the
# totals to build/fuzz/campaign/summary.txt.
#
#   fuzz/campaign.sh [target...]          after configuring build/fuzz as README.md says
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$root/build/fuzz
runs=${RUNS:-10000000}
chunk=${CHUNK:-1000000}
jobs=${JOBS:-1}
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(token jsonsignature pemkey records authenticate challenge servicetoken loginlist passwordreset
           playedservice)
fi

# The code a target was built from: every source file and header of the repository that ninja
# compiled into it, by content, so that only a change to what the target runs starts its count again.
code_key() {
  local inputs
  inputs=$(ninja -C "$build" -t inputs "fuzz/fuzz_$1")
  { echo "$inputs"; ninja -C "$build" -t deps $(grep '\.o$' <<< "$inputs"); } | sed 's/^ *//' |
    grep "^$root/" | grep -v "^$build/" | sort -u | xargs sha1sum | sed "s| $root/| |" | sha1sum | cut -c1-12
}

mkdir -p "$build/campaign"
for target in "${targets[@]}"; do
  work=$build/campaign/$target
  ledger=$work/ledger
  mkdir -p "$work" "$build/corpus/$target"
  touch "$ledger"
  findings() { ls "$work" | grep -c -E '^(crash|leak|timeout|oom)-' || true; }
  # The binary must be the code the key names.
  cmake --build "$build" --target "fuzz_$target" > "$work/build.txt"
  key=$(code_key "$target")
  total() { awk -v key="$key" -v column="${1:-3}" '$2 == key { sum += $column } END { print sum + 0 }' "$ledger"; }
  while [ "$(total)" -lt "$runs" ]; do
    done_so_far=$(total)
    piece=$(( runs - done_so_far < chunk ? runs - done_so_far : chunk ))
    started=$(date -u +%FT%TZ)
    echo "== fuzz_$target: $done_so_far of $runs executions for code $key, $piece more, $started"
    rm -f "$work"/fuzz-*.log
    earlier=$(findings)
    # The fuzzer's exit status is the finding; the ledger says it and the campaign goes on.
    (cd "$work" && ASAN_OPTIONS=detect_leaks=0 nice -n 19 "$build/fuzz/fuzz_$target" -runs=$(( piece / jobs )) \
        -jobs="$jobs" -workers="$jobs" -timeout=10 -print_final_stats=1 -artifact_prefix="$work/" \
        "$build/corpus/$target" "$root/fuzz/corpus/$target" > "$work/run.txt" 2>&1) || true
    # Each job's final stats: a piece counts only when every job finished.
    stats() {
      { grep -ho "stat::$1: *[0-9]*" "$work"/fuzz-*.log || true; } |
        awk -v jobs="$jobs" '{ sum += $2; n++ } END { if (n == jobs) print sum }'
    }
    executed=$(stats number_of_executed_units)
    speed=$(stats average_exec_per_sec)
    found=$(( $(findings) - earlier ))
    cat "$work"/fuzz-*.log >> "$work/fuzz.log" 2>/dev/null || true
    if [ -z "$executed" ]; then
      echo "fuzz_$target stopped without its final stats (see $work/fuzz-*.log); the piece is not counted" >&2
      exit 1
    fi
    printf '%s\t%s\t%s\t%s\t%s\n' "$started" "$key" "$executed" "${speed:-?}" "$found" >> "$ledger"
    if [ "$found" -gt 0 ]; then
      echo "fuzz_$target: findings in $work; fix them before going on" >&2
      break
    fi
  done
  pieces=$(awk -v key="$key" '$2 == key' "$ledger" | wc -l)
  echo "fuzz_$target code=$key executed=$(total) pieces=$pieces findings=$(total 5)" |
    tee -a "$build/campaign/summary.txt"
done
