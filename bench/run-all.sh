#!/usr/bin/env bash
# Builds the benchmarks of the release preset and runs them all, one line per figure.
#
#   bench/run-all.sh [--full]     --full: the idle account over 60 s instead of 10 s
#
# Exits non-zero when the build fails or a benchmark does not run to its end. A missed goal is a
# finding, printed as "GOAL MISSED" on its line, not a failure.
set -u
cd "$(dirname "$0")/.." || exit 1
case "${1:-}" in
"") idle=10 ;;
--full) idle=60 ;;
*) echo "usage: bench/run-all.sh [--full]" >&2 && exit 2 ;;
esac
benchmarks=(bench_jsoncanonical bench_jsonsignature bench_keys bench_identitychain bench_profilerestore
    bench_accountcore bench_services bench_elements bench_devservice_login bench_devservice_throughput)

log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { cmake --preset release && cmake --build --preset release --target "${benchmarks[@]}"; } >"$log" 2>&1; then
    tail -n 40 "$log"
    echo "run-all: the release build failed" >&2
    exit 1
fi

echo "== VantroAccount benchmarks: release build of $(git rev-parse --short HEAD), $(date -u '+%F %H:%M UTC'), $(nproc) cores =="
echo "== each subject against its floor in the same run; ratio = subject / floor, lower is better =="
status=0
for benchmark in "${benchmarks[@]}"; do
    arguments=()
    case "$benchmark" in bench_accountcore | bench_services) arguments=(--idle-seconds "$idle") ;; esac
    "build/release/bench/$benchmark" "${arguments[@]}" 2>"$log" || {
        code=$?
        echo "FAILED: $benchmark exited with $code"
        tail -n 5 "$log" | sed 's/^/    /'
        status=1
    }
done
exit $status
