################################################################################
#
# libdivide
#
################################################################################

# One header.
# FILL IN where you take it from (version 5), and its licence as that place states it.
LIBDIVIDE_VERSION =
LIBDIVIDE_SITE =
LIBDIVIDE_LICENSE =

ifeq ($(LIBDIVIDE_VERSION)$(BR_BUILDING),y)
$(error libdivide.mk: fill in version, site and licence)
endif

define HOST_LIBDIVIDE_INSTALL_CMDS
	$(INSTALL) -D -m 0644 $(@D)/libdivide.h $(HOST_DIR)/include/libdivide.h
endef

$(eval $(host-generic-package))
