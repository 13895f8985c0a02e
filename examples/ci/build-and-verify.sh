#!/bin/sh
# build-and-verify.sh INPUT KEY PUBLIC_KEY OUTPUT
# What a CI job does with an image: builds it twice and compares, verifies it with the public key, makes
# sure that the verification would notice damage, and only then gives it its name.
set -eu
input=$1 key=$2 public_key=$3 output=$4
salt=$(printf %s "${CI_COMMIT_TAG:-untagged}" | sha256sum | cut -d' ' -f1)

build() { # output
    mktfs ttd -H sha256 -B 4096 -S eddsa-25519 -K "$key" -A "$salt" -o "$1" "$input"
}
refused() { # command...
    if "$@" >/dev/null 2>&1; then
        echo "accepted: $*" >&2
        return 1
    fi
}

new=$output.new
scratch=$(mktemp -d)
trap 'rm -rf "$scratch" "$new"' EXIT
build "$new"
build "$scratch/again"
cmp "$new" "$scratch/again"
mktfs ttd -y -K "$public_key" "$new"

cp "$new" "$scratch/damaged"
byte=$(od -An -tu1 -j100 -N1 "$new")
# shellcheck disable=SC2059 # the format is the byte
printf "\\$(printf %03o $((byte ^ 1)))" | dd of="$scratch/damaged" bs=1 seek=100 conv=notrunc status=none
refused mktfs ttd -y -K "$public_key" "$scratch/damaged"
mktfs ttd -x -o "$scratch/extracted" "$new"
cmp "$input" "$scratch/extracted/fs.img"
mv "$new" "$output"
