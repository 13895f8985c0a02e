// What the private pointer of a filesystem stands for: in a build or verify run the
// context below, in an extraction a superblock.
#pragma once

#include <cstdint>
#include <string>

#include "fs/filesystem_record.h"
#include "ttd/engine.h"
#include "ttd/options.h"

struct ttd_run_context {
    ttd_options *options = nullptr;  // as they were parsed; borrowed
    std::uint32_t threads = 1;       // that hash and copy
    std::string input_path;
    std::uint64_t input_size = 0;  // bytes
    ttd_ctx engine;                // superblock, geometry, crypto selections
};

// What the type's init hook made for this run; null before it.
template <class Context>
[[nodiscard]] Context *ttd_private(const mktfs_filesystem &fs) {
    return static_cast<Context *>(fs.priv);
}

// The context of a build or verify run.
[[nodiscard]] inline ttd_run_context &ttd_context(const mktfs_filesystem &fs) {
    return *ttd_private<ttd_run_context>(fs);
}
