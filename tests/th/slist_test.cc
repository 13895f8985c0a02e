#include "th/slist.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

using words = std::vector<std::uint64_t>;
using testing::Each;
using testing::ElementsAre;

class Slist : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(th_slist_create(&list), 0); }
    void TearDown() override { th_slist_destroy(&list, nullptr); }

    static th_slist_node *append(th_slist *to, std::uint64_t value) {
        th_slist_node *node = nullptr;
        EXPECT_EQ(th_slist_append(to, &value, &node), 0);
        return node;
    }
    static words content(const th_slist *of) {
        words values;
        const th_slist_node *last = nullptr;
        for (auto *node = th_slist_get_first(of); node; last = node, node = th_slist_get_next(node))
            values.push_back(th_slist_get_data_u64(node));
        EXPECT_EQ(th_slist_get_count(of), values.size());
        EXPECT_EQ(th_slist_get_last(of), last);
        return values;
    }

    th_slist *list = nullptr;
    const std::uint64_t one = 1;
};

TEST_F(Slist, InsertsAndRemovesWhereAsked) {
    th_slist_node *node = append(list, 2);
    const words more = {1, 4, 3, 5};
    th_slist_node *four = nullptr;
    ASSERT_EQ(th_slist_insert_before(list, &more[0], th_slist_get_first(list)), 0);
    ASSERT_EQ(th_slist_insert_after(list, &more[1], node, &four), 0);
    ASSERT_EQ(th_slist_insert_before(list, &more[2], four), 0);
    ASSERT_EQ(th_slist_append(list, &more[3]), 0);
    EXPECT_THAT(content(list), ElementsAre(1, 2, 3, 4, 5));
    EXPECT_EQ(th_slist_get_data_u64(th_slist_get_previous(list, four)), 3u);
    EXPECT_EQ(th_slist_get_previous(list, th_slist_get_first(list)), nullptr);

    EXPECT_EQ(th_slist_remove(list, th_slist_get_last(list), nullptr), 0);
    EXPECT_THAT(content(list), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(th_slist_remove(list, th_slist_get_first(list), nullptr), 0);
    EXPECT_EQ(th_slist_remove_data(list, &more[2], th_slist_compare_u64_data, nullptr), 0);
    EXPECT_EQ(th_slist_remove_data(list, &more[2], th_slist_compare_u64_data, nullptr), ENOENT);
    EXPECT_THAT(content(list), ElementsAre(2, 4));
    EXPECT_EQ(th_slist_remove(list, four, nullptr), 0);
    EXPECT_EQ(th_slist_remove(list, node, nullptr), 0);
    append(list, 9);
    EXPECT_THAT(content(list), ElementsAre(9));
}

TEST_F(Slist, FindsOnFromTheCursor) {
    constexpr std::uint64_t high = std::uint64_t{1} << 32;
    for (const std::uint64_t value : words{5, 7, high | 5, 7})
        append(list, value);
    const auto nodes_found = [&](std::uint64_t key, th_slist_compare compare) {
        words found;
        th_slist_node *cursor = nullptr;
        while (th_slist_find(list, &key, compare, &cursor) == 0)
            found.push_back(th_slist_get_data_u64(cursor));
        return found;
    };
    EXPECT_THAT(nodes_found(5, th_slist_compare_u32_data), ElementsAre(5, high | 5));
    EXPECT_THAT(nodes_found(5, th_slist_compare_u64_data), ElementsAre(5));
    EXPECT_THAT(nodes_found(7, th_slist_compare_vp_data), ElementsAre(7, 7));
}

TEST_F(Slist, TakesNodesOfAnotherListByMergingOnly) {
    th_slist *other = nullptr;
    ASSERT_EQ(th_slist_create(&other), 0);
    th_slist_node *foreign = append(other, 1), *created = foreign, *cursor = foreign;
    EXPECT_EQ(th_slist_insert_after(list, &one, foreign, &created), EINVAL);
    EXPECT_EQ(created, nullptr);
    EXPECT_EQ(th_slist_insert_before(list, &one, foreign, nullptr), EINVAL);
    EXPECT_EQ(th_slist_remove(list, foreign, nullptr), EINVAL);
    EXPECT_EQ(th_slist_get_previous(list, foreign), nullptr);
    EXPECT_EQ(th_slist_find(list, &one, th_slist_compare_u64_data, &cursor), EINVAL);
    EXPECT_EQ(th_slist_merge(list, &other), 0);
    EXPECT_EQ(other, nullptr);
    append(list, 2);
    EXPECT_THAT(content(list), ElementsAre(1, 2));
    EXPECT_EQ(th_slist_remove(list, th_slist_get_first(list), nullptr), EINVAL);
    ASSERT_EQ(th_slist_create(&other), 0);
    EXPECT_EQ(th_slist_merge(list, &other), 0);
    EXPECT_EQ(th_slist_merge(list, &list), EINVAL);
    EXPECT_EQ(th_slist_merge(list, &other), EINVAL);
    EXPECT_THAT(content(list), ElementsAre(1, 2));
}

TEST_F(Slist, SortPutsTheEarliestOfEqualElementsLast) {
    for (const std::uint64_t value : words{31, 12, 33, 24, 15, 36})
        append(list, value);
    const auto by_tens = [](const th_slist_node *node, const std::uint64_t *key) {
        return static_cast<int>(*th_slist_get_data(node) / 10) - static_cast<int>(*key / 10);
    };
    EXPECT_EQ(th_slist_sort(list, by_tens), 0);
    EXPECT_THAT(content(list), ElementsAre(12, 15, 24, 33, 36, 31));
}

TEST_F(Slist, WalksAndReleases) {
    for (int i = 0; i < 3; i++)
        append(list, th_slist_word(strdup("text")));
    static int left;
    left = 2;
    const auto remove_two = [](th_slist_node *node, void *walked) {
        return left-- == 0 ? -7 : th_slist_remove(static_cast<th_slist *>(walked), node, th_slist_free_vp);
    };
    EXPECT_EQ(th_slist_foreach(list, remove_two, list), -7);
    EXPECT_EQ(errno, -7);
    EXPECT_EQ(th_slist_get_count(list), 1u);
    errno = 5;
    th_slist_destroy(&list, th_slist_free_vp);
    EXPECT_EQ(errno, 5);
}

}  // namespace
