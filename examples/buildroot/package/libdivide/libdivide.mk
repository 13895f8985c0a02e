################################################################################
#
# libdivide
#
################################################################################

LIBDIVIDE_VERSION = 5.0
LIBDIVIDE_SITE = $(call github,ridiculousfish,libdivide,v$(LIBDIVIDE_VERSION))
LIBDIVIDE_LICENSE = Zlib or BSL-1.0

define HOST_LIBDIVIDE_INSTALL_CMDS
	$(INSTALL) -D -m 0644 $(@D)/libdivide.h $(HOST_DIR)/include/libdivide.h
endef

$(eval $(host-generic-package))
