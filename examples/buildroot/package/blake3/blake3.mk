################################################################################
#
# blake3
#
################################################################################

# Sources only: mktfs compiles what it needs of the C reference.
BLAKE3_VERSION = 1.3.1
BLAKE3_SITE = $(call github,BLAKE3-team,BLAKE3,$(BLAKE3_VERSION))
BLAKE3_LICENSE = CC0-1.0 or Apache-2.0

$(eval $(host-generic-package))
