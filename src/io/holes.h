// The holes of a sparse file: ranges that read as zeros and need no reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

// Bytes.  Smaller holes are read as quickly as they are looked up.
inline constexpr std::uint64_t IO_SMALLEST_HOLE = 64 * 1024;

class io_holes {
public:
    // Asks the system for the larger holes of an open file of `size` bytes.  None are
    // known when the file is not sparse, the system cannot tell or memory is out.
    io_holes(int descriptor, std::uint64_t size) noexcept;

    // Bytes of a hole from `offset` on; 0 where there is data, or where that is unknown.
    [[nodiscard]] std::uint64_t length_at(std::uint64_t offset) const;

private:
    struct range {
        std::uint64_t start = 0;
        std::uint64_t end = 0;
    };
    std::unique_ptr<range[]> ranges_;  // in order
    std::size_t count_ = 0;
};
