################################################################################
#
# blake3
#
################################################################################

# Sources only: mktfs compiles what it needs of the C reference.
BLAKE3_VERSION = 1.3.1
BLAKE3_SITE = https://deb.debian.org/debian/pool/main/r/rust-blake3
BLAKE3_SOURCE = rust-blake3_$(BLAKE3_VERSION).orig.tar.gz
BLAKE3_LICENSE = CC0-1.0 or Apache-2.0
BLAKE3_LICENSE_FILES = LICENSE

$(eval $(host-generic-package))
