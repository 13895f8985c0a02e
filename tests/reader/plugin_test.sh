#!/bin/bash
# The nbdkit plugin against real clients: plugin_test.sh PROGRAM_FOLDER
set -uo pipefail
export PATH=$1:$PATH
plugin=$1/nbdkit-ttd-plugin.so
for tool in nbdkit nbdcopy nbdinfo qemu-img; do
    command -v $tool >/dev/null || { echo "$tool is missing" && exit 77; }
done
cd "$(mktemp -d)" || exit 1
trap 'fusermount3 -u mnt 2>/dev/null; rm -rf "$PWD"' EXIT
fail() { echo "FAILED: $*" >&2 && exit 1; }
serve() { # image, more parameters of the plugin, --run command
    local image=$1
    shift
    nbdkit -U - "$plugin" image="$image" key=pub.pem "$@"
}

openssl genpkey -quiet -algorithm RSA -out key.pem && openssl pkey -in key.pem -pubout -out pub.pem
openssl genpkey -quiet -algorithm RSA 2>/dev/null | openssl pkey -pubout -out other.pem
mkdir -p tree/a && head -c 3000000 /dev/urandom >tree/a/random && cp /bin/ls tree
mke2fs -q -t ext4 -d tree fs.img 64M
mktfs ttd -H sha256 -B 1024 -S rsa-sha256 -K key.pem -R 5 -o good.ttd fs.img >/dev/null || fail "build"

serve good.ttd cache=max --run 'nbdcopy "$uri" copy' && cmp fs.img copy || fail "nbdcopy"
serve good.ttd --run 'qemu-img convert -f raw -O raw "$uri" copy' && cmp fs.img copy || fail "qemu-img"
serve good.ttd --run 'nbdinfo --map=base:allocation "$uri"' | awk '{print $3}' | sort -u | cmp - <(printf '0\n3\n') || fail "data and holes of zeros"

# A flipped byte fails what lies beneath it and nothing beside it: offset of the byte, a
# range that fails and one that does not.
read_at() { serve bad.ttd --run "qemu-io -r -f raw -c 'read $1' \"\$uri\"" >>log 2>&1; }
while read -r offset bad good; do
    cp --sparse=always good.ttd bad.ttd
    byte=$(od -An -tu1 -j "$offset" -N 1 bad.ttd)
    printf "\\x$(printf %02x $((byte ^ 1)))" | dd of=bad.ttd bs=1 seek="$offset" conv=notrunc status=none
    ! read_at "$bad 1" && read_at "$good" || fail "damage at $offset"
    [ "$offset" -ge 67108864 ] || grep -q "block $((bad / 1024)) does not prove: its data" log || fail "no line for $offset"
done <<ROWS
8192 8192 0 8192
$((67108864 + 70 * 1024)) 98304 65536 32768
$((67108864 + 70 * 1024)) 131071 131072 32768
$((67108864 + 8 * 1024)) 5242880 4194304 1048576
$((67108864 + 8 * 1024)) 6290432 6291456 1048576
ROWS

# Refused at the start, with a reason.
refused() { # text, image, parameters...
    local text=$1 image=$2
    shift 2
    ! nbdkit -U - "$plugin" image="$image" "$@" --run true >out 2>&1 && grep -q "$text" out || fail "not refused: $* $(cat out)"
}
head -c 1000000 good.ttd >short.ttd
refused 'does not prove' good.ttd key=other.pem
refused 'anti-rollback' good.ttd key=pub.pem min-rollback=6
refused 'not a ttd image' short.ttd key=pub.pem
refused 'good.ttd: Invalid argument' good.ttd key=other.pem
refused 'realpath: none' good.ttd key=none
refused 'key=FILE' good.ttd
refused 'key=FILE' good.ttd key=pub.pem without-signature-check=1
[ "$(wc -l <out)" -eq 1 ] || fail "both are tried"
refused 'key=FILE' good.ttd without-signature-check=0
refused 'boolean (maybe)' good.ttd without-signature-check=maybe key=pub.pem
refused 'error: min-rollback: ' good.ttd key=pub.pem min-rollback=x
refused 'cache size' good.ttd key=pub.pem cache=lots
refused "unknown parameter 'size'" good.ttd key=pub.pem size=1
! nbdkit -U - "$plugin" key=pub.pem --run true >out 2>&1 && grep -q 'image=FILE is missing' out && [ "$(wc -l <out)" -eq 1 ] || fail "no image"
serve good.ttd --run 'nbdinfo "$uri"' | tr -d '\t' >info
for line in 'block_size_minimum: 1' 'block_size_preferred: 1024' 'block_size_maximum: 33554432' 'can_multi_conn: true' 'is_read_only: true'; do
    grep -qx "$line" info || fail "not told: $line"
done
nbdkit -U - "$plugin" good.ttd without-signature-check=1 --run 'nbdinfo "$uri"' | grep -q 67108864 || fail "no key"

# Nothing but the interface is visible.
nm -D --defined-only "$1"/libttd.so.0 | awk '{print $3}' | grep -v '^TTD_0$' | grep -vE '^ttd_reader_[a-z_]+@@TTD_0$' && fail "libttd shows more"

# A file to look into, without a loop device.
if command -v nbdfuse >/dev/null && [ -w /dev/fuse ]; then
    mkdir mnt
    nbdfuse mnt/fs.img [ nbdkit "$plugin" image=good.ttd key=pub.pem ] &
    for _ in $(seq 100); do [ -s mnt/fs.img ] && break || sleep 0.1; done
    e2fsck -fn mnt/fs.img >log 2>&1 && debugfs -R 'cat /ls' mnt/fs.img 2>/dev/null | cmp - /bin/ls || fail "nbdfuse"
    fusermount3 -u mnt && wait
else
    echo "no /dev/fuse: nbdfuse was not tried"
fi
echo "the plugin serves what proves and nothing else"
