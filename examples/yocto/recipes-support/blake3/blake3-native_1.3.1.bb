SUMMARY = "Sources of the BLAKE3 reference in C, of which mktfs compiles what it needs"
LICENSE = "CC0-1.0 | Apache-2.0"
LIC_FILES_CHKSUM = "file://LICENSE;md5=f411d8e1dc79efe23089d47c18fe1e8f"

SRC_URI = "https://deb.debian.org/debian/pool/main/r/rust-blake3/rust-blake3_${PV}.orig.tar.gz;subdir=${BP};striplevel=1"
SRC_URI[sha256sum] = "a08e53fc5a564bb15bfe6fae56bd71522205f1f91893f9c0116edad6496c183f"

inherit native

do_install() {
    install -d ${D}${datadir}/blake3
    install -m 0644 ${S}/c/blake3* ${D}${datadir}/blake3
}
