SUMMARY = "Builds, extracts and verifies filesystem images for the TAV operating system"
DESCRIPTION = "Host tool: wraps the image of a filesystem in a salted hash tree and a signed superblock."
# No licence has been granted: see cmake/package/copyright in the sources.
LICENSE = "CLOSED"

# FILL IN, in a layer of yours: where the sources of mktfs and those of the BLAKE3 reference are, both
# as git addresses with a revision, such as "git:///path/to/mktfs;protocol=file;branch=main".
MKTFS_URI ?= ""
MKTFS_REVISION ?= "${AUTOREV}"
BLAKE3_URI ?= ""
BLAKE3_REVISION ?= ""

SRC_URI = "\
    ${MKTFS_URI};name=mktfs \
    ${BLAKE3_URI};name=blake3;destsuffix=blake3 \
"
SRCREV_mktfs = "${MKTFS_REVISION}"
SRCREV_blake3 = "${BLAKE3_REVISION}"
SRCREV_FORMAT = "mktfs"
S = "${WORKDIR}/git"

inherit cmake native

# FILL IN a layer that has libb2-native; libdivide-native is beside this recipe.
DEPENDS = "openssl-native libb2-native libdivide-native flex-native bison-native"
EXTRA_OECMAKE = "-DMKTFS_TESTS=OFF -DBLAKE3_SOURCE_DIR=${WORKDIR}/blake3/c"

python () {
    for name in ("MKTFS_URI", "BLAKE3_URI", "BLAKE3_REVISION"):
        if not d.getVar(name):
            raise bb.parse.SkipRecipe(name + " is not filled in")
}
