#!/bin/bash
# Signs images elsewhere and anew, and stops or fails that at every system call: sign_test.sh PROGRAM_FOLDER
set -uo pipefail
export PATH=$1:$PATH
cd "$(mktemp -d)" || exit 1
trap 'rm -rf "$PWD"' EXIT
fail() { echo "FAILED: $*" >&2 && exit 1; }
run() { # expected status, a regular expression for all of standard output and error, command...
    local status=$1 pattern=$2 got
    shift 2
    got=$("$@" 2>&1) # its status is looked at next
    [ $? -eq "$status" ] && [[ $got =~ ^($pattern)$ ]] || fail "$* ends otherwise: $got"
}
proven() { mktfs ttd -y -K "$1" "$2" >/dev/null 2>&1; }
unsigned() { # bytes, signature type, image, signing command: with 512-byte blocks, so that superblocks lie on any border
    head -c "$1" /dev/zero >input
    mktfs ttd -H sha256 -B 512 -S "$2" -A "$(printf %064d 7)" -R 3 -Z "${4-false <hashfile> <sigfile>}" -o "$3" input >log || fail "build"
}
damaged() { # image, offset in the superblock, byte
    cp a.ttd "$1" && printf "$3" | dd of="$1" bs=1 seek=$(($(stat -c %s a.ttd) - 4096 + $2)) conv=notrunc status=none
}

for key in old new; do openssl genpkey -quiet -algorithm RSA -out $key.pem && openssl pkey -in $key.pem -pubout -out $key.pub; done
openssl genpkey -algorithm ed25519 -out ed.pem && openssl pkey -in ed.pem -pubout -out ed.pub

# A key on another machine.
unsigned 512000 rsa-sha256 a.ttd
unsigned 512000 rsa-sha256 long.ttd 'head -c 3832 /dev/urandom >"<sigfile>" # <hashfile>'
unsigned 51200 eddsa-25519 e.ttd
ttdsign message --output request a.ttd && openssl dgst -sha256 -sign old.pem -out response request || fail "message"
ttdsign message --digest a.ttd | cmp - <(openssl dgst -sha256 -binary request) || fail "digest"
ttdsign message e.ttd >pure && openssl pkeyutl -sign -rawin -inkey ed.pem -in pure -out pure.sig || fail "message of EdDSA"
printf '%s\n' 'openssl_conf = init' '[init]' 'providers = list' '[list]' 'null = empty' '[empty]' 'activate = 1' >none.cnf
for size in 0 3832 3833; do head -c $size /dev/zero >bytes$size; done
damaged version 4 '\2' && damaged type 48 '\11' && mkdir folder
cp a.ttd kept
resign() { ttdsign resign --signature rsa-sha256 --key new.pem "$@"; }
while IFS='|' read -r status pattern command; do
    # shellcheck disable=SC2294 # the row is a command line
    run "$status" "$pattern" eval "$command"
    cmp -s a.ttd kept || fail "$command changes the image"
