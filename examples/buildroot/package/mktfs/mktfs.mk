################################################################################
#
# mktfs
#
################################################################################

# A host package only.  The sources are those that this external tree lies in; where it was copied
# elsewhere, say MKTFS_OVERRIDE_SRCDIR = /path/to/mktfs in Buildroot's local.mk.
MKTFS_VERSION = local
MKTFS_SITE = $(BR2_EXTERNAL_TTD_PATH)/../..
MKTFS_SITE_METHOD = local
MKTFS_LICENSE_FILES = cmake/package/copyright

HOST_MKTFS_DEPENDENCIES = host-openssl host-libb2 host-libdivide host-blake3 host-flex host-bison host-pkgconf
HOST_MKTFS_CONF_OPTS = -DMKTFS_TESTS=OFF -DBLAKE3_SOURCE_DIR=$(HOST_BLAKE3_DIR)/c

$(eval $(host-cmake-package))
