// Public keys, any of which may prove the signature of an image.
#pragma once

#include <memory>
#include <span>

#include "ttd/signature.h"

// The crypto library must be started for as long as it lives.
class ttdinfo_keys {
public:
    // Reads each PEM file once, since it may be a pipe.  On failure: the error number,
    // after reporting it on standard error.  Borrows the paths.
    [[nodiscard]] int load(std::span<const char *const> paths);

    // The path of the first key that proves the signature, or null.
    [[nodiscard]] const char *proving(const ttd_superblock &superblock) const;
    [[nodiscard]] bool empty() const { return count_ == 0; }

private:
    struct entry {
        const char *path = nullptr;
        std::uint32_t sigtype = 0;  // that the key is for
        ttd_key key;
    };

    std::unique_ptr<entry[]> entries_;
    std::size_t count_ = 0;
};
