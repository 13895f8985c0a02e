################################################################################
#
# mktfs-libb2
#
################################################################################

MKTFS_LIBB2_VERSION = 0.98.1
MKTFS_LIBB2_SITE = https://deb.debian.org/debian/pool/main/libb/libb2
MKTFS_LIBB2_SOURCE = libb2_$(MKTFS_LIBB2_VERSION).orig.tar.gz
MKTFS_LIBB2_LICENSE = CC0-1.0
MKTFS_LIBB2_LICENSE_FILES = COPYING
HOST_MKTFS_LIBB2_AUTORECONF = YES

# Not for the processor of this one machine; on x86-64 the library chooses when it runs.
HOST_MKTFS_LIBB2_CONF_OPTS = --disable-native $(if $(filter x86_64,$(HOSTARCH)),--enable-fat)

$(eval $(host-autotools-package))
