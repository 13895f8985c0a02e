#!/bin/bash
# Makes the Debian package and looks into it: package_test.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
    echo "FAILED: $*" >&2
    exit 1
}
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work" >log 2>&1 || { cat log; fail cpack; }
package=$(echo mktfs_*.deb)
dpkg-deb -x "$package" root
for program in mktfs ttdinfo; do
    for file in bin/$program share/man/man1/$program.1.gz share/bash-completion/completions/$program \
        share/zsh/vendor-completions/_$program share/fish/vendor_completions.d/$program.fish; do
        [ -f "root/usr/$file" ] || fail "no $file in the package"
    done
done
[ "$(root/usr/bin/ttdinfo --version)" = "ttdinfo (mktfs) $(dpkg-deb -f "$package" Version)" ] || fail "version"
dpkg-deb -f "$package" Depends | grep -q libssl3 || fail "the package names no libraries"
lintian --no-user-dirs --allow-root --fail-on error "$package" || fail lintian
echo "$package"
