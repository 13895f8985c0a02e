#include "info/damage.h"

#include <algorithm>

void ttdinfo_ranges::add(const ttdinfo_range &range) {
    const std::uint64_t last_end = last_.offset + last_.length;
    const bool any = count_ != 0;
    if (any && range.level == last_.level && range.offset >= last_.offset && range.offset <= last_end) {
        last_.length = std::max(last_end, range.offset + range.length) - last_.offset;
        if (omitted_ == 0)
            ranges_[count_ - 1] = last_;
        return;
    }
    last_ = range;
    if (count_ < CAPACITY)
        ranges_[count_++] = range;
    else
        ++omitted_;
}

void ttdinfo_damage::begin(std::uint64_t size, std::size_t cells) {
    size_ = size;
    cells_ = std::min(cells, MAX_CELLS);
    std::fill_n(map_, cells_, '.');
}

void ttdinfo_damage::add_damaged(const ttdinfo_range &range) {
    damaged_.add(range);
    mark(range, '#');
}

void ttdinfo_damage::add_unproven(const ttdinfo_range &range) {
    unproven_.add(range);
    mark(range, '-');
}

// Marks the cells that share a byte with the part of the range that lies in the image.
void ttdinfo_damage::mark(const ttdinfo_range &range, char sign) {
    if (cells_ == 0 || range.length == 0 || range.offset >= size_)
        return;
    const auto cell_of = [this](std::uint64_t byte) {
        return static_cast<std::size_t>(static_cast<double>(byte) / static_cast<double>(size_) *
                                        static_cast<double>(cells_));
    };
    const std::uint64_t end = range.offset + std::min(range.length, size_ - range.offset);
    const std::size_t last = std::min(cell_of(end - 1), cells_ - 1);
    for (std::size_t cell = cell_of(range.offset); cell <= last; ++cell)
        if (map_[cell] != '#')
            map_[cell] = sign;
}
