// The filesystem record: the one filesystem of a run, with its build defaults,
// tree and counters.  Plain data; what acts on it is in fs/filesystem.h.
#pragma once

#include <cstdint>
#include <string>

#include "fs/inode_record.h"

inline constexpr std::uint32_t MKTFS_OPT_NO_INPUT = 0x1;          // no operand needed
inline constexpr std::uint32_t MKTFS_OPT_NO_OUTPUT = 0x2;         // -o optional
inline constexpr std::uint32_t MKTFS_OPT_NO_RESOLVE = 0x4;        // skip tree resolution
inline constexpr std::uint32_t MKTFS_OPT_NO_STATS = 0x8;          // skip the generic statistics
inline constexpr std::uint32_t MKTFS_OPT_NO_SEARCH_PATHS = 0x10;  // no default search path

struct mktfs_filesystem_opts {
    std::uint32_t flags = 0;
    void *priv = nullptr;       // the type's private options, owned by the type
    std::uint32_t threads = 1;  // that the run may use, 1 to 64
};

struct mktfs_filesystem {
    std::uint32_t blksize = 0;  // bytes
    std::uint32_t uid = 0;
    std::uint32_t gid = 0;
    std::uint32_t fmode = 0;  // default permission bits of files
    std::uint32_t dmode = 0;  // and of directories
    std::string mtimefmt;     // strptime format of modification times
    std::int64_t mtime = 0;   // default modification time, seconds
    mktfs_inode root;
    std::uint32_t inodes = 0;  // set by resolution, like the counters below
    mktfs_filesystem_opts opts;
    std::uint32_t files = 0;
    std::uint32_t dirs = 0;
    std::uint32_t links = 0;
    std::uint32_t hardlinks = 0;
    std::uint64_t object_size = 0;  // sum of the inode sizes, bytes
    void *priv = nullptr;           // the type's working context, owned by the type
};
