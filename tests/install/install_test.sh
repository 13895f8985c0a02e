#!/bin/bash
# Installs a build and uses what was installed: install_test.sh BUILD_FOLDER C_COMPILER
set -euo pipefail
build=$(realpath "$1")
compiler=$2
tree=$(realpath "$(dirname "$0")/../..")
source=$tree/examples/engine-verify
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() { echo "FAILED: $*" >&2 && exit 1; }
list() { (cd "$1" && find . ! -type d | sort); }

# A prefix and DESTDIR give the same files.  The prefix is then moved: nothing of it
# may know where it was installed.
cmake --install "$build" --prefix "$work/first" --strip >log
DESTDIR=$work/stage cmake --install "$build" --prefix /opt/tfs >log
diff <(list first) <(list stage/opt/tfs) || fail "DESTDIR installs other files"
mv first prefix
if grep -rlaE "$work|$tree" prefix --include='*.cmake' --include='*.pc' --include='*.h' --include=mktfs \
    --include=ttdinfo --include=ttdsign --include='libttd.so*'; then
    fail "a path of the build was installed"
fi
while IFS=: read -r file link; do
    [ -e "${file%/*}/${link#*(}" ] || fail "$file points to ${link#*(}"
done < <(grep -roE '\]\([^):#]+\b' prefix/share/doc --include='*.md')

# Three ways of building give the same reader, in plain C99 and with nothing but the library named.
cmake -S "$source" -B from_cmake -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_C_COMPILER="$compiler" >log ||
    { cat log; fail "find_package"; }
cmake --build from_cmake >log || { cat log; fail "build with CMake"; }
libraries=$(dirname "$(find "$work/prefix" -name libttd.so.0)")
export PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries
compile() { # output, edit of what pkg-config answers, its arguments...
    local output=$1 edit=$2 flags
    shift 2
    read -ra flags < <(pkg-config "$@" libttd | sed "$edit")
    mkdir -p "${output%/*}"
    "$compiler" -std=c99 -pedantic -Wall -Wextra -Werror -o "$output" "$source/main.c" "${flags[@]}" || fail "$output"
}
compile from_pkg_config/engine-verify '' --cflags --libs
[ "$(pkg-config --libs libttd | tr ' ' '\n' | grep -c '^-l')" = 1 ] || fail "pkg-config names private libraries"
compile static/engine-verify 's/-lttd/-l:libttd.a/' --static --cflags --libs
ldd static/engine-verify | grep libttd && fail "the static program needs the library"

export PATH=$work/prefix/bin:$PATH
openssl genpkey -algorithm ed25519 -out key.pem
openssl pkey -in key.pem -pubout -out key.pub.pem
head -c 2097152 /dev/urandom >in
for hash in sha256 blake2b256 blake3; do
    mktfs ttd -H $hash -B 1024 -S eddsa-25519 -K key.pem -o $hash.img in >log
done
cp sha256.img data.img
printf '\377\0' | dd of=data.img bs=1 seek=1500000 conv=notrunc status=none
for reader in from_cmake/engine-verify from_pkg_config/engine-verify static/engine-verify; do
    for hash in sha256 blake2b256 blake3; do
        [ "$($reader $hash.img key.pub.pem)" = "2048 blocks proven" ] || fail "$reader $hash"
    done
    if $reader data.img key.pub.pem 2>log; then fail "$reader accepts damage"; fi
    grep -qx 'block 1464: wrong data bytes at 1499136' log || fail "$reader does not name the block"
done
ttdinfo --root-hash --verify-signature key.pub.pem sha256.img | grep -qE '^[0-9a-f]{64}$' || fail "ttdinfo"
echo "installed, moved, built against"
