// A small owned byte buffer whose allocation can fail without an exception.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>

class ttd_bytes {
public:
    // Makes the buffer `size` zero bytes long.  False, and empty, when memory is out.
    [[nodiscard]] bool allocate(std::size_t size) {
        bytes_.reset(new (std::nothrow) std::uint8_t[size]());
        size_ = bytes_ ? size : 0;
        return bytes_ != nullptr;
    }
    // A copy of the bytes.  False, and empty, when memory is out.
    [[nodiscard]] bool assign(std::span<const std::uint8_t> from) {
        if (!allocate(from.size()))
            return false;
        std::ranges::copy(from, bytes_.get());
        return true;
    }
    void clear() {
        bytes_.reset();
        size_ = 0;
    }

    [[nodiscard]] std::uint8_t *data() { return bytes_.get(); }
    [[nodiscard]] const std::uint8_t *data() const { return bytes_.get(); }
    [[nodiscard]] std::size_t size() const { return size_; }
    [[nodiscard]] std::span<const std::uint8_t> span() const { return {bytes_.get(), size_}; }
    [[nodiscard]] explicit operator bool() const { return bytes_ != nullptr; }

private:
    std::unique_ptr<std::uint8_t[]> bytes_;
    std::size_t size_ = 0;
};
