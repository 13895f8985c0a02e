#!/bin/bash
# Installs a build and uses what was installed: install_test.sh BUILD_FOLDER CXX_COMPILER
set -euo pipefail
build=$(realpath "$1")
compiler=$2
source=$(realpath "$(dirname "$0")/../../examples/engine-verify")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
list() { (cd "$1" && find . -type f | sort); }

# A prefix and DESTDIR give the same files.  The prefix is then moved: nothing of it
# may know where it was installed.
cmake --install "$build" --prefix "$work/first" >log
DESTDIR=$work/stage cmake --install "$build" --prefix /opt/tfs >log
diff <(list first) <(list stage/opt/tfs) || fail "DESTDIR installs other files"
mv first prefix
if grep -rlE "$work|$build" prefix --include='*.cmake' --include='*.pc' --include='*.h'; then
    fail "a path of the build was installed"
fi
for file in bin/mktfs bin/ttdinfo share/man/man1/mktfs.1 share/man/man1/ttdinfo.1 share/man/man5/ttd-image.5 \
    share/bash-completion/completions/mktfs share/doc/mktfs/ttdinfo-json.md; do
    [ -f "prefix/$file" ] || fail "no $file"
done

# Both ways of building give the same reader.
cmake -S "$source" -B from_cmake -DCMAKE_PREFIX_PATH="$work/prefix" -DCMAKE_CXX_COMPILER="$compiler" >log ||
    { cat log; fail "find_package"; }
cmake --build from_cmake >log || { cat log; fail "build with CMake"; }
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name ttd-engine.pc)")
mkdir from_pkg_config
# shellcheck disable=SC2046
"$compiler" -std=c++20 -o from_pkg_config/engine-verify "$source/main.cc" \
    $(pkg-config --cflags --static --libs ttd-engine) || fail "build with pkg-config"

export PATH=$work/prefix/bin:$PATH
openssl genpkey -algorithm ed25519 -out key.pem
openssl pkey -in key.pem -pubout -out key.pub.pem
openssl genpkey -algorithm ed25519 | openssl pkey -pubout -out other.pub.pem
head -c 2097152 /dev/urandom >in
for hash in sha256 blake2b256 blake3; do
    mktfs ttd -H $hash -B 1024 -S eddsa-25519 -K key.pem -o $hash.img in >log
done
cp sha256.img data.img
printf '\377\0' | dd of=data.img bs=1 seek=1500000 conv=notrunc status=none
head -c 1000000 sha256.img >short.img
for reader in from_cmake/engine-verify from_pkg_config/engine-verify; do
    for hash in sha256 blake2b256 blake3; do
        [ "$($reader $hash.img key.pub.pem)" = "2048 blocks proven" ] || fail "$reader $hash"
    done
    for refused in "data.img key.pub.pem" "short.img key.pub.pem" "sha256.img other.pub.pem"; do
        # shellcheck disable=SC2086
        if $reader $refused 2>log; then fail "$reader accepts $refused"; fi
    done
done
ttdinfo --root-hash --verify-signature key.pub.pem sha256.img | grep -qE '^[0-9a-f]{64}$' || fail "ttdinfo"
echo "installed, moved, built against twice"
