// Replaces the superblock of an image: either the old or the new one is there, whenever the
// process ends.
#pragma once

struct ttd_superblock;
class ttd_image_file;

// Replaces `before`, the superblock of the image that is open for writing at `path`, by
// `after` and flushes it to the disk.  If what differs lies within one page of the file,
// one call writes it; otherwise a regular file is copied, sharing its blocks if the
// filesystem can, and the copy is renamed over it; EOPNOTSUPP for a device.  On failure the
// image holds `before`; does not log.
[[nodiscard]] int ttdsign_replace(const char *path, const ttd_image_file &image, const ttd_superblock &before,
                                  const ttd_superblock &after);
