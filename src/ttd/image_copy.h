// The inner image as the builder writes it: piece by piece while it is hashed.  A
// write that fails is remembered, and reported when the rest of the image is written.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>

#include "io/io.h"

class ttd_image_copy {
public:
    explicit ttd_image_copy(mktfs_io &output);

    // True: pieces may come in any order, from several threads, and gaps become holes.
    // False: pieces come in order without gaps.
    [[nodiscard]] bool takes_pieces_in_any_order() const { return regular_; }

    // Reserves room for `length` bytes that will come without gaps.
    void reserve(std::uint64_t length);

    // Writes bytes of the image at `offset` of it.
    void write(std::uint64_t offset, const std::uint8_t *bytes, std::uint64_t length);

    // Makes the copy `size` bytes long, with zeros; ends the copying.  The first
    // error of a write; does not log.
    [[nodiscard]] int finish(std::uint64_t size);

private:
    [[nodiscard]] int write_at(std::uint64_t offset, const std::uint8_t *bytes, std::uint64_t length) const;
    [[nodiscard]] std::uint64_t size() const;
    [[nodiscard]] int append_zeros(std::uint64_t count);

    mktfs_io &output_;
    const bool regular_;          // the output is a regular file
    const std::uint64_t start_;   // of the copy in it
    std::uint64_t appended_ = 0;  // bytes, to an output of another kind
    std::atomic<int> error_ = 0;  // the first
};
