################################################################################
#
# mktfs-libdivide
#
################################################################################

# One header.
MKTFS_LIBDIVIDE_VERSION = 3.0
MKTFS_LIBDIVIDE_SITE = https://deb.debian.org/debian/pool/main/libd/libdivide
MKTFS_LIBDIVIDE_SOURCE = libdivide_$(MKTFS_LIBDIVIDE_VERSION).orig.tar.gz
MKTFS_LIBDIVIDE_LICENSE = Zlib or BSL-1.0
MKTFS_LIBDIVIDE_LICENSE_FILES = LICENSE.txt

define HOST_MKTFS_LIBDIVIDE_INSTALL_CMDS
	$(INSTALL) -D -m 0644 $(@D)/libdivide.h $(HOST_DIR)/include/libdivide.h
endef

$(eval $(host-generic-package))
