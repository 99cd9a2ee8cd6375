#!/usr/bin/env bash
# The soak of the account core (bench/account/bench_soak.cpp) in a release build.
#
#   bench/soak.sh [minutes, default 10]
set -eu
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build --preset release --target bench_soak vantro-account vantro-account-devservice >/dev/null
exec build/release/bench/bench_soak --minutes "${1:-10}"
