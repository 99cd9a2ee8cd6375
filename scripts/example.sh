#!/usr/bin/env bash
# Runs the example application against the development account service: installs what the build
# needs, builds the application, the QML module and the service (dev preset), starts the service
# with its demo scenario and then the application. Sign in as ada@example.com with the password
# ada-demo-password, or with the device key file devservice/keys/demo-device.pem.
#
#   scripts/example.sh [--screenshot FILE.png]
#
# The service listens on 127.0.0.1:8421, the address that the library's built-in configuration
# and its password-reset address name. When that port is taken, it runs on a free port with a
# configuration of its own instead, and only the password reset still goes to port 8421.
# --screenshot signs Ada in by itself in a window under Xvfb, saves the window to FILE.png and
# exits (how the picture in README.md is made).
set -euo pipefail
cd "$(dirname "$0")/.."

screenshot=""
case "${1:-}" in
"") ;;
--screenshot) screenshot=${2:?--screenshot needs a file name} ;;
*) echo "usage: scripts/example.sh [--screenshot FILE.png]" >&2 && exit 2 ;;
esac
[ -z "$screenshot" ] || screenshot="$(realpath -m "$screenshot")"

bash scripts/install-deps.sh
cmake --preset dev >/dev/null
cmake --build --preset dev --target account-app vantroaccountplugin vantro-account-devservice
app="$PWD/build/dev/examples/account-app/account-app"
service="$PWD/build/dev/devservice/vantro-account-devservice"

work="$(mktemp -d)"
service_pid=""
cleanup() {
    if [ -n "$service_pid" ]; then
        kill "$service_pid" 2>/dev/null || true
        wait "$service_pid" 2>/dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT

start_service() {
    "$service" "$@" >"$work/service.out" 2>"$work/service.log" &
    service_pid=$!
    for _ in $(seq 100); do
        grep -q '^listening on ' "$work/service.out" && return 0
        kill -0 "$service_pid" 2>/dev/null || break
        sleep 0.1
    done
    wait "$service_pid" 2>/dev/null || true
    service_pid=""
    return 1
}
if ! start_service --port 8421; then
    echo "example: port 8421 is taken; the service runs on a free port (the password reset still goes to 8421)"
    start_service --port 0 --write-config "$work/account.json" || {
        cat "$work/service.log" >&2
        exit 1
    }
    export VANTRO_ACCOUNT_CONFIG="$work/account.json"
fi
echo "example: the development service $(cat "$work/service.out"); its log is in $work/service.log"

# A profile of its own, so the example never touches the profile of another application.
export VANTRO_PROFILE_LOCATION="$work/profiles"
if [ -n "$screenshot" ]; then
    ACCOUNT_APP_PASSWORD=ada-demo-password \
        xvfb-run -a -s "-screen 0 1280x1024x24" "$app" --user ada@example.com --screenshot "$screenshot"
else
    "$app"
fi
