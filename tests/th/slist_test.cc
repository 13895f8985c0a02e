#include "th/slist.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <vector>

#include "support/null_arguments.h"

namespace {

using words = std::vector<std::uint64_t>;
using testing::Each;

class Slist : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(th_slist_create(&list), 0); }
    void TearDown() override { th_slist_destroy(&list, nullptr); }

    static words content(const th_slist *of) {
        words values;
        const th_slist_node *last = nullptr;
        for (auto *node = th_slist_get_first(of); node; last = node, node = th_slist_get_next(node))
            values.push_back(th_slist_get_data_u64(node));
        EXPECT_EQ(th_slist_get_count(of), values.size());
        EXPECT_EQ(th_slist_get_last(of), last);
        return values;
    }
    th_slist_node *at(std::size_t index) {
        th_slist_node *node = th_slist_get_first(list);
        while (index-- != 0)
            node = th_slist_get_next(node);
        return node;
    }

    th_slist *list = nullptr;
    const std::uint64_t one = 1;
};

TEST_F(Slist, AgreesWithAVector) {
    std::mt19937 random(3);
    words model;
    for (int round = 0; round < 3000; ++round) {
        const std::uint64_t key = random() % 6 | std::uint64_t{random() % 2} << 32;
        const std::size_t index = model.empty() ? 0 : random() % model.size();
        const auto place = model.begin() + static_cast<std::ptrdiff_t>(index);
        const bool equal_words = random() % 2 == 0;
        const auto compare = equal_words
                                 ? random() % 2 == 0 ? th_slist_compare_u64_data : th_slist_compare_vp_data
                                 : th_slist_compare_u32_data;
        const auto matches = [=](std::uint64_t word) {
            return equal_words ? word == key : static_cast<std::uint32_t>(word) == key % (1ULL << 32);
        };
        th_slist_node *node = nullptr;
        switch (random() % (model.size() < 12 ? 7 : 9)) {
        case 0:
            ASSERT_EQ(th_slist_prepend(list, &key, &node), 0);
            model.insert(model.begin(), key);
            break;
        case 1:
            ASSERT_EQ(th_slist_append(list, &key, &node), 0);
            model.push_back(key);
            break;
        case 2:
            ASSERT_EQ(th_slist_insert_after(list, &key, at(index)), model.empty() ? EINVAL : 0);
            if (!model.empty())
                model.insert(place + 1, key);
            break;
        case 3:
            ASSERT_EQ(th_slist_insert_before(list, &key, at(index)), model.empty() ? EINVAL : 0);
            if (!model.empty())
                model.insert(place, key);
            break;
        case 4: {
            auto found = model.begin();
            while (th_slist_find(list, &key, compare, &node) == 0) {
                found = std::find_if(found, model.end(), matches);
                ASSERT_EQ(node, at(static_cast<std::size_t>(found++ - model.begin())));
            }
            ASSERT_EQ(std::find_if(found, model.end(), matches), model.end());
            break;
        }
        case 5:
            ASSERT_EQ(th_slist_get_previous(list, at(index)), index == 0 ? nullptr : at(index - 1));
            break;
        case 6:
            ASSERT_EQ(th_slist_sort(list, th_slist_compare_u64_data), 0);
            std::ranges::sort(model);
            break;
        case 7: {
            const auto found = std::find_if(model.begin(), model.end(), matches);
            ASSERT_EQ(th_slist_remove_data(list, &key, compare, nullptr), found == model.end() ? ENOENT : 0);
            if (found != model.end())
                model.erase(found);
            break;
        }
        default:
            for (; !model.empty() && random() % 16 != 0; model.pop_back())
                ASSERT_EQ(th_slist_remove(list, th_slist_get_last(list), nullptr), 0);
            if (!model.empty()) {
                ASSERT_EQ(th_slist_remove(list, th_slist_get_first(list), nullptr), 0);
                model.erase(model.begin());
            }
        }
        ASSERT_EQ(content(list), model) << round;
    }
}

