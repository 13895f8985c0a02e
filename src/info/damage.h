// Where an image is damaged: lists of ranges for a report, and a map of the whole image for
// a screen.  Both have a fixed size, however much is damaged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr int TTDINFO_DATA = -1;  // not a level of the tree but the data

struct ttdinfo_range {
    int level = TTDINFO_DATA;
    std::uint64_t offset = 0;  // in the image, bytes
    std::uint64_t length = 0;  // bytes
};

class ttdinfo_ranges {
public:
    static constexpr std::size_t CAPACITY = 4096;

    // A range that touches or overlaps the one before is merged with it.  When the list is
    // full, ranges are only counted.
    void add(const ttdinfo_range &range);
    [[nodiscard]] std::span<const ttdinfo_range> list() const { return {ranges_, count_}; }
    [[nodiscard]] std::uint64_t omitted() const { return omitted_; }

private:
    ttdinfo_range last_;
    ttdinfo_range ranges_[CAPACITY];
    std::size_t count_ = 0;
    std::uint64_t omitted_ = 0;
};

class ttdinfo_damage {
public:
    static constexpr std::size_t MAX_CELLS = 128;

    // An image of `size` bytes, 1 or more, on a map of `cells`.
    void begin(std::uint64_t size, std::size_t cells);
    // Bytes that are not what a hash says, or cannot be read.
    void add_damaged(const ttdinfo_range &range);
    // Data that the tree does not vouch for, damaged itself or below a damaged hash block.
    void add_unproven(const ttdinfo_range &range);

    [[nodiscard]] const ttdinfo_ranges &damaged() const { return damaged_; }
    [[nodiscard]] const ttdinfo_ranges &unproven() const { return unproven_; }
    // A character for each cell: '.', '-' (unproven) or '#' (damaged).
    [[nodiscard]] std::span<const char> map() const { return {map_, cells_}; }

private:
    void mark(const ttdinfo_range &range, char sign);

    ttdinfo_ranges damaged_;
    ttdinfo_ranges unproven_;
    char map_[MAX_CELLS] = {};
    std::size_t cells_ = 0;
    std::uint64_t size_ = 1;
};
