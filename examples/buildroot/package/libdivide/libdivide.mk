################################################################################
#
# libdivide
#
################################################################################

# One header.
LIBDIVIDE_VERSION = 3.0
LIBDIVIDE_SITE = https://deb.debian.org/debian/pool/main/libd/libdivide
LIBDIVIDE_SOURCE = libdivide_$(LIBDIVIDE_VERSION).orig.tar.gz
LIBDIVIDE_LICENSE = Zlib or BSL-1.0
LIBDIVIDE_LICENSE_FILES = LICENSE.txt

define HOST_LIBDIVIDE_INSTALL_CMDS
	$(INSTALL) -D -m 0644 $(@D)/libdivide.h $(HOST_DIR)/include/libdivide.h
endef

$(eval $(host-generic-package))
