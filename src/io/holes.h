// The holes of a sparse file: ranges that read as zeros and need no reading.
#pragma once

#include <cstdint>
#include <vector>

class io_holes {
public:
    // Asks the system for the larger holes of an open file of `size` bytes; a file
    // that is not sparse, or a system that cannot tell, has none.
    io_holes(int descriptor, std::uint64_t size);

    // Bytes of a hole from `offset` on; 0 where there is data or nobody knows.
    [[nodiscard]] std::uint64_t length_at(std::uint64_t offset) const;

private:
    struct range {
        std::uint64_t start = 0;
        std::uint64_t end = 0;
    };
    std::vector<range> ranges_;  // in order
};