TEST_F(Slist, TakesNodesOfAnotherListByMergingOnly) {
    th_slist *other = nullptr;
    ASSERT_EQ(th_slist_create(&other), 0);
    th_slist_node *foreign = nullptr;
    ASSERT_EQ(th_slist_append(other, &one, &foreign), 0);
    th_slist_node *created = foreign, *cursor = foreign;
    EXPECT_EQ(th_slist_insert_after(list, &one, foreign, &created), EINVAL);
    EXPECT_EQ(created, nullptr);
    EXPECT_EQ(th_slist_insert_before(list, &one, foreign, nullptr), EINVAL);
    EXPECT_EQ(th_slist_remove(list, foreign, nullptr), EINVAL);
    EXPECT_EQ(th_slist_get_previous(list, foreign), nullptr);
    EXPECT_EQ(th_slist_find(list, &one, th_slist_compare_u64_data, &cursor), EINVAL);
    for (const words &expected : {words{1, 2}, words{1, 2, 2}}) {
        EXPECT_EQ(th_slist_merge(list, &other), 0);
        EXPECT_EQ(other, nullptr);
        const std::uint64_t two = 2;
        EXPECT_EQ(th_slist_append(list, &two), 0);
        EXPECT_EQ(content(list), expected);
        EXPECT_EQ(th_slist_remove(list, foreign, nullptr), EINVAL);
        ASSERT_EQ(th_slist_create(&other), 0);
    }
    th_slist_destroy(&other, nullptr);
    EXPECT_EQ(th_slist_merge(list, &list), EINVAL);
    EXPECT_EQ(th_slist_merge(list, &other), EINVAL);
}

TEST_F(Slist, SortPutsTheEarliestOfEqualElementsLast) {
    for (const std::uint64_t value : words{31, 12, 33, 24, 15, 36})
        ASSERT_EQ(th_slist_append(list, &value), 0);
    const auto by_tens = [](const th_slist_node *node, const std::uint64_t *key) {
        return static_cast<int>(*th_slist_get_data(node) / 10) - static_cast<int>(*key / 10);
    };
    EXPECT_EQ(th_slist_sort(list, by_tens), 0);
    EXPECT_EQ(content(list), (words{12, 15, 24, 33, 36, 31}));
}

TEST_F(Slist, WalksReleasesAndRefusesNull) {
    for (int i = 0; i < 3; i++) {
        const std::uint64_t text = th_slist_word(strdup("text"));
        ASSERT_EQ(th_slist_append(list, &text), 0);
    }
    static int left;
    left = 2;
    const auto remove_two = [](th_slist_node *node, void *walked) {
        return left-- == 0 ? -7 : th_slist_remove(static_cast<th_slist *>(walked), node, th_slist_free_vp);
    };
    EXPECT_EQ(th_slist_foreach(list, remove_two, list), -7);
    EXPECT_EQ(errno, -7);
    EXPECT_EQ(th_slist_get_count(list), 1u);
    th_slist_node *node = th_slist_get_first(list), *cursor = nullptr;
    th_slist *none = nullptr;
    const auto compare = th_slist_compare_u64_data;
    const std::vector<int> answers[] = {
        answers_to_null(th_slist_create, &none),
        answers_to_null(th_slist_append, list, &one, nullptr),
        answers_to_null(th_slist_insert_after, list, &one, node, nullptr),
        answers_to_null(th_slist_insert_before, list, &one, node, nullptr),
        answers_to_null(th_slist_merge, list, &list),
        answers_to_null(th_slist_find, list, &one, compare, &cursor),
        answers_to_null(th_slist_remove, list, node, nullptr),
        answers_to_null(th_slist_remove_data, list, &one, compare, nullptr),
        answers_to_null(th_slist_remove_all, list, nullptr),
        answers_to_null(th_slist_foreach, list, remove_two, nullptr),
        answers_to_null(th_slist_sort, list, compare),
        answers_to_null(th_slist_set_data, node, &one),
    };
    EXPECT_THAT(answers, Each(Each(EINVAL)));
    errno = 5;
    th_slist_destroy(&list, th_slist_free_vp);
    EXPECT_EQ(errno, 5);
}

}  // namespace
