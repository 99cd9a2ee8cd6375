#!/usr/bin/env bash
# The main job: install what the build needs, build vantro-sign with the release preset, and walk
# through keys and signed JSON in a temporary folder. Exits 0 only when every step behaved as
# expected, including the tampered record failing its verification.
set -euo pipefail
cd "$(dirname "$0")/.."

heading() { printf '\n=== %s ===\n' "$*"; }
fail() {
    printf 'demo: FAILED: %s\n' "$*" >&2
    exit 1
}

heading "Installing the build dependencies"
bash scripts/install-deps.sh

heading "Building vantro-sign (release preset)"
cmake --preset release >/dev/null
cmake --build --preset release --target vantro-sign
sign="$PWD/build/release/tools/vantro-sign/vantro-sign"
[ -x "$sign" ] || fail "$sign was not built"

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
cd "$work"

heading "1. Generate an RSA key pair"
echo "\$ vantro-sign keygen --bits 2048 --out demo.pem --public-out demo.pub.pem"
"$sign" keygen --bits 2048 --out demo.pem --public-out demo.pub.pem
stat -c '%A  %n' demo.pem demo.pub.pem
[ "$(stat -c '%a' demo.pem)" = 600 ] || fail "the private key file is not owner-only"
if "$sign" keygen --bits 2048 --out demo.pem 2>refused.txt; then
    fail "keygen replaced an existing key without --force"
fi
echo "a second keygen to the same file is refused: $(cat refused.txt)"

heading "2. Sign a sample record"
cat >record.json <<'EOF'
{
  "user": "ada@example.org",
  "roles": ["admin", "operator"],
  "quota": 1e3,
  "expires": "2030-01-01T00:00:00Z"
}
EOF
cat record.json
echo "\$ vantro-sign sign --key demo.pem record.json > signed.json"
"$sign" sign --key demo.pem record.json >signed.json
cat signed.json

heading "3. The bytes the signature covers (canonical form)"
echo "\$ vantro-sign canonicalize record.json"
"$sign" canonicalize record.json
echo
canonical="$("$sign" canonicalize record.json)"
expected='{"expires":"2030-01-01T00:00:00Z","quota":1000,"roles":["admin","operator"],"user":"ada@example.org"}'
[ "$canonical" = "$expected" ] || fail "unexpected canonical form: $canonical"

heading "4. Verify the signed record with the public key"
echo "\$ vantro-sign verify --key demo.pub.pem signed.json"
"$sign" verify --key demo.pub.pem signed.json || fail "the signed record did not verify"
echo "\$ vantro-sign verify --key demo.pub.pem < signed.json   (standard input)"
"$sign" verify --key demo.pub.pem <signed.json || fail "the signed record did not verify from standard input"

heading "5. Tamper with the record and verify again"
sed 's/"operator"/"owner"/' signed.json >tampered.json
diff signed.json tampered.json || true
echo "\$ vantro-sign verify --key demo.pub.pem tampered.json"
status=0
"$sign" verify --key demo.pub.pem tampered.json 2>&1 || status=$?
[ "$status" -eq 1 ] || fail "the tampered record gave exit status $status instead of 1"
echo "exit status $status: the change was detected"

heading "6. Key fingerprint (SHA-256 of the SubjectPublicKeyInfo)"
echo "\$ vantro-sign fingerprint demo.pub.pem"
fingerprint="$("$sign" fingerprint demo.pub.pem)"
echo "$fingerprint"
private_fingerprint="$("$sign" fingerprint demo.pem)"
[ "$fingerprint" = "$private_fingerprint" ] || fail "the private key's fingerprint differs from its public key's"
reference="$(openssl pkey -pubin -in demo.pub.pem -pubout -outform der | openssl dgst -sha256 -binary | base64)"
echo "openssl: $reference"
[ "$fingerprint" = "$reference" ] || fail "the fingerprint differs from the one openssl computes"

heading "Done"
echo "demo: every step behaved as expected"
