#include "talg/memalign.h"

#include <cerrno>
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>

TEST(Memalign, GivesZeroedPagesAtTheAlignment) {
    const std::size_t cases[][3] = {// size, alignment, alignment found
                                    {1, 0, 4096},
                                    {4096, 1, 4096},
                                    {10, 64, 4096},
                                    {4097, 32768, 32768},
                                    {4096, 1 << 20, 1 << 20}};
    for (const auto &[size, alignment, found] : cases) {
        auto *memory = static_cast<unsigned char *>(talg_memalign_alloc(size, alignment));
        ASSERT_NE(memory, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % found, 0u);
        const std::size_t length = (size + 4095) / 4096 * 4096;
        EXPECT_EQ(memory[0] | memory[length - 1], 0);
        std::memset(memory, 0xA5, length);
        talg_memalign_free(memory, size);
    }
}

TEST(Memalign, RefusesWhatItCannotGive) {
    const std::size_t cases[][3] = {// size, alignment, error
                                    {1, 3, EINVAL},        {1, 4097, EINVAL},
                                    {0, 1, EINVAL},        {1, SIZE_MAX / 2 + 1, ENOMEM},
                                    {SIZE_MAX, 1, ENOMEM}, {SIZE_MAX - 4095, 8192, ENOMEM}};
    for (const auto &[size, alignment, error] : cases) {
        errno = 0;
        EXPECT_EQ(talg_memalign_alloc(size, alignment), nullptr) << size << " at " << alignment;
        EXPECT_EQ(static_cast<std::size_t>(errno), error) << size << " at " << alignment;
    }
}

TEST(MemalignDeathTest, AbortsWhenMemoryCannotBeUnmapped) {
    alignas(2) char unaligned[2];
    EXPECT_DEATH(talg_memalign_free(unaligned + 1, 1), "^talg_memalign_free: failed to munmap \\(22\\)\n");
}
