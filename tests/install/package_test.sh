#!/bin/bash
# Makes the Debian packages and looks into them: package_test.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$work" >log 2>&1 || { cat log; exit 1; }
for package in *.deb; do
    dpkg-deb -x "$package" root
done
for program in mktfs ttdinfo ttdsign; do
    ls root/usr/{bin/$program,share/man/man1/$program.1.gz,share/bash-completion/completions/$program} \
        root/usr/share/{zsh/vendor-completions/_$program,fish/vendor_completions.d/$program.fish} >log
done
[ "$(root/usr/bin/ttdinfo --version)" = "ttdinfo (mktfs) $(dpkg-deb -f mktfs_*.deb Version)" ]
for package in mktfs libttd0; do
    dpkg-deb -f "$package"_*.deb Depends | grep -q libssl3
done
libraries=$(dirname "$(find root -name libttd.so.0)")
ls "$libraries"/{libttd.so,libttd.a,pkgconfig/libttd.pc} root/usr/{include/ttd/reader.h,share/man/man3/ttd_reader.3.gz} >log
if [ -e "$build/nbdkit-ttd-plugin.so" ]; then
    LD_LIBRARY_PATH=$libraries nbdkit --dump-plugin "$libraries/nbdkit/plugins/nbdkit-ttd-plugin.so" | grep -qx name=ttd
fi
lintian --no-user-dirs --allow-root --fail-on error ./*.deb
