#include "talg/bitmap.h"

#include <cerrno>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

namespace {

using byte_list = std::vector<unsigned char>;
using bitmap_ptr = std::unique_ptr<talg_bitmap, decltype([](auto *b) { talg_bitmap_destroy(b); })>;

bitmap_ptr make(std::uint64_t bits) {
    talg_bitmap *bitmap = nullptr;
    EXPECT_EQ(talg_bitmap_create(&bitmap, bits), 0);
    return bitmap_ptr(bitmap);
}

byte_list bytes(const bitmap_ptr &bitmap) {
    byte_list all(talg_bitmap_size(bitmap.get()));
    talg_bitmap_read(bitmap.get(), all.data());
    return all;
}

}  // namespace

TEST(Bitmap, WordArrayIsRoundedUpToWholeWords) {
    const std::size_t sizes[][2] = {{0, 0}, {64, 8}, {65, 16}};
    for (const auto &[bits, size] : sizes)
        EXPECT_EQ(bytes(make(bits)), byte_list(size)) << bits;
    talg_bitmap *none = nullptr;
    EXPECT_EQ(talg_bitmap_create(&none, ~0ULL), ENOMEM);
    EXPECT_EQ(talg_bitmap_create(nullptr, 1), EINVAL);
}

TEST(Bitmap, CapacityIsOutOfRangeButReadable) {
    const bitmap_ptr bitmap = make(65);
    for (const auto change : {talg_bitmap_set, talg_bitmap_unset, talg_bitmap_toggle})
        EXPECT_EQ(change(bitmap.get(), talg_bitmap_capacity(bitmap.get())), ERANGE);
    EXPECT_FALSE(talg_bitmap_isset(bitmap.get(), 65));
    talg_bitmap_set_all(bitmap.get());
    EXPECT_TRUE(talg_bitmap_isset(bitmap.get(), 65));
    talg_bitmap_write(bitmap.get(), byte_list(16, 0xA5).data());
    EXPECT_EQ(bytes(bitmap), byte_list(16, 0xA5));
    talg_bitmap_clear(bitmap.get());
    EXPECT_EQ(bytes(bitmap), byte_list(16));
}
