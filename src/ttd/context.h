// The private context of a build or verify run.
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

// The context that build or verify init made.
[[nodiscard]] inline ttd_run_context &ttd_context(const mktfs_filesystem &fs) {
    return *static_cast<ttd_run_context *>(fs.priv);
}
