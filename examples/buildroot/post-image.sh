#!/bin/sh
# Buildroot: BR2_ROOTFS_POST_IMAGE_SCRIPT="path/to/post-image.sh", with the key files in
# BR2_ROOTFS_POST_SCRIPT_ARGS="key.pem key.pub.pem".  Buildroot passes the images folder first.
# Makes rootfs.ttd from rootfs.squashfs there, and verifies it.
#
# TTD_RELEASE (default 1) is the anti-rollback version, and the salt follows from it.
set -eu
images=$1
key=$2
public_key=$3
release=${TTD_RELEASE:-1}
salt=$(printf %s "release $release" | sha256sum | cut -d' ' -f1)

mktfs ttd -H sha256 -B 4096 -S eddsa-25519 -K "$key" -A "$salt" -R "$release" \
    -o "$images/rootfs.ttd.new" "$images/rootfs.squashfs"
mktfs ttd -y -K "$public_key" "$images/rootfs.ttd.new"
mv "$images/rootfs.ttd.new" "$images/rootfs.ttd"
