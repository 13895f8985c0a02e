SUMMARY = "Builds, extracts and verifies filesystem images for the TAV operating system"
DESCRIPTION = "Host tool: wraps the image of a filesystem in a salted hash tree and a signed superblock."
# No licence has been granted: see cmake/package/copyright in the sources.
LICENSE = "CLOSED"

# The sources are a folder of yours, said in local.conf:
#     INHERIT += "externalsrc"
#     EXTERNALSRC:pn-mktfs-native = "/path/to/mktfs"
# or an address, in a mktfs-native.bbappend: SRC_URI and SRCREV, and S = the folder that it is unpacked to.
SRC_URI ?= ""

inherit cmake pkgconfig native

# The last three are beside this recipe.
DEPENDS = "openssl-native flex-native bison-native libb2-native libdivide-native blake3-native"
EXTRA_OECMAKE = "-DMKTFS_TESTS=OFF -DMKTFS_WERROR=OFF -DBLAKE3_SOURCE_DIR=${STAGING_DATADIR_NATIVE}/blake3"

python () {
    if not d.getVar("EXTERNALSRC") and not d.getVar("SRC_URI"):
        raise bb.parse.SkipRecipe("EXTERNALSRC:pn-mktfs-native, the folder of the sources, is not set")
}
