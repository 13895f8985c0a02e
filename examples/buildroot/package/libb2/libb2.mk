################################################################################
#
# libb2
#
################################################################################

LIBB2_VERSION = 0.98.1
LIBB2_SITE = https://github.com/BLAKE2/libb2/releases/download/v$(LIBB2_VERSION)
LIBB2_LICENSE = CC0-1.0
LIBB2_LICENSE_FILES = COPYING

$(eval $(host-autotools-package))
