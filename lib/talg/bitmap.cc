#include "talg/bitmap.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace {

using word_ref = std::atomic_ref<std::uint64_t>;

constexpr std::uint64_t WORD_BITS = 64;

constexpr std::uint64_t mask_of(std::uint64_t index) {
    return std::uint64_t{1} << index % WORD_BITS;
}

}  // namespace

struct talg_bitmap {
    std::unique_ptr<std::uint64_t[]> words;
    std::uint64_t capacity = 0;  // bits
    std::size_t size = 0;        // bytes of the words
};

namespace {

template <class Change>
int change_bit(const talg_bitmap &bitmap, std::uint64_t index, Change change) {
    if (index >= bitmap.capacity)
        return ERANGE;
    change(word_ref(bitmap.words[index / WORD_BITS]), mask_of(index));
    return 0;
}

}  // namespace

int talg_bitmap_create(talg_bitmap **out, std::uint64_t bits) {
    if (!out)
        return EINVAL;
    if (bits > std::numeric_limits<std::uint64_t>::max() - (WORD_BITS - 1))
        return ENOMEM;
    const std::size_t words = (bits + WORD_BITS - 1) / WORD_BITS;
    std::unique_ptr<talg_bitmap> bitmap(new (std::nothrow) talg_bitmap{});
    if (!bitmap)
        return ENOMEM;
    bitmap->words.reset(new (std::nothrow) std::uint64_t[words]());
    if (!bitmap->words)
        return ENOMEM;
    bitmap->capacity = bits;
    bitmap->size = words * sizeof(std::uint64_t);
    *out = bitmap.release();
    return 0;
}

void talg_bitmap_destroy(talg_bitmap *bitmap) noexcept {
    delete bitmap;
}

int talg_bitmap_set(talg_bitmap *bitmap, std::uint64_t index) {
    return change_bit(*bitmap, index,
                      [](word_ref word, auto mask) { word.fetch_or(mask, std::memory_order_relaxed); });
}

int talg_bitmap_unset(talg_bitmap *bitmap, std::uint64_t index) {
    return change_bit(*bitmap, index,
                      [](word_ref word, auto mask) { word.fetch_and(~mask, std::memory_order_relaxed); });
}

int talg_bitmap_toggle(talg_bitmap *bitmap, std::uint64_t index) {
    return change_bit(*bitmap, index,
                      [](word_ref word, auto mask) { word.fetch_xor(mask, std::memory_order_relaxed); });
}

bool talg_bitmap_isset(const talg_bitmap *bitmap, std::uint64_t index) {
    const word_ref word(bitmap->words[index / WORD_BITS]);
    return (word.load(std::memory_order_relaxed) & mask_of(index)) != 0;
}

void talg_bitmap_clear(talg_bitmap *bitmap) {
    std::memset(bitmap->words.get(), 0x00, bitmap->size);
}

void talg_bitmap_set_all(talg_bitmap *bitmap) {
    std::memset(bitmap->words.get(), 0xFF, bitmap->size);
}

std::size_t talg_bitmap_size(const talg_bitmap *bitmap) {
    return bitmap->size;
}

std::uint64_t talg_bitmap_capacity(const talg_bitmap *bitmap) {
    return bitmap->capacity;
}

void talg_bitmap_read(const talg_bitmap *bitmap, void *destination) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(bitmap->words.get());
    std::copy_n(bytes, bitmap->size, static_cast<unsigned char *>(destination));
}

void talg_bitmap_write(talg_bitmap *bitmap, const void *source) {
    auto *bytes = reinterpret_cast<unsigned char *>(bitmap->words.get());
    std::copy_n(static_cast<const unsigned char *>(source), bitmap->size, bytes);
}
