#!/bin/bash
# Installs a build and uses what was installed: install_test.sh BUILD_FOLDER CXX_COMPILER
set -euo pipefail
build=$(realpath "$1")
compiler=$2
tree=$(realpath "$(dirname "$0")/../..")
source=$tree/examples/engine-verify
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
cmake --install "$build" --prefix "$work/first" --strip >log
DESTDIR=$work/stage cmake --install "$build" --prefix /opt/tfs >log
diff <(list first) <(list stage/opt/tfs) || fail "DESTDIR installs other files"
mv first prefix
if grep -rlaE "$work|$tree" prefix --include='*.cmake' --include='*.pc' --include='*.h' --include=mktfs \
    --include=ttdinfo; then
    fail "a path of the build was installed"
fi
while IFS=: read -r file link; do
    [ -e "${file%/*}/${link#*(}" ] || fail "$file points to ${link#*(}"
done < <(grep -roE '\]\([^):#]+\b' prefix/share/doc --include='*.md')

# Both ways of building give the same reader; neither needs sources that the archives were made of.
sources=$(sed -n 's/^BLAKE3_SOURCE_DIR:PATH=//p' "$build/CMakeCache.txt")
hide=()
# shellcheck disable=SC2016
[ -z "$sources" ] || ! unshare -rm true 2>/dev/null ||
    hide=(unshare -rm sh -c 'mount -t tmpfs none "$0" && exec "$@"' "${sources%/*/*}")
"${hide[@]}" cmake -S "$source" -B from_cmake -DCMAKE_PREFIX_PATH="$work/prefix" \
    -DCMAKE_CXX_COMPILER="$compiler" >log || { cat log; fail "find_package"; }
"${hide[@]}" cmake --build from_cmake >log || { cat log; fail "build with CMake"; }
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name ttd-engine.pc)")
read -ra flags < <(pkg-config --cflags ttd-engine)
read -ra libraries < <(pkg-config --static --libs ttd-engine)
mkdir from_pkg_config
"$compiler" -std=c++20 "${flags[@]}" -o from_pkg_config/engine-verify "$source/main.cc" "${libraries[@]}" ||
    fail "build with pkg-config"
find prefix/include -name '*.h' -printf '#include "%P"\n' | sed 's,"mktfs/,",' |
    "$compiler" -std=c++20 "${flags[@]}" -fsyntax-only -x c++ - || fail "a header lacks another"

export PATH=$work/prefix/bin:$PATH
openssl genpkey -algorithm ed25519 -out key.pem
openssl pkey -in key.pem -pubout -out key.pub.pem
head -c 2097152 /dev/urandom >in
for hash in sha256 blake2b256 blake3; do
    mktfs ttd -H $hash -B 1024 -S eddsa-25519 -K key.pem -o $hash.img in >log
done
cp sha256.img data.img
printf '\377\0' | dd of=data.img bs=1 seek=1500000 conv=notrunc status=none
for reader in from_cmake/engine-verify from_pkg_config/engine-verify; do
    for hash in sha256 blake2b256 blake3; do
        [ "$($reader $hash.img key.pub.pem)" = "2048 blocks proven" ] || fail "$reader $hash"
    done
    if $reader data.img key.pub.pem 2>log; then fail "$reader accepts damage"; fi
done
ttdinfo --root-hash --verify-signature key.pub.pem sha256.img | grep -qE '^[0-9a-f]{64}$' || fail "ttdinfo"
echo "installed, moved, built against twice"
