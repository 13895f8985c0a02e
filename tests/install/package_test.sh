#!/bin/bash
# Makes the Debian package and looks into it: package_test.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work" >log 2>&1 || { cat log; exit 1; }
package=$(echo mktfs_*.deb)
dpkg-deb -x "$package" root
for program in mktfs ttdinfo; do
    ls root/usr/{bin/$program,share/man/man1/$program.1.gz,share/bash-completion/completions/$program} \
        root/usr/share/{zsh/vendor-completions/_$program,fish/vendor_completions.d/$program.fish} >log
done
[ "$(root/usr/bin/ttdinfo --version)" = "ttdinfo (mktfs) $(dpkg-deb -f "$package" Version)" ]
dpkg-deb -f "$package" Depends | grep -q libssl3
lintian --no-user-dirs --allow-root --fail-on error "$package"
