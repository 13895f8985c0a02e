################################################################################
#
# mktfs-blake3
#
################################################################################

# Sources only: mktfs compiles what it needs of the C reference.
MKTFS_BLAKE3_VERSION = 1.3.1
MKTFS_BLAKE3_SITE = https://deb.debian.org/debian/pool/main/r/rust-blake3
MKTFS_BLAKE3_SOURCE = rust-blake3_$(MKTFS_BLAKE3_VERSION).orig.tar.gz
MKTFS_BLAKE3_LICENSE = CC0-1.0 or Apache-2.0
MKTFS_BLAKE3_LICENSE_FILES = LICENSE

$(eval $(host-generic-package))
