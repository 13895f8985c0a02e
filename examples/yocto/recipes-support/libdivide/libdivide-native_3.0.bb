SUMMARY = "Header for fast division by a run-time constant"
LICENSE = "Zlib | BSL-1.0"
LIC_FILES_CHKSUM = "file://LICENSE.txt;md5=c07164fd1ffd9569b16c6de89d438fad"

SRC_URI = "https://deb.debian.org/debian/pool/main/libd/libdivide/libdivide_${PV}.orig.tar.gz"
SRC_URI[sha256sum] = "7c0baed201e78f12f290d3f8c22c974d2fa44aefd9820f8484f7972a431ff264"

inherit native

do_install() {
    install -D -m 0644 ${S}/libdivide.h ${D}${includedir}/libdivide.h
}
