/* The nbdkit plugin "ttd": serves the inner image of a ttd image, read-only, each byte
 * proven before it is sent.  See nbdkit-ttd-plugin(1). */
#define _GNU_SOURCE
#include <errno.h>
#include <inttypes.h>
#include <stdlib.h>
#include <string.h>

#define NBDKIT_API_VERSION 2
#include <nbdkit-plugin.h>

#include "ttd/reader.h"

#define THREAD_MODEL NBDKIT_THREAD_MODEL_PARALLEL

static char *image;
static char *key;
static char *cache;
static int without_signature_check;
static uint64_t min_rollback;
static struct ttd_reader *reader;
static struct ttd_reader_info info = {.size = sizeof info};

static void log_line(void *arg, const char *line) {
    (void)arg;
    nbdkit_error("%s", line);
}

static void log_mismatch(void *arg, const struct ttd_reader_mismatch *mismatch) {
    (void)arg;
    nbdkit_error("block %" PRIu64 " does not prove: %s at offset %" PRIu64 " of the image", mismatch->block,
                 mismatch->is_data ? "its data" : "the hash block", mismatch->offset);
}

/* A path from the command line, absolute, since nbdkit changes its folder. */
static int set_path(char **to, const char *value) {
    free(*to);
    *to = nbdkit_realpath(value);
    return *to ? 0 : -1;
}

static int set_text(char **to, const char *value) {
    free(*to);
    *to = strdup(value);
    return *to ? 0 : -1;
}

static int set_flag(int *to, const char *value) {
    const int flag = nbdkit_parse_bool(value);
    *to = flag == 1;
    return flag < 0 ? -1 : 0;
}

static int ttd_config(const char *name, const char *value) {
    if (strcmp(name, "image") == 0)
        return set_path(&image, value);
    if (strcmp(name, "key") == 0)
        return set_path(&key, value);
    if (strcmp(name, "cache") == 0)
        return set_text(&cache, value);
    if (strcmp(name, "min-rollback") == 0)
        return nbdkit_parse_uint64_t(name, value, &min_rollback);
    if (strcmp(name, "without-signature-check") == 0)
        return set_flag(&without_signature_check, value);
    nbdkit_error("unknown parameter '%s'", name);
    return -1;
}

static int ttd_config_complete(void) {
    if (!image) {
        nbdkit_error("image=FILE is missing");
        return -1;
    }
    if (!key == !without_signature_check) {
        nbdkit_error("either key=FILE or without-signature-check=true is needed");
        return -1;
    }
    return 0;
}

/* After nbdkit has left the terminal: worker threads may be made from here on. */
static int ttd_get_ready(void) {
    const struct ttd_reader_options options = {
        .size = sizeof options,
        .key_path = key,
        .without_signature_check = without_signature_check,
        .min_rollback = min_rollback,
        .cache = cache,
        .on_mismatch = log_mismatch,
        .on_log = log_line,
    };
    const int err = ttd_reader_open(image, &options, &reader);
    if (err != 0) {
        nbdkit_error("%s: %s", image, strerror(-err));
        return -1;
    }
    return ttd_reader_get_info(reader, &info) == 0 ? 0 : -1;
}

static void ttd_unload(void) {
    ttd_reader_close(reader);
    free(image);
    free(key);
    free(cache);
}

static void *ttd_open(int readonly) {
    (void)readonly;
    return NBDKIT_HANDLE_NOT_NEEDED;
}

static int64_t ttd_get_size(void *handle) {
    (void)handle;
    return (int64_t)info.image_size;
}

static int ttd_yes(void *handle) {
    (void)handle;
    return 1;
}

static int ttd_block_size(void *handle, uint32_t *minimum, uint32_t *preferred, uint32_t *maximum) {
    (void)handle;
    *minimum = 1;
    *preferred = info.block_size;
    *maximum = 32 * 1024 * 1024;
    return 0;
}

static int fail(int err) {
    nbdkit_set_error(-err);
    return -1;
}

static int ttd_pread(void *handle, void *buffer, uint32_t count, uint64_t offset, uint32_t flags) {
    (void)handle;
    (void)flags;
    const int err = ttd_reader_read(reader, buffer, count, offset);
    return err == 0 ? 0 : fail(err);
}

static int ttd_extents(void *handle, uint32_t count, uint64_t offset, uint32_t flags,
                       struct nbdkit_extents *extents) {
    (void)handle;
    const uint64_t end = offset + count;
    while (offset < end) {
        uint64_t length = 0;
        int zeros = 0;
        const int err = ttd_reader_extent(reader, offset, end - offset, &length, &zeros);
        if (err != 0)
            return fail(err);
        if (nbdkit_add_extent(extents, offset, length, zeros ? NBDKIT_EXTENT_HOLE | NBDKIT_EXTENT_ZERO : 0) != 0)
            return -1;
        if (flags & NBDKIT_FLAG_REQ_ONE)
            return 0;
        offset += length;
    }
    return 0;
}

#define CONFIG_HELP                                                                                          \
    "image=<FILE>                  (required) The ttd image.\n"                                               \
    "key=<FILE>                    The public key (PEM) that must prove its signature.\n"                     \
    "without-signature-check=true  Trust the superblock instead.\n"                                           \
    "min-rollback=<N>              Refuse a lower anti-rollback version.\n"                                   \
    "cache=<SIZE>                  Hash blocks in memory: a number, a percentage or \"max\"."

static struct nbdkit_plugin plugin = {
    .name = "ttd",
    .longname = "proven inner image of a ttd image",
    .version = TTD_PLUGIN_VERSION,
    .description = "Serves the inner image of a ttd image; blocks that do not prove are read errors.",
    .unload = ttd_unload,
    .config = ttd_config,
    .config_complete = ttd_config_complete,
    .config_help = CONFIG_HELP,
    .magic_config_key = "image",
    .get_ready = ttd_get_ready,
    .open = ttd_open,
    .get_size = ttd_get_size,
    .block_size = ttd_block_size,
    .can_multi_conn = ttd_yes,
    .can_extents = ttd_yes,
    .pread = ttd_pread,
    .extents = ttd_extents,
    .errno_is_preserved = 0,
};

NBDKIT_REGISTER_PLUGIN(plugin)
