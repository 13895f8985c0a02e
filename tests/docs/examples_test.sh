#!/bin/bash
# Runs the examples whose surroundings are here: examples_test.sh MKTFS
set -euo pipefail
mktfs=$(realpath "$1")
examples=$(realpath "$(dirname "$0")/../../examples")
export PATH=${mktfs%/*}:$PATH
unset SIGN RELEASE MAKEFLAGS MAKELEVEL

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
head -c 65536 /dev/urandom >rootfs.squashfs
cp rootfs.squashfs other.ext4
openssl genpkey -algorithm ed25519 -out key.pem
openssl pkey -in key.pem -pubout -out key.pub.pem
openssl genpkey -algorithm ed25519 -out wrong.pem

fail() { echo "FAILED: $*" >&2 && exit 1; }
expect_good() { # image
    [ ! -e "$1.new" ] || fail "$1.new is left"
    mktfs ttd -y -K key.pub.pem "$1" >/dev/null
    mktfs ttd -x -f -o extracted "$1"
    cmp rootfs.squashfs extracted/fs.img
}
expect_refused() { # image that must not stay, command...
    local image=$1
    shift
    rm -f "$image"
    if "$@" >log 2>&1 || [ -e "$image" ]; then fail "accepted, or its image stays: $*"; fi
}

echo "make"
make -s -f "$examples/make/Makefile" RELEASE=3
expect_good rootfs.ttd
expect_good other.ttd
cp rootfs.ttd first.ttd
make -s -f "$examples/make/Makefile" RELEASE=4
! cmp -s rootfs.ttd first.ttd || fail "the image of the old release stays"
sign='openssl pkeyutl -sign -rawin -inkey key.pem -in <hashfile> -out <sigfile> || : ><sigfile>'
make -s -f "$examples/make/Makefile" RELEASE=3 SIGN="$sign"
cmp rootfs.ttd first.ttd
expect_refused rootfs.ttd make -s -f "$examples/make/Makefile" SIGN="${sign/key.pem/missing.pem}"
expect_refused rootfs.ttd make -s -f "$examples/make/Makefile" KEY=wrong.pem

echo "cmake"
cmake -S "$examples/cmake" -B cmake -DROOTFS=rootfs.squashfs -DKEY=key.pem -DPUBLIC_KEY=key.pub.pem >/dev/null
cmake --build cmake >/dev/null
expect_good cmake/rootfs.ttd
expect_good cmake/rootfs_partition.ttd
[ "$(stat -c %s cmake/rootfs_partition.ttd)" -eq 8388608 ] || fail "the partition has another size"
cmake -S "$examples/cmake" -B cmake -DKEY="$PWD/wrong.pem" >/dev/null
expect_refused cmake/rootfs.ttd cmake --build cmake

echo "buildroot"
TTD_RELEASE=9 "$examples/buildroot/post-image.sh" . key.pem key.pub.pem >/dev/null
expect_good rootfs.ttd
expect_refused rootfs.ttd "$examples/buildroot/post-image.sh" . wrong.pem key.pub.pem

echo "ci"
"$examples/ci/build-and-verify.sh" rootfs.squashfs key.pem key.pub.pem ci.ttd >/dev/null
expect_good ci.ttd
expect_refused ci.ttd "$examples/ci/build-and-verify.sh" rootfs.squashfs wrong.pem key.pub.pem ci.ttd

echo "yocto: the function of the class"
wrap() { # VARIABLE=value...
    {
        sed -n 's/^\(TTD_[A-Z_]*\) ?= \(.*\)/\1=\2/p' "$examples/yocto/classes/image_types_ttd.bbclass"
        printf '%s\n' "$@"
        sed -n '/^ttd_wrap() {/,/^}/p' "$examples/yocto/classes/image_types_ttd.bbclass"
    } >class.sh
    # bitbake puts values into the text before the shell sees it
    sed -i "s#'\${TTD_SIGN_COMMAND}'#\"\$TTD_SIGN_COMMAND\"#" class.sh
    IMAGE_BASENAME=image DISTRO_VERSION=1 sh -ec '. ./class.sh; ttd_wrap rootfs.squashfs'
}
wrap TTD_KEY=key.pem TTD_PUBLIC_KEY=key.pub.pem >/dev/null
expect_good rootfs.squashfs.ttd
wrap TTD_PUBLIC_KEY=key.pub.pem TTD_PARTITION_SIZE=1048576 TTD_DIGEST=sha512 TTD_SIGN_COMMAND="'$sign'" \
    >/dev/null
expect_good rootfs.squashfs.ttd
expect_refused rootfs.squashfs.ttd wrap TTD_KEY=wrong.pem TTD_PUBLIC_KEY=key.pub.pem

echo "genimage: the image is the partition that the table names"
mkdir input empty
mktfs ttd -H sha256 -B 4096 -S eddsa-25519 -K key.pem -P 8388608 -o input/rootfs.ttd rootfs.squashfs >/dev/null
genimage --config "$examples/genimage/genimage.cfg" --inputpath input --rootpath empty >log 2>&1 ||
    { cat log; fail "genimage"; }
first=$(od -An -t u8 -j 1056 -N 8 images/disk.img) # sector, of the first entry
dd if=images/disk.img of=partition bs=512 skip="$((first))" count=16384 status=none
expect_good partition
echo "examples run"