done <<'ROWS'
22|ttdsign: e.ttd: its signature type signs the bytes themselves, not a digest|ttdsign message --digest e.ttd
2|.*ttdsign: a.ttd: No such file or directory|OPENSSL_CONF=none.cnf ttdsign message --digest a.ttd
28|ttdsign: /dev/full: No space left on device|ttdsign message --output /dev/full a.ttd
28|ttdsign: standard output: No space left on device|ttdsign message a.ttd >/dev/full
21|ttdsign: folder: Is a directory|ttdsign message --output folder a.ttd
22|ttdsign: a.ttd: the key does not prove this signature of the image|ttdsign join --key new.pub a.ttd response
22|ttdsign: bytes3833: a signature has 1 to 3832 bytes|ttdsign join --key old.pub a.ttd bytes3833
22|ttdsign: bytes0: a signature has 1 to 3832 bytes|ttdsign join --key old.pub a.ttd bytes0
22|ttdsign: a.ttd: the key does not prove this signature of the image|ttdsign join --key old.pub a.ttd bytes3832
21|ttdsign: folder: Is a directory|ttdsign join --key old.pub a.ttd folder
2|ttdsign: none: No such file or directory|ttdsign join --key old.pub a.ttd none
22|ttdsign: input: not a ttd image of a known version|ttdsign join --key old.pub input response
22|ttdsign: version: not a ttd image of a known version|ttdsign join --key old.pub version response
22|ttdsign: type: the superblock names no known signature type|ttdsign message type
2|ttdsign: none: No such file or directory|ttdsign join --key old.pub none response
22|ttdsign: request: no regular file or block device of at least 4096 bytes|ttdsign join --key old.pub request response
22|.*ttdsign: failed to load key \(file operation error\)|ttdsign join --key none a.ttd response
0|a.ttd: to be signed, rsa-sha256, rollback 3|ttdsign join --dry-run --key old.pub a.ttd response
28|ttdsign: standard output: No space left on device|ttdsign join --dry-run --key old.pub a.ttd response >/dev/full
0|a.ttd: to be signed, rsa-sha256, rollback 9 \(was 3\)|ttdsign resign --rollback 9 --dry-run --unchecked --signature rsa-sha256 --key old.pem a.ttd 2>log
22|.*ttdsign: a.ttd: the old key does not prove its signature \(--unchecked would not ask for that\)\sttdsign: no image was changed|resign --old-key old.pub a.ttd
2|ttdsign: none: No such file or directory\sttdsign: request: no .* bytes\sttdsign: no image was changed|resign --unchecked none request
11|.*ttdsign: a.ttd: another program is writing it\sttdsign: no image was changed|resign --unchecked a.ttd a.ttd
0|(ttdsign.*\s)*(a.ttd: to be signed.*){2}|resign --dry-run --unchecked a.ttd a.ttd
0|ttdsign: a.ttd: the old signature was not checked\sa.ttd: to be signed, eddsa-25519, rollback 3 \(was rsa-sha256\)|ttdsign resign --dry-run --unchecked --signature eddsa-25519 --key ed.pem a.ttd
22|.*ttdsign: failed to load key \(invalid key object\)|ttdsign resign --unchecked --signature rsa-sha256 --key ed.pem a.ttd
1|ttdsign: missing command, see --help|ttdsign
1|ttdsign: unknown command 'sign', see --help|ttdsign sign a.ttd
1|ttdsign: join needs --key, see --help|ttdsign join a.ttd response
1|ttdsign: resign needs --signature, see --help|ttdsign resign --key new.pem --unchecked a.ttd
1|ttdsign: missing signature, see --help|ttdsign join --key old.pub a.ttd
1|ttdsign: missing image, see --help|ttdsign join --key old.pub
1|ttdsign: missing image, see --help|ttdsign message
1|ttdsign: message takes no --json, see --help|ttdsign message --json a.ttd
1|ttdsign: more operands than message takes, see --help|ttdsign message a.ttd e.ttd
1|ttdsign: more operands than join takes, see --help|ttdsign join --key old.pub a.ttd response more
1|ttdsign: resign needs either --old-key or --unchecked, see --help|ttdsign resign --signature rsa-sha256 --key new.pem a.ttd
1|ttdsign: resign needs either --old-key or --unchecked, see --help|resign --old-key old.pub --unchecked a.ttd
1|ttdsign: unknown signature type 'rsa', see --help|ttdsign resign --signature rsa --key new.pem a.ttd
1|ttdsign: invalid rollback value '0x', see --help|ttdsign resign --rollback 0x --signature rsa-sha256 --key new.pem a.ttd
1|ttdsign: unrecognized option '--frob'|ttdsign message --frob a.ttd
0|ttdsign \(mktfs\) [0-9.]+|ttdsign --version message --frob
0|usage: ttdsign message.*print the version|ttdsign -h
28|ttdsign: standard output: No space left on device|ttdsign --help >/dev/full
ROWS
run 0 'a.ttd: signed, rsa-sha256, rollback 3' ttdsign join --key old.pub a.ttd response
run 0 'e.ttd: signed, eddsa-25519, rollback 3' ttdsign join --key ed.pub e.ttd pure.sig
proven old.pub a.ttd && proven ed.pub e.ttd || fail "joined images are not proven"
run 0 'a.ttd: unchanged, rsa-sha256, rollback 3' ttdsign join --key old.pub a.ttd response
run 0 'long.ttd: signed, rsa-sha256, rollback 3' ttdsign join --key old.pub long.ttd response
cmp a.ttd long.ttd || fail "something of a longer signature is left"

