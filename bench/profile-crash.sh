#!/usr/bin/env bash
# Kills a process writing profile entries 1,000 times at random moments (the test suite kills it 30
# times) and prints the figure: kills survived, entries checked, time. After each kill every entry
# must read back whole as its old or its new content, the folder must hold nothing but the entries,
# and the modes must stay 0600 for entries and 0700 for the folder.
#
#   bench/profile-crash.sh [kills]
#
# Exits non-zero when the release build fails or a kill leaves the profile damaged.
set -u
cd "$(dirname "$0")/.." || exit 1
kills=${1:-1000}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if ! { cmake --preset release && cmake --build --preset release --target tst_profilecrash; } >"$work/build.log" 2>&1; then
    tail -n 40 "$work/build.log"
    echo "profile-crash: the release build failed" >&2
    exit 1
fi

start=$(date +%s%N)
VANTRO_PROFILE_LOCATION="$work/profiles" VANTRO_PROFILE_KILLS=$kills \
    build/release/tests/account/tst_profilecrash >"$work/run.log" 2>&1
status=$?
milliseconds=$((($(date +%s%N) - start) / 1000000))
# The test's own line: "<kills> kills survived, <entries> entries checked".
read -r survived checked < <(sed -n 's/.* \([0-9]*\) kills survived, \([0-9]*\) entries checked$/\1 \2/p' "$work/run.log")
if [ $status -ne 0 ]; then
    grep -A4 -E '^(FAIL|QFATAL)' "$work/run.log" || tail -n 20 "$work/run.log"
    echo "profile-crash: a kill left the profile damaged (release build of $(git rev-parse --short HEAD))"
    exit 1
fi
if [ -z "${survived:-}" ]; then
    tail -n 20 "$work/run.log"
    echo "profile-crash: the test passed but printed no \"kills survived\" line to take the figure from" >&2
    exit 1
fi
printf 'bench profile_crash: %d of %d kills survived, %d entries checked, %d.%03d s (release build of %s, %s cores)\n' \
    "$survived" "$kills" "$checked" $((milliseconds / 1000)) $((milliseconds % 1000)) \
    "$(git rev-parse --short HEAD)" "$(nproc)"
