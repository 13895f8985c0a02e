// The last bytes of an image, which is all that ttdinfo reads of it.
#pragma once

#include <cstdint>

struct ttd_superblock;

// Reads the last 4096 bytes of a regular file or block device, and its size in
// bytes.  EISDIR, or EINVAL for another kind of file or one that is too short (its
// size is then stored); EIO when it shrinks meanwhile; else the system's error.
// Does not log.
[[nodiscard]] int ttdinfo_read_tail(const char *path, ttd_superblock *superblock, std::uint64_t *size);
