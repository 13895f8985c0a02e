################################################################################
#
# mktfs
#
################################################################################

# A host package only, like the libraries beside it, which have names of their own because Buildroot may
# have some of them.  The sources are those that this external tree lies in; where it was copied
# elsewhere, say MKTFS_OVERRIDE_SRCDIR = /path/to/mktfs in Buildroot's local.mk.
MKTFS_VERSION = local
MKTFS_SITE = $(BR2_EXTERNAL_TTD_PATH)/../..
MKTFS_SITE_METHOD = local
MKTFS_LICENSE_FILES = cmake/package/copyright

HOST_MKTFS_DEPENDENCIES = host-pkgconf host-flex host-bison host-openssl \
	host-mktfs-libb2 host-mktfs-libdivide host-mktfs-blake3
HOST_MKTFS_CONF_OPTS = -DMKTFS_TESTS=OFF -DMKTFS_WERROR=OFF -DBLAKE3_SOURCE_DIR=$(HOST_MKTFS_BLAKE3_DIR)/c

$(eval $(host-cmake-package))
