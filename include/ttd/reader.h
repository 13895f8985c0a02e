/*
 * libttd: reads the inner image of a ttd image and proves every byte before it hands it
 * out.  For C99 and C++.
 *
 * A reader is opened once and may then be used by any number of threads at the same
 * time.  Functions that can fail return 0 or a negative error number of <errno.h> and
 * leave errno unspecified.
 */
#ifndef TTD_READER_H
#define TTD_READER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ttd_reader;

/* A block that does not prove. */
struct ttd_reader_mismatch {
    uint32_t level;   /* of the hash tree: the hash blocks of that level, 0 next to the data */
    uint32_t is_data; /* 1: the data block itself, level is 0; 0: a hash block above it */
    uint64_t block;   /* data block of the inner image, which cannot be read */
    uint64_t offset;  /* of the bytes that do not match in the image file, bytes */
};

/*
 * How to open an image.  Set everything to zero, then size to sizeof the structure, then
 * what is wanted; members that a later version adds behind the last one keep the value 0.
 * Everything that the members point to is needed during the open only, but for the
 * callbacks and their argument.
 */
struct ttd_reader_options {
    size_t size;          /* sizeof(struct ttd_reader_options) */
    const char *key_path; /* PEM file with the public key that must prove the signature */
    /* Nonzero: no key, trust whoever wrote the superblock.  The blocks are then proven
       against a root hash that nobody vouches for. */
    int without_signature_check;
    uint64_t min_rollback; /* refuse a lower anti-rollback version */
    /* How much of the hash tree stays in memory: a number of hash blocks, a percentage
       of them such as "5%", or "max"; null: 5%, at least 20 blocks. */
    const char *cache;
    /* Told of each block that does not prove, at every read of it; may be null.  Called in
       the reading thread, from several threads at once. */
    void (*on_mismatch)(void *arg, const struct ttd_reader_mismatch *mismatch);
    /* Told why an open is refused and of errors while reading, a line without its end; may
       be null. */
    void (*on_log)(void *arg, const char *line);
    void *arg; /* handed to both */
};

/* What the superblock says; constant as long as the reader is open. */
struct ttd_reader_info {
    size_t size;             /* in: sizeof(struct ttd_reader_info) */
    uint64_t image_size;     /* the inner image, bytes */
    uint32_t block_size;     /* what is proven at once, bytes */
    uint32_t flags;          /* bit 0: the image is a whole partition */
    uint64_t rollback;       /* anti-rollback version */
    uint32_t format_version; /* 1 */
    uint32_t root_hash_size; /* bytes, at most 64 */
    uint8_t root_hash[64];
};

/* Counted since the open. */
struct ttd_reader_statistics {
    size_t size;      /* in: sizeof(struct ttd_reader_statistics) */
    uint64_t proven;  /* data blocks of reads that succeeded */
    uint64_t refused; /* data blocks of reads, or pieces of 256 KiB of them, that failed */
    uint64_t cached;  /* hash blocks that were found in memory */
    uint64_t loaded;  /* hash blocks that were read and proven */
};

/*
 * Opens an image: a regular file or a block device.  *reader is null on failure.
 *
 * -EINVAL      options that contradict each other (neither or both of key_path and
 *              without_signature_check), a cache text that is none, not a ttd image, a key
 *              that does not load, a signature that it does not prove, a version below
 *              min_rollback, or a superblock whose numbers contradict each other
 * -EISDIR      a folder
 * -ENOMEM
 * -ENOENT, -ENXIO, -EOPNOTSUPP   the crypto library lacks an algorithm or fails
 * other        the file could not be opened or read
 */
int ttd_reader_open(const char *path, const struct ttd_reader_options *options, struct ttd_reader **reader);

/* The same of a file that is open for reading.  The reader duplicates the descriptor; the
   caller's may be closed, and its file offset is not kept. */
int ttd_reader_open_fd(int fd, const struct ttd_reader_options *options, struct ttd_reader **reader);

/* Null is ignored.  No other thread may use the reader any more. */
void ttd_reader_close(struct ttd_reader *reader);

/* -EINVAL for a size below that of the first version of the structure. */
int ttd_reader_get_info(const struct ttd_reader *reader, struct ttd_reader_info *info);
int ttd_reader_get_statistics(const struct ttd_reader *reader, struct ttd_reader_statistics *statistics);

/*
 * Reads `length` bytes of the inner image from `offset` on.  On failure the buffer holds
 * zeros.
 *
 * -EINVAL   the range does not lie within the inner image
 * -EIO      a block of it does not prove or could not be read
 * -ENOMEM
 */
int ttd_reader_read(struct ttd_reader *reader, void *buffer, size_t length, uint64_t offset);

/*
 * Tells whether the inner image holds zeros from `offset` on, as far as the image file has
 * a hole there: *zeros is 1 for a hole of which every block was proven to be zeros, else 0
 * (which does not say that there are other bytes).  *length is how far that goes, at least
 * 1 byte, at most `max_length`.
 *
 * -EINVAL   max_length is 0, or the range does not lie within the inner image
 * -ENOMEM
 */
int ttd_reader_extent(struct ttd_reader *reader, uint64_t offset, uint64_t max_length, uint64_t *length,
                      int *zeros);

#ifdef __cplusplus
}
#endif

#endif
