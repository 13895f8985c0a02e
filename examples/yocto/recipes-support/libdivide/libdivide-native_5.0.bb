SUMMARY = "Header for fast division by a run-time constant"
# One header; its licence stands at its beginning.
LICENSE = "CLOSED"
SRC_URI = "git://github.com/ridiculousfish/libdivide.git;protocol=https;nobranch=1;tag=v5.0"
S = "${WORKDIR}/git"

inherit native

do_install() {
    install -D -m 0644 ${S}/libdivide.h ${D}${includedir}/libdivide.h
}
