# Adds the image type "ttd" to an image recipe:
#     IMAGE_CLASSES += "image_types_ttd"
#     IMAGE_FSTYPES += "squashfs.ttd"
#     TTD_KEY = "/path/to/key.pem"
#     TTD_PUBLIC_KEY = "/path/to/key.pub.pem"
# It wraps any other type: ext4.ttd, erofs.ttd ...  With TTD_SIGN_COMMAND set (the text of mktfs -Z,
# without single quotes), that command signs instead of TTD_KEY; let it end with "|| : ><sigfile>".
#
# It needs a recipe mktfs-native, and a release whose IMAGE_NAME holds the suffix ".rootfs" (4.3 on);
# before that, write ${IMAGE_NAME}${IMAGE_NAME_SUFFIX} below.

TTD_DIGEST ?= "sha256"
TTD_BLOCK_SIZE ?= "4096"
TTD_SIGNATURE ?= "eddsa-25519"
TTD_ROLLBACK ?= "0"
TTD_PARTITION_SIZE ?= ""
TTD_KEY ?= ""
TTD_SIGN_COMMAND ?= ""
# Builds come out the same as long as name and version do.
TTD_SALT_TEXT ?= "${IMAGE_BASENAME} ${DISTRO_VERSION} ${TTD_ROLLBACK}"

CONVERSIONTYPES += "ttd"
CONVERSION_DEPENDS_ttd = "mktfs-native coreutils-native"
CONVERSION_CMD:ttd = "ttd_wrap ${IMAGE_NAME}.${type}"

# The image is verified before it gets its name.
ttd_wrap() {
    ttd_salt=$(printf %s "${TTD_SALT_TEXT}" | sha512sum | cut -d' ' -f1)
    set -- "$1" -H "${TTD_DIGEST}" -B "${TTD_BLOCK_SIZE}" -S "${TTD_SIGNATURE}" -A "$ttd_salt" -R "${TTD_ROLLBACK}"
    if [ -n "${TTD_PARTITION_SIZE}" ]; then
        set -- "$@" -P "${TTD_PARTITION_SIZE}"
    fi
    if [ -n '${TTD_SIGN_COMMAND}' ]; then
        set -- "$@" -Z '${TTD_SIGN_COMMAND}'
    else
        set -- "$@" -K "${TTD_KEY}"
    fi
    ttd_input=$1
    shift
    mktfs ttd "$@" -o "$ttd_input.ttd.new" "$ttd_input"
    mktfs ttd -y -K "${TTD_PUBLIC_KEY}" "$ttd_input.ttd.new"
    mv "$ttd_input.ttd.new" "$ttd_input.ttd"
}
