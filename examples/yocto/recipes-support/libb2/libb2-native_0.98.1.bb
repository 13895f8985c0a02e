SUMMARY = "BLAKE2 family of hash functions"
LICENSE = "CC0-1.0"
LIC_FILES_CHKSUM = "file://COPYING;md5=e12c025f33913f2167514339be62c3fd"

SRC_URI = "https://deb.debian.org/debian/pool/main/libb/libb2/libb2_${PV}.orig.tar.gz"
SRC_URI[sha256sum] = "10053dbc2fa342516b780a6bbf6e7b2a2360b8d49c5ac426936bf3df82526732"

inherit autotools native

# Not for the processor of this one machine; on x86-64 the library chooses when it runs.
EXTRA_OECONF = "--disable-native ${@'--enable-fat' if d.getVar('BUILD_ARCH') == 'x86_64' else ''}"
