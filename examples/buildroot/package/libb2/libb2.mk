################################################################################
#
# libb2
#
################################################################################

# FILL IN where you take it from (version 0.98 or later), and its licence as that place states it.
LIBB2_VERSION =
LIBB2_SITE =
LIBB2_LICENSE =

ifeq ($(LIBB2_VERSION)$(BR_BUILDING),y)
$(error libb2.mk: fill in version, site and licence)
endif

$(eval $(host-autotools-package))
