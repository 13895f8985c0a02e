#!/bin/bash
# Signing with keys that never leave a token: RSA and EC keys in SoftHSM, used
# through the openssl command as a signing command.  token_test.sh MKTFS
set -euo pipefail
mktfs=$(realpath "$1")
module=$(find /usr/lib -name libsofthsm2.so | head -n 1)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir tokens
echo "directories.tokendir = $work/tokens" >softhsm2.conf
export SOFTHSM2_CONF=$work/softhsm2.conf PKCS11_MODULE_PATH=$module
head -c 65536 /dev/urandom >input

softhsm2-util --init-token --free --label t --pin 1234 --so-pin 1234 >/dev/null
pkcs11() { pkcs11-tool --module "$module" --token-label t --login --pin 1234 "$@" >/dev/null 2>&1; }
pkcs11 --keypairgen --key-type rsa:2048 --label rsa --id 01
pkcs11 --keypairgen --key-type EC:prime256v1 --label ec --id 02

sign='openssl pkeyutl -engine pkcs11 -keyform engine -sign -in <hashfile> -out <sigfile> -pkeyopt digest:sha256'
for key in rsa ec; do
    uri="pkcs11:token=t;object=$key"
    openssl pkey -engine pkcs11 -inform engine -in "$uri;type=public" -pubin -pubout -out $key.pub.pem 2>/dev/null
    type=rsa-sha256
    [ $key = rsa ] || type=ecdsa-sha256
    "$mktfs" ttd -H sha256 -B 4096 -S $type -Z "$sign -inkey '$uri;type=private;pin-value=1234' 2>/dev/null" \
        -o $key.img input >/dev/null
    "$mktfs" ttd -y -K $key.pub.pem $key.img >/dev/null
    tail -c 4096 $key.img | head -c 260 >signed
    size=$(tail -c 3836 $key.img | od -An -tu4 -N4 | tr -d ' ')
    tail -c 3832 $key.img | head -c "$size" >signature
    openssl dgst -sha256 -verify $key.pub.pem -signature signature signed
done
