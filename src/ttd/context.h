// The private context of a build or verify run.
#pragma once

#include <cstdint>
#include <string>

#include "fs/filesystem_record.h"
#include "ttd/engine.h"

struct ttd_run_context {
    std::string input_path;
    std::uint64_t input_size = 0;  // bytes
    ttd_ctx engine;                // superblock, geometry, crypto selections
};

// The context that build or verify init made.
[[nodiscard]] inline ttd_run_context &ttd_context(const mktfs_filesystem &fs) {
    return *static_cast<ttd_run_context *>(fs.priv);
}
