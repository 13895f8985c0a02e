SUMMARY = "Header for fast division by a run-time constant"
# FILL IN, in a layer of yours: the licence as the place that you take it from states it (with
# LIC_FILES_CHKSUM), that place as a git address, and a revision of version 5.
LIBDIVIDE_LICENSE ?= ""
LIBDIVIDE_URI ?= ""
LIBDIVIDE_REVISION ?= ""

LICENSE = "${LIBDIVIDE_LICENSE}"
SRC_URI = "${LIBDIVIDE_URI}"
SRCREV = "${LIBDIVIDE_REVISION}"
S = "${WORKDIR}/git"

inherit native

do_install() {
    install -D -m 0644 ${S}/libdivide.h ${D}${includedir}/libdivide.h
}

python () {
    for name in ("LIBDIVIDE_LICENSE", "LIBDIVIDE_URI", "LIBDIVIDE_REVISION"):
        if not d.getVar(name):
            raise bb.parse.SkipRecipe(name + " is not filled in")
}
