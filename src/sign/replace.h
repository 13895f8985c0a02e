// Putting a new superblock into an image: either the old or the new one is there,
// whenever the process ends.
#pragma once

struct ttd_superblock;
class ttd_image_file;

// Replaces `before`, the superblock of the image that is open for writing at `path`, by
// `after` and flushes it to the disk.  What differs is written by one call where it lies
// within one page of the file; else a regular file is copied, sharing its blocks where
// the filesystem can, and the copy renamed over it; EOPNOTSUPP for a device.  On failure
// the image holds `before`; does not log.
[[nodiscard]] int ttdsign_replace(const char *path, const ttd_image_file &image, const ttd_superblock &before,
                                  const ttd_superblock &after);
