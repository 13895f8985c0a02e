SUMMARY = "Builds, extracts and verifies filesystem images for the TAV operating system"
DESCRIPTION = "Host tool: wraps the image of a filesystem in a salted hash tree and a signed superblock."
# See cmake/package/copyright in the sources.
LICENSE = "CLOSED"

# Where the sources of mktfs are; a layer of yours sets the first and pins the second.
MKTFS_URI ?= "git:///path/to/mktfs;protocol=file;branch=main"
MKTFS_REVISION ?= "${AUTOREV}"

SRC_URI = "\
    ${MKTFS_URI};name=mktfs \
    git://github.com/BLAKE3-team/BLAKE3.git;protocol=https;nobranch=1;tag=1.3.1;name=blake3;destsuffix=blake3 \
"
SRCREV_mktfs = "${MKTFS_REVISION}"
SRCREV_FORMAT = "mktfs"
S = "${WORKDIR}/git"

inherit cmake native

# libb2-native is in meta-oe, libdivide-native beside this recipe.
DEPENDS = "openssl-native libb2-native libdivide-native flex-native bison-native"
EXTRA_OECMAKE = "-DMKTFS_TESTS=OFF -DBLAKE3_SOURCE_DIR=${WORKDIR}/blake3/c"
