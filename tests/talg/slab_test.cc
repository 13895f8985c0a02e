#include "talg/memalign.h"
#include "talg/slab.h"

#include <cerrno>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "support/stderr_of.h"

namespace {

using counts = std::vector<std::size_t>;

class Slab : public testing::Test {
protected:
    void create(std::size_t element_size, std::size_t initial_count = 1) {
        talg_slab_destroy(slab);
        ASSERT_EQ(talg_slab_create(&slab, element_size, initial_count, 0), 0);
    }
    counts lengths() {
        static std::size_t seen;
        counts result;
        const talg_slab_lists *lists = talg_slab_get_lists(slab);
        for (const talg_list *list : {&lists->empty, &lists->partial, &lists->full}) {
            seen = 0;
            talg_slab_iterate(list, [](talg_slab_header *) { return ++seen, 0; });
            result.push_back(seen);
        }
        return result;
    }
    void TearDown() override { talg_slab_destroy(slab); }

    talg_slab *slab = nullptr;
};

using SlabDeathTest = Slab;

}  // namespace

TEST_F(Slab, RefusesBadSizes) {
    EXPECT_EQ(talg_slab_create(&slab, 0, 1, 0) + talg_slab_create(nullptr, 1, 1, 0), 2 * EINVAL);
    EXPECT_EQ(talg_slab_create(&slab, std::size_t{1} << 57, 1, 0), EOVERFLOW);
    for (const std::size_t count : {std::size_t{1} << 57, SIZE_MAX / 16, SIZE_MAX}) {
        const auto create_many = [&] { EXPECT_EQ(talg_slab_create(&slab, 16, count, 0), ENOMEM); };
        EXPECT_EQ(stderr_of(create_many), "failed to allocate slab block\n");
    }
}

TEST_F(Slab, KeepsTheBytesOfEveryElement) {
    std::mt19937 random(11);
    const std::size_t cases[][3] = {{1, 1, 64}, {32, 128, 4}, {64, 64, 2}, {4096, 63, 1}};
    for (const auto &[size, initial_count, slabs] : cases) {
        create(size, initial_count);
        EXPECT_EQ(lengths(), (counts{slabs, 0, 0})) << "of elements of " << size;
        std::vector<std::pair<void *, std::vector<unsigned char>>> live;
        for (int i = 0; i < 4000; ++i) {
            if (live.empty() || random() % 10 < (i < 2000 ? 6 : 4)) {
                live.emplace_back(talg_slab_alloc(slab),
                                  std::vector(size, static_cast<unsigned char>(random())));
                std::memcpy(live.back().first, live.back().second.data(), size);
                continue;
            }
            std::swap(live[random() % live.size()], live.back());
            ASSERT_EQ(std::memcmp(live.back().first, live.back().second.data(), size), 0);
            talg_slab_free(slab, live.back().first);
            live.pop_back();
        }
        const std::size_t grown = lengths()[0] + lengths()[1] + lengths()[2];
        for (auto &[element, bytes] : live)
            talg_slab_free(slab, element);
        EXPECT_EQ(lengths(), (counts{grown, 0, 0}));
    }
}

TEST_F(SlabDeathTest, AbortsOnWhatIsNoElementInUse) {
    talg_slab *other = nullptr;
    ASSERT_EQ(talg_slab_create(&other, 32, 1, 0), 0);
    create(32);
    auto *element = static_cast<char *>(talg_slab_alloc(slab));
    for (void *wrong : {talg_slab_alloc(other), static_cast<void *>(element + 1),
                        static_cast<void *>(element - 48), static_cast<void *>(element + 32)})
        EXPECT_DEATH(talg_slab_free(slab, wrong), "^free'ing invalid slab pointer 0x[0-9a-f]+\n");
    talg_slab_free(slab, nullptr);
    talg_slab_destroy(other);
}

TEST(Memalign, GivesZeroedPagesAtTheAlignmentOrWhyNot) {
    const struct {
        std::size_t size, alignment, found;
        int error;
    } cases[] = {
        {1, 0, 4096, 0},   {4097, 32768, 32768, 0},  {4096, 1 << 20, 1 << 20, 0},       {1, 4097, 0, EINVAL},
        {0, 1, 0, EINVAL}, {SIZE_MAX, 1, 0, ENOMEM}, {SIZE_MAX - 4095, 8192, 0, ENOMEM}};
    for (const auto &c : cases) {
        errno = 0;
        auto *memory = static_cast<unsigned char *>(talg_memalign_alloc(c.size, c.alignment));
        EXPECT_EQ(errno, c.error) << c.size << " at " << c.alignment;
        ASSERT_EQ(memory == nullptr, c.error != 0);
        if (memory == nullptr)
            continue;
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % c.found, 0u);
        const std::size_t length = (c.size + 4095) / 4096 * 4096;
        EXPECT_EQ(memory[0] | memory[length - 1], 0);
        std::memset(memory, 0xA5, length);
        talg_memalign_free(memory, c.size);
    }
}

TEST(MemalignDeathTest, AbortsWhenMemoryCannotBeUnmapped) {
    alignas(2) char unaligned[2];
    EXPECT_DEATH(talg_memalign_free(unaligned + 1, 1), "^talg_memalign_free: failed to munmap \\(22\\)\n");
}
