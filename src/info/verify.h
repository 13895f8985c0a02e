// The proof of a whole image: superblock, signature, every data block and every hash
// block above one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "info/damage.h"
#include "info/report.h"

class ttdinfo_keys;

struct ttdinfo_proof {
    // Inputs: report.min_rollback and these.
    const char *path = nullptr;
    std::size_t map_cells = 0;  // of the damage map, 0: none
    // Results.
    ttdinfo_report report;       // its problems; with a geometry, the blocks were checked
    const char *key = nullptr;   // path of the key that proves the signature
    std::uint64_t blocks = 0;    // data blocks of the inner image
    std::uint64_t unproven = 0;  // of them
    ttdinfo_damage damage;
    int status = 0;  // 0 when all is proven, the signature included
};

// Status of an image that is proven except for its signature, which was not checked.
inline constexpr int TTDINFO_UNSIGNED_STATUS = 61;

// Fills the results; without keys the signature is not checked.  Reads no more than the
// file holds, whatever the superblock says.
void ttdinfo_prove(const ttdinfo_keys &keys, ttdinfo_proof *proof);
