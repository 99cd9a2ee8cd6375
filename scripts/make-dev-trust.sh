#!/usr/bin/env bash
# Regenerates the development trust data that is built into the account library:
#   account/config/default.json    the default account configuration, signed with the
#                                  development configuration key
#   account/keys/accountconfig.pub the public half of that key, which verifies every configuration
# from the development keys in devservice/keys/. With --new-keys it first replaces both keys
# (RSA-4096) with freshly generated ones.
#
# Usage: scripts/make-dev-trust.sh [--new-keys] [--sign-tool PATH]
#   --sign-tool  the vantro-sign program (default: $VANTRO_SIGN, else build/dev/tools/vantro-sign/vantro-sign)
#
# The built-in files use CRLF line ends and 4-space indentation. The signature covers the canonical
# form of the object, so their layout does not affect it.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
sign_tool=${VANTRO_SIGN:-$root/build/dev/tools/vantro-sign/vantro-sign}
new_keys=0
while [ $# -gt 0 ]; do
    case $1 in
        --new-keys) new_keys=1 ;;
        --sign-tool) sign_tool=$2; shift ;;
        *) echo "usage: $0 [--new-keys] [--sign-tool PATH]" >&2; exit 2 ;;
    esac
    shift
done
[ -x "$sign_tool" ] || { echo "make-dev-trust: vantro-sign not found at $sign_tool" >&2; exit 1; }

service_url="http://127.0.0.1:8421"
root_name="Vantro Development Root"
root_uuid="root"

keys=$root/devservice/keys
config_key=$keys/config-signing.pem
root_key=$keys/root-identity.pem
public_key=$root/account/keys/accountconfig.pub
config=$root/account/config/default.json

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

if [ $new_keys -eq 1 ]; then
    "$sign_tool" keygen --force --bits 4096 --out "$config_key"
    "$sign_tool" keygen --force --bits 4096 --out "$root_key"
fi

to_crlf() { sed 's/\r$//; s/$/\r/'; }

openssl pkey -in "$config_key" -pubout | to_crlf > "$public_key"
openssl pkey -in "$root_key" -pubout > "$work/root.pub"

# The root key's PEM lines joined by "\n", without a trailing line end.
jq -n -S --arg url "$service_url" --arg name "$root_name" --arg uuid "$root_uuid" \
    --rawfile key "$work/root.pub" \
    '{serviceUrl: $url, rootIdentity: {name: $name, uuid: $uuid, publicKey: ($key | rtrimstr("\n"))}}' \
    > "$work/unsigned.json"
"$sign_tool" sign --key "$config_key" "$work/unsigned.json" > "$work/signed.json"
jq -S --indent 4 . "$work/signed.json" | to_crlf > "$config"

"$sign_tool" verify --key "$public_key" "$config"
echo "make-dev-trust: wrote $config ($(wc -c < "$config") bytes) and $public_key"
