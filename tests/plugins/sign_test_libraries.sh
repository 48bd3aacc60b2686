#!/usr/bin/env bash
# Makes the Authenticode fixtures of the code-signing tests from one built
# DLL: a test root CA (root.cer, for the tests to trust), signers issued by it
# or by nobody trusted, and copies of the DLL signed by each of them, plus an
# unsigned, a tampered and a time-stamped copy. Each signer exists twice, its
# certificate and the file digest both SHA-256 or both SHA-1, because Wine
# checks some certificate faults only on SHA-1 certificates.
#
#   sign_test_libraries.sh <library.dll> <output directory>
#
# Needs openssl, osslsigncode and python3 (for the local time-stamp server).
# Names, serial numbers, the program name and the link below are what
# tests/platform/code_signing_test.cpp expects.
set -euo pipefail

if [[ $# -ne 2 ]]; then
    echo "usage: sign_test_libraries.sh <library.dll> <output directory>" >&2
    exit 2
fi
library=$(realpath "$1")
out=$(realpath -m "$2")
here=$(dirname "$(realpath "${BASH_SOURCE[0]}")")
for tool in openssl osslsigncode python3; do
    command -v "$tool" >/dev/null || { echo "sign_test_libraries.sh: $tool is missing" >&2; exit 1; }
done

work=$(mktemp -d)
responder=
cleanup() {
    [[ -n $responder ]] && kill "$responder" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
cd "$work"
mkdir files

program="QZEKit Test Program"
link="https://example.com/qzekit/test-program"

# A throw-away CA database for `openssl ca`, which alone can back-date a
# certificate.
mkdir -p db
: >db/index.txt
cat >ca.cnf <<'EOF'
[req]
distinguished_name = no_prompt
[no_prompt]
[ca]
default_ca = test_ca
[test_ca]
database = db/index.txt
new_certs_dir = db
serial = db/serial
unique_subject = no
policy = any_name
copy_extensions = none
[any_name]
commonName = supplied
[root]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[code_signing]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = codeSigning
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[time_stamping]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = critical,timeStamping
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
[server_only]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature
extendedKeyUsage = serverAuth
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
EOF

new_key() {
    openssl genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out "$1.key" 2>/dev/null
}

# issue <name> <subject CN> <serial hex> <digest> <issuer> <extensions> [start end]
issue() {
    local name=$1 cn=$2 serial=$3 md=$4 issuer=$5 ext=$6
    local start=${7:-} end=${8:-}
    new_key "$name"
    openssl req -new -utf8 -key "$name.key" -subj "/CN=$cn" -out "$name.csr"
    echo "$serial" >db/serial
    local dates=(-days 3650)
    [[ -n $start ]] && dates=(-startdate "$start" -enddate "$end")
    openssl ca -batch -notext -utf8 -config ca.cnf -cert "$issuer.pem" -keyfile "$issuer.key" \
        -md "$md" -extensions "$ext" "${dates[@]}" -in "$name.csr" -out "$name.pem" 2>/dev/null
}

# sign <output file> <signer> <digest> [extra certificate [osslsigncode options]]
sign() {
    local target=$1 signer=$2 md=$3 extra=${4:-}
    cat "$signer.pem" ${extra:+"$extra.pem"} >"$signer.chain.pem"
    osslsigncode sign -certs "$signer.chain.pem" -key "$signer.key" -h "$md" \
        -n "$program" -i "$link" "${@:5}" -in "$library" -out "files/$target" >/dev/null
}

# The roots: the trusted test CA, and one that no test trusts.
for root in root other_root; do
    new_key "$root"
done
openssl req -x509 -new -utf8 -key root.key -subj "/CN=QZEKit Test Root CA" -days 3650 \
    -sha256 -config ca.cnf -extensions root -out root.pem
openssl x509 -in root.pem -outform DER -out files/root.cer

for md in sha256 sha1; do
    # Serial numbers differ in their last byte per digest: 01 SHA-256, 02 SHA-1.
    n=$([[ $md == sha256 ]] && echo 01 || echo 02)
    issue "good_$md" "QZEKit Test Signer" "5A1B2C3D4E5F60$n" "$md" root code_signing
    issue "expired_$md" "QZEKit Expired Signer" "6B00000000$n" "$md" root code_signing \
        20200101000000Z 20210101000000Z
    issue "server_$md" "QZEKit Server Only" "7C00000000$n" "$md" root server_only
    # Issued by a CA of its own that the signature leaves out: no chain.
    openssl req -x509 -new -key other_root.key -subj "/CN=QZEKit Missing CA $md" -days 3650 \
        -"$md" -config ca.cnf -extensions root -out "missing_ca_$md.pem"
    cp other_root.key "missing_ca_$md.key"
    issue "orphan_$md" "QZEKit Orphan Signer" "8D00000000$n" "$md" "missing_ca_$md" code_signing
    # Self-signed, with the code-signing usage.
    new_key "self_$md"
    openssl req -x509 -new -utf8 -key "self_$md.key" -subj "/CN=QZEKit Untrusted Signer" \
        -set_serial "0x9E00000000$n" -days 3650 -"$md" -config ca.cnf -extensions code_signing \
        -out "self_$md.pem" 2>/dev/null

    sign "signed_$md.dll" "good_$md" "$md" root
    sign "expired_$md.dll" "expired_$md" "$md" root
    sign "server_only_$md.dll" "server_$md" "$md" root
    sign "orphan_$md.dll" "orphan_$md" "$md"
    sign "untrusted_$md.dll" "self_$md" "$md"

    # One byte of the code changed after signing: the digest no longer fits.
    cp "files/signed_$md.dll" "files/tampered_$md.dll"
    offset=$((0x410))
    byte=$(od -An -tu1 -j "$offset" -N1 "files/tampered_$md.dll" | tr -d ' ')
    printf "\\$(printf '%03o' $((byte ^ 0xFF)))" |
        dd of="files/tampered_$md.dll" bs=1 seek="$offset" conv=notrunc status=none
done

# A subject name outside ASCII, with a character beyond the Basic
# Multilingual Plane (a surrogate pair in UTF-16).
issue unicode "Prüfstelle Ωμέγα 測試 𝄞" 5A1B2C3D4E5F6003 sha256 root code_signing
sign signed_unicode.dll unicode sha256 root

# Time-stamped by a local server: a legacy Authenticode countersignature,
# whose signing time the server records in timestamp.txt (UTC).
issue tsa "QZEKit Test Time Stamping" 7E00000000000002 sha1 root time_stamping
python3 "$here/timestamp_responder.py" tsa.pem tsa.key root.pem files/timestamp.txt >port.txt &
responder=$!
for _ in $(seq 100); do
    [[ -s port.txt ]] && break
    sleep 0.1
done
[[ -s port.txt ]] || { echo "sign_test_libraries.sh: the time-stamp server did not start" >&2; exit 1; }
sign timestamped_sha1.dll good_sha1 sha1 root -t "http://127.0.0.1:$(head -n1 port.txt)"
kill "$responder"
responder=

cp "$library" files/unsigned.dll

rm -rf "$out"
mkdir -p "$(dirname "$out")"
mv files "$out"
