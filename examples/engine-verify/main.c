/*
 * engine-verify IMAGE PUBLIC_KEY: reads the whole inner image of a ttd image through
 * libttd and reports every block that does not prove.
 *
 *     cc -std=c99 -o engine-verify main.c $(pkg-config --cflags --libs libttd)
 */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <ttd/reader.h>

enum {
    PIECE = 65536
};

static void print_mismatch(void *arg, const struct ttd_reader_mismatch *mismatch) {
    const char *what = mismatch->is_data ? "data" : "hash";
    (void)arg;
    fprintf(stderr, "block %" PRIu64 ": wrong %s bytes at %" PRIu64 "\n", mismatch->block, what,
            mismatch->offset);
}

static void print_line(void *arg, const char *line) {
    fprintf(stderr, "%s: %s\n", (const char *)arg, line);
}

/* A read that fails does not end the loop, so that one run reports all the damage. */
static int read_all(struct ttd_reader *reader) {
    static char buffer[PIECE];
    struct ttd_reader_info info = {.size = sizeof info};
    uint64_t offset;
    int result = ttd_reader_get_info(reader, &info);

    for (offset = 0; offset < info.image_size; offset += PIECE) {
        const uint64_t left = info.image_size - offset;
        const int err = ttd_reader_read(reader, buffer, left < PIECE ? (size_t)left : PIECE, offset);
        if (err != 0)
            result = err;
    }
    return result;
}

static void print_count(const struct ttd_reader *reader) {
    struct ttd_reader_statistics statistics = {.size = sizeof statistics};

    if (ttd_reader_get_statistics(reader, &statistics) == 0)
        printf("%" PRIu64 " blocks proven\n", statistics.proven);
}

int main(int argc, char **argv) {
    struct ttd_reader_options options = {.size = sizeof options};
    struct ttd_reader *reader;
    int err;

    if (argc != 3) {
        fputs("usage: engine-verify IMAGE PUBLIC_KEY\n", stderr);
        return 1;
    }
    options.key_path = argv[2];
    options.on_mismatch = print_mismatch;
    options.on_log = print_line;
    options.arg = argv[1];
    err = ttd_reader_open(argv[1], &options, &reader);
    if (err == 0)
        err = read_all(reader);
    if (err == 0)
        print_count(reader);
    else
        fprintf(stderr, "%s: %s\n", argv[1], strerror(-err));
    ttd_reader_close(reader);
    return -err;
}
