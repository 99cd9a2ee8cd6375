#!/usr/bin/env bash
# The example application in a real window under Xvfb against the development service: a second
# login of Ada's is made elsewhere first (so the logins list has one to end), then the application
# signs Ada in by itself, saves its window and checks that her name is on screen and that the
# picture is not blank.
#
#   example_window.sh APP DEVSERVICE VANTRO_ACCOUNT DEVICE_KEY OUTPUT.png
set -euo pipefail
app=$1 devservice=$2 cli=$3 device_key=$4 output=$5

work="$(mktemp -d)"
# The service is the only job: it ends, and then what it wrote goes.
trap 'set +e; kill $(jobs -p) 2>/dev/null; wait; rm -rf "$work"' EXIT

QT_LOGGING_RULES="vantro.devservice.request.info=false" \
    "$devservice" --port 0 --write-config "$work/account.json" >"$work/service.out" 2>"$work/service.log" &
timeout 10 sh -c 'until grep -q "^listening on " "$1"; do sleep 0.1; done' - "$work/service.out" ||
    { cat "$work/service.log" >&2; exit 1; }
export VANTRO_ACCOUNT_CONFIG="$work/account.json"

"$cli" --profile-location "$work/elsewhere" login --key "$device_key" >/dev/null

export VANTRO_PROFILE_LOCATION="$work/profiles"
ACCOUNT_APP_PASSWORD=ada-demo-password \
    xvfb-run -a -s "-screen 0 1280x1024x24" "$app" --user ada@example.com --screenshot "$output"
