#!/usr/bin/env bash
# The main job: install what the build needs, build the release preset, start the development
# account service with its demo scenario on a free port, and walk through a whole session with
# vantro-account: sign in with a password, status, resources, services and a request through a
# service's own token, logins, sign out, then sign in as a device with its key. Everything happens in a temporary
# folder with a profile location of its own, so no real profile is touched. Exits 0 only when every
# step behaved as expected, the refusals included.
set -euo pipefail
cd "$(dirname "$0")/.."

heading() { printf '\n=== %s ===\n' "$*"; }
fail() {
    printf 'demo: FAILED: %s\n' "$*" >&2
    exit 1
}
# expect STATUS COMMAND...: shows the command, runs it with its output kept in $work/out, and fails
# the demo unless it exits with STATUS.
expect() {
    local expected=$1 status=0
    shift
    printf '$ %s\n' "$*"
    "$@" >"$work/out" || status=$?
    cat "$work/out"
    [ "$status" -eq "$expected" ] || fail "'$*' exited with $status instead of $expected"
}
# shows COMMAND... < FILE (the file's name, never its content), as expect does.
expect_input() {
    local expected=$1 input=$2 status=0
    shift 2
    printf '$ %s < %s\n' "$*" "$(basename "$input")"
    "$@" <"$input" >"$work/out" || status=$?
    cat "$work/out"
    [ "$status" -eq "$expected" ] || fail "'$*' exited with $status instead of $expected"
}
printed() { grep -q -- "$1" "$work/out" || fail "the output lacks \"$1\""; }

heading "Installing the build dependencies"
bash scripts/install-deps.sh

heading "Building (release preset)"
cmake --preset release >/dev/null
cmake --build --preset release --target vantro-account vantro-account-devservice vantro-sign
bin="$PWD/build/release/tools"
service="$PWD/build/release/devservice/vantro-account-devservice"
for program in "$bin/vantro-account/vantro-account" "$bin/vantro-sign/vantro-sign" "$service"; do
    [ -x "$program" ] || fail "$program was not built"
done
PATH="$bin/vantro-account:$bin/vantro-sign:$PATH"

work="$(mktemp -d)"
service_pid=""
stop_service() {
    if [ -n "$service_pid" ]; then
        kill "$service_pid" 2>/dev/null || true
        wait "$service_pid" 2>/dev/null || true
        service_pid=""
    fi
}
trap 'stop_service; rm -rf "$work"' EXIT

heading "Starting the development account service on a free port"
"$service" --port 0 --write-config "$work/account.json" >"$work/service.out" 2>"$work/service.log" &
service_pid=$!
for _ in $(seq 200); do
    grep -q '^listening on ' "$work/service.out" && break
    kill -0 "$service_pid" 2>/dev/null || fail "the service did not start: $(cat "$work/service.log")"
    sleep 0.1
done
url="$(sed -n 's/^listening on //p' "$work/service.out")"
[ -n "$url" ] || fail "the service did not say where it listens"
echo "the service listens on $url; its signed configuration is account.json"
export VANTRO_ACCOUNT_CONFIG="$work/account.json"
export VANTRO_PROFILE_LOCATION="$work/profiles"
echo "VANTRO_ACCOUNT_CONFIG=account.json VANTRO_PROFILE_LOCATION=profiles (both in the temporary folder)"
(umask 077 && printf '%s\n' ada-demo-password >"$work/ada-password" && printf '%s\n' wrong >"$work/wrong-password")

heading "1. A wrong password is refused"
expect_input 1 "$work/wrong-password" vantro-account login ada@example.com --password-stdin

heading "2. Sign in as Ada (the password comes from standard input)"
expect_input 0 "$work/ada-password" vantro-account login ada@example.com --password-stdin
printed "as Ada Lovelace <ada@example.com>"
[ -s "$work/profiles/default/accessToken" ] || fail "the login was not kept in the profile"

heading "3. What the service says about the account (a new process reads the saved login)"
expect 0 vantro-account status
printed "Connected, online"
printed "ReadPermission|ModifyPermission|ConsumerType"
printed "Example Account verifies"
expect 0 vantro-account status --json
printed '"online": true'

heading "4. The account's resources; credentials are never shown"
expect 0 vantro-account resources
printed "not shown (secret): credentials"
if grep -q 'demo-author-db-password' "$work/out"; then fail "a credential was printed"; fi

heading "5. The account's logins; * marks this client's own"
expect 0 vantro-account logins
printed "^\* "

heading "6. The account's services, and a request through a service's own token"
expect 0 vantro-account services
printed "demo-files http://127.0.0.1:"
expect 0 vantro-account services get demo-files items
printed '"service":"demo-files"'
printed '"name":"Ada Lovelace"'
if grep -q 'eyJ' "$work/out"; then fail "a token was printed"; fi

heading "7. Sign out"
expect 0 vantro-account logout
[ "$(ls "$work/profiles/default")" = "$(printf 'clientId\nclientKey')" ] ||
    fail "the profile still holds more than the client's id and key"
expect 3 vantro-account status
printed "Disconnected"
expect 3 vantro-account services get demo-files items

heading "8. Sign in as a device with its key (the service knows its public half)"
expect 0 vantro-account login --key devservice/keys/demo-device.pem
printed "as Ada Lovelace <ada@example.com>"
expect 0 vantro-account services get demo-reports summary
printed '"service":"demo-reports"'
expect 0 vantro-account logout

stop_service
heading "9. Signing in while the service is down"
expect_input 1 "$work/ada-password" vantro-account login ada@example.com --password-stdin

heading "10. vantro-sign: a signed record, and a tampered one that fails"
cd "$work"
expect 0 vantro-sign keygen --bits 2048 --out demo.pem --public-out demo.pub.pem
printf '{"user": "ada@example.com", "roles": ["admin"]}\n' >record.json
vantro-sign sign --key demo.pem record.json >signed.json
expect 0 vantro-sign verify --key demo.pub.pem signed.json
sed 's/"admin"/"owner"/' signed.json >tampered.json
expect 1 vantro-sign verify --key demo.pub.pem tampered.json

heading "Done"
echo "demo: every step behaved as expected"