# A new key for several images: all or none, and again after a stop.
resign() { ttdsign resign --signature rsa-sha256 --key <(cat new.pem) --old-key <(cat old.pub) --rollback 8 "$@"; }
cp a.ttd b.ttd && cp a.ttd c.ttd
sha256sum a.ttd b.ttd e.ttd >sums
run 22 '.*ttdsign: e.ttd: the old key.*no image was changed' resign a.ttd b.ttd e.ttd
sha256sum --quiet -c sums || fail "a refused run changes images"
entry() { echo "\s*\{\s*\"path\": \"$1.ttd\",\s*\"refused\": $2,\s*\"changes\": $3,\s*\"signature_type\": \"rsa-sha256\",\s*\"rollback\": $4,\s*\"old_signature_type\": \"rsa-sha256\",\s*\"old_rollback\": $5\s*\}"; }
object() { echo "$1\{\s*\"version\": 1,\s*\"dry_run\": $2,\s*\"images\": \[$3\s*\]\s*\}"; }
run 0 "$(object '' false "$(entry b false true 8 3)")" resign --json b.ttd
export ASAN_OPTIONS=detect_leaks=0 # which cannot be told under strace
failing='ttdsign: a.ttd: Input/output error\s'
run 5 "$(object "$failing" false "$(entry b false false 8 8),$(entry c false true 8 3),$(entry a true false 8 3),$(entry long true false 8 3)")" \
    strace -qq -o log -e inject=pwrite64:error=EIO:when=2 ttdsign resign --signature rsa-sha256 --key new.pem --old-key old.pub --rollback 8 --json b.ttd c.ttd a.ttd long.ttd
run 0 'b.ttd: unchanged, rsa-sha256, rollback 8\sa.ttd: signed, rsa-sha256, rollback 8 \(was 3\)' resign b.ttd a.ttd
for image in a b c; do proven new.pub $image.ttd && ! proven old.pub $image.ttd || fail "the new key proves nothing"; done
run 0 'ttdsign: b.ttd: the old .* not checked\sb.ttd: signed, eddsa-25519, rollback 8 \(was rsa-sha256\)' \
    ttdsign resign --unchecked --signature eddsa-25519 --key ed.pem b.ttd
proven ed.pub b.ttd || fail "another kind of signature"
run 0 '.*' ttdsign resign --unchecked --signature eddsa-25519 --key ed.pem --rollback 3 long.ttd

# Stopped or failed at each system call that could change a file, with the superblock within a page, on its last
# border within one and across two.
for size in 514048 513024 513536; do
    unsigned "$size" rsa-sha256 k.ttd
    ttdsign resign --unchecked --signature rsa-sha256 --key old.pem k.ttd >log 2>&1 && chmod 604 k.ttd || fail "signing k.ttd"
    resign_try() { "$@" ttdsign resign --signature rsa-sha256 --key new.pem --old-key old.pub --rollback 7 try.ttd; }
    cp -p k.ttd try.ttd && { chown 7:8 try.ttd 2>/dev/null || :; }
    inode=$(stat -c %i try.ttd) owner=$(stat -c '%a %u:%g' try.ttd)
    run 0 'try.ttd: signed, rsa-sha256, rollback 7 \(was 3\)' resign_try
    proven new.pub try.ttd && [ "$(stat -c '%a %u:%g' try.ttd)" = "$owner" ] || fail "a signed image at size $size"
    [ $((size != 513536)) -eq $((inode == $(stat -c %i try.ttd))) ] || fail "the way to replace at size $size"
    for call in pwrite64 fsync ftruncate lseek copy_file_range ioctl fchown fchmod rename; do
        for fault in signal=KILL:when=1 signal=TERM:when=1 error=EIO:when={1..6} retval=0:when=1; do
            case $call:$fault in (pwrite64:r* | copy_file_range:r* | *:[se]*1 | lseek:e*) ;; (*) continue ;; esac
            rm -f try.ttd.* && cp -p k.ttd try.ttd
            resign_try strace -o log -e trace=$call -e inject=$call:$fault >out 2>&1; status=$?
            { [ $status -ne 0 ] && cmp -s k.ttd try.ttd; } || proven new.pub try.ttd || fail "half an image: $call:$fault at size $size"
            [ $fault = signal=KILL:when=1 ] || ! compgen -G 'try.ttd.*' || fail "$call:$fault leaves a file"
            [[ $fault = s* || $status -eq 0 ]] || [[ $status -eq 5 && $(<out) == 'ttdsign: try.ttd: Input/output error'* ]] || fail "$call:$fault: $status $(<out)"
        done
    done
done
echo "images were signed elsewhere, anew and in every interrupted way"
