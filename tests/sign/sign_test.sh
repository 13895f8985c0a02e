#!/bin/bash
# Signs images elsewhere and anew, and stops that at every system call: sign_test.sh PROGRAM_FOLDER
set -uo pipefail
export PATH=$1:$PATH
cd "$(mktemp -d)" || exit 1
trap 'rm -rf "$PWD"' EXIT
fail() { echo "FAILED: $*" >&2 && exit 1; }
run() { # expected status, text of standard output and error (a pattern), command...
    local status=$1 pattern=$2 got
    shift 2
    got=$("$@" 2>&1) # its status is looked at next
    [ $? -eq "$status" ] && grep -q -- "$pattern" <<<"$got" || fail "$* ends otherwise: $got"
}
proven() { mktfs ttd -y -K "$1" "$2" >/dev/null 2>&1; }
unsigned() { # bytes, signature type, image: with 512-byte blocks, so that superblocks lie on any border
    head -c "$1" /dev/zero >input
    mktfs ttd -H sha256 -B 512 -S "$2" -R 3 -Z 'false <hashfile> <sigfile>' -o "$3" input >log || fail "build"
}

for key in old new; do openssl genpkey -quiet -algorithm RSA -out $key.pem && openssl pkey -in $key.pem -pubout -out $key.pub; done
openssl genpkey -algorithm ed25519 -out ed.pem && openssl pkey -in ed.pem -pubout -out ed.pub

# A key on another machine.
unsigned 512000 rsa-sha256 a.ttd
unsigned 51200 eddsa-25519 e.ttd
ttdsign message --output request a.ttd && openssl dgst -sha256 -sign old.pem -out response request || fail "message"
ttdsign message --digest a.ttd | cmp - <(openssl dgst -sha256 -binary request) || fail "digest"
ttdsign message e.ttd >pure && openssl pkeyutl -sign -rawin -inkey ed.pem -in pure -out pure.sig || fail "message of EdDSA"
head -c 3833 /dev/zero >long
cp a.ttd kept
while IFS='|' read -r status pattern arguments; do
    # shellcheck disable=SC2086 # the words of a row
    run "$status" "$pattern" ttdsign $arguments
    cmp -s a.ttd kept || fail "$arguments changes the image"
done <<'ROWS'
22|a digest|message --digest e.ttd
28|No space|message --output /dev/full a.ttd
22|does not prove|join --key new.pub a.ttd response
22|1 to 3832|join --key old.pub a.ttd long
22|not a ttd image|join --key old.pub input response
2|No such|join --key old.pub none response
22|regular file|join --key old.pub request response
0|to be signed|join --dry-run --key old.pub a.ttd response
22|unchecked|resign --signature rsa-sha256 --key new.pem --old-key old.pub a.ttd
0|to be signed|resign --dry-run --unchecked --signature eddsa-25519 --key ed.pem a.ttd
1|unknown command|sign a.ttd
1|needs --key|join a.ttd response
1|missing signature|join --key old.pub a.ttd
1|takes no --json|message --json a.ttd
1|more operands|message a.ttd e.ttd
1|either|resign --signature rsa-sha256 --key new.pem a.ttd
1|unknown signature type|resign --signature rsa --key new.pem a.ttd
1|invalid rollback|resign --rollback 0x --signature rsa-sha256 --key new.pem a.ttd
ROWS
run 0 '^a.ttd: signed, rsa-sha256, rollback 3$' ttdsign join --key old.pub a.ttd response
run 0 signed ttdsign join --key ed.pub e.ttd pure.sig
proven old.pub a.ttd && proven ed.pub e.ttd || fail "joined images are not proven"
run 0 unchanged ttdsign join --key old.pub a.ttd response

# A new key for several images: all or none, and again after a stop.
resign() { ttdsign resign --signature rsa-sha256 --key new.pem --old-key old.pub --rollback 8 "$@"; }
cp a.ttd b.ttd
sha256sum a.ttd b.ttd e.ttd >sums
run 22 'no image was changed' resign a.ttd b.ttd e.ttd
sha256sum --quiet -c sums || fail "a refused run changes images"
run 0 '"changes": true' resign --json b.ttd
run 0 '^a.ttd: signed, rsa-sha256, rollback 8 (was 3)$' resign b.ttd a.ttd
run 0 '^b.ttd: unchanged' resign b.ttd
proven new.pub a.ttd && proven new.pub b.ttd && ! proven old.pub b.ttd || fail "the new key proves nothing"
run 0 'not checked' ttdsign resign --unchecked --signature eddsa-25519 --key ed.pem b.ttd
proven ed.pub b.ttd || fail "another kind of signature"

# Killed at each system call that could change a file, with the superblock on every border of a page.
for size in $(seq 512000 512 515584); do
    unsigned "$size" rsa-sha256 k.ttd
    ttdsign resign --unchecked --signature rsa-sha256 --key old.pem k.ttd >log 2>&1 || fail "signing k.ttd"
    for call in pwrite64 fsync ftruncate copy_file_range ioctl fchown fchmod rename; do
        cp k.ttd try.ttd
        (strace -o log -e trace=$call -e inject=$call:signal=KILL:when=1 \
            ttdsign resign --signature rsa-sha256 --key new.pem --old-key old.pub try.ttd || :) >out 2>&1
        cmp -s k.ttd try.ttd || proven new.pub try.ttd || fail "half an image: $call at size $size"
    done
done
echo "images were signed elsewhere, anew and in every interrupted way"
