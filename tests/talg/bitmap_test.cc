#include "talg/bitmap.h"

#include <cerrno>
#include <vector>

#include <gtest/gtest.h>

using byte_list = std::vector<unsigned char>;

TEST(Bitmap, WholeWordsAreReadableAndTheCapacityIsOutOfRange) {
    const std::size_t sizes[][2] = {{0, 0}, {64, 8}, {65, 16}};
    for (const auto &[bits, size] : sizes) {
        talg_bitmap *bitmap = nullptr;
        ASSERT_EQ(talg_bitmap_create(&bitmap, bits), 0);
        const auto bytes = [&] {
            byte_list all(talg_bitmap_size(bitmap));
            talg_bitmap_read(bitmap, all.data());
            return all;
        };
        EXPECT_EQ(bytes(), byte_list(size)) << bits;
        for (const auto change : {talg_bitmap_set, talg_bitmap_unset, talg_bitmap_toggle})
            EXPECT_EQ(change(bitmap, talg_bitmap_capacity(bitmap)), ERANGE);
        talg_bitmap_set_all(bitmap);
        EXPECT_EQ(bytes(), byte_list(size, 0xFF));
        talg_bitmap_write(bitmap, byte_list(size, 0xA5).data());
        EXPECT_EQ(bytes(), byte_list(size, 0xA5));
        talg_bitmap_clear(bitmap);
        EXPECT_EQ(bytes(), byte_list(size));
        talg_bitmap_destroy(bitmap);
    }
    talg_bitmap *none = nullptr;
    EXPECT_EQ(talg_bitmap_create(&none, ~0ULL), ENOMEM);
    EXPECT_EQ(talg_bitmap_create(nullptr, 1), EINVAL);
}
