################################################################################
#
# blake3
#
################################################################################

# Sources only: mktfs compiles what it needs of the C reference.
# FILL IN where you take them from, and their licence as that place states it.
BLAKE3_VERSION =
BLAKE3_SITE =
BLAKE3_LICENSE =

ifeq ($(BLAKE3_VERSION)$(BR_BUILDING),y)
$(error blake3.mk: fill in version, site and licence)
endif

$(eval $(host-generic-package))
