// A small image from a fuzzer's bytes: one byte of choices, the superblock's signed
// fields, where mutations hit them, then what lies in front of the superblock.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "ttd/format.h"

using image_bytes = std::vector<std::uint8_t>;

struct image_input {
    image_input(const std::uint8_t *data, std::size_t size) {
        const std::uint8_t *const end = data + size;
        choices = size > 0 ? *data++ : std::uint8_t{0};
        const auto fields = std::min<std::size_t>(static_cast<std::size_t>(end - data), TTD_SIGNED_SIZE);
        std::memcpy(&superblock, data, fields);
        image.assign(data + fields, end);
        image.resize(image.size() + TTD_SUPERBLOCK_SIZE);
        if (choose(0)) {  // which few inputs would hit
            superblock.magic = TTD_MAGIC;
            superblock.version = TTD_VERSION;
        }
        store();
    }

    [[nodiscard]] bool choose(unsigned bit) const { return (choices >> bit & 1) != 0; }
    // Puts the superblock at its place.
    void store() {
        std::memcpy(image.data() + image.size() - TTD_SUPERBLOCK_SIZE, &superblock, sizeof superblock);
    }

    std::uint8_t choices = 0;
    ttd_superblock superblock{};
    image_bytes image;
};
