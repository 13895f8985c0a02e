#include "support/test.h"
#include "th/slist.h"

namespace {

using words = std::vector<std::uint64_t>;

words released;
void note(th_slist_node *node) {
    released.push_back(th_slist_get_data_u64(node));
}

constexpr std::uint64_t HIGH = std::uint64_t{1} << 32, NEW = 5, TWENTY = 20, ABSENT = HIGH | 20;
constexpr auto U64 = th_slist_compare_u64_data;
int by_last_digit(const th_slist_node *node, const std::uint64_t *key) {
    return static_cast<int>(*th_slist_get_data(node) % 10) - static_cast<int>(*key % 10);
}
int remove_until_20(th_slist_node *node, void *list) {
    const std::uint64_t value = th_slist_get_data_u64(node);
    return value == 20 ? -7 : th_slist_remove(static_cast<th_slist *>(list), node, note);
}

th_slist_node *append(th_slist *to, std::uint64_t value) {
    th_slist_node *node = nullptr;
    EXPECT_EQ(th_slist_append(to, &value, &node), 0);
    return node;
}

th_slist *make() {
    th_slist *list = nullptr;
    EXPECT_EQ(th_slist_create(&list), 0);
    return list;
}

// The list of 10, 20 and 30, another one, of 40, and their nodes.
struct lists {
    th_slist *own = make(), *other = make(), *none = nullptr;
    th_slist_node *ten = append(own, 10), *twenty = append(own, 20), *thirty = append(own, 30);
    th_slist_node *foreign = append(other, 40), *made = ten, *cursor = nullptr;
    ~lists() { th_slist_destroy(&own, nullptr), th_slist_destroy(&other, nullptr); }
};

words content(const th_slist *list) {
    words values;
    const th_slist_node *last = nullptr;
    for (auto *node = th_slist_get_first(list); node; last = node, node = th_slist_get_next(node))
        values.push_back(th_slist_get_data_u64(node));
    EXPECT_EQ(th_slist_get_count(list), values.size());
    EXPECT_EQ(th_slist_get_last(list), last);
    return values;
}

// What a call answers, and what the list then holds.
struct row {
    const char *name;
    int (*call)(lists &l);
    int error = EINVAL;
    words after = {10, 20, 30};
};
// clang-format off
#define CALL(call, ...) {#call, []([[maybe_unused]] lists &l) { return th_slist_##call; }, __VA_ARGS__}
const row ROWS[] = {
    CALL(append(l.own, &NEW, &l.made), 0, {10, 20, 30, 5}),
    CALL(prepend(l.own, &NEW, &l.made), 0, {5, 10, 20, 30}),
    CALL(insert_after(l.own, &NEW, l.ten), 0, {10, 5, 20, 30}),
    CALL(insert_after(l.own, &NEW, l.thirty, &l.made), 0, {10, 20, 30, 5}),
    CALL(insert_before(l.own, &NEW, l.thirty), 0, {10, 20, 5, 30}),
    CALL(insert_before(l.own, &NEW, l.ten, &l.made), 0, {5, 10, 20, 30}),
    CALL(merge(l.own, &l.other), 0, {10, 20, 30, 40}),
    CALL(merge(l.own, &l.other) | th_slist_remove(l.own, l.foreign, note), EINVAL, {10, 20, 30, 40}),
    CALL(remove(l.other, l.foreign, note) | th_slist_merge(l.own, &l.other), 0),
    CALL(remove_all(l.own, note) | th_slist_merge(l.own, &l.other), 0, {40}),
    CALL(remove(l.own, l.ten, note), 0, {20, 30}),
    CALL(remove(l.own, l.thirty, note), 0, {10, 20}),
    CALL(remove_data(l.own, &TWENTY, U64, note), 0, {10, 30}),
    CALL(remove_data(l.own, &ABSENT, th_slist_compare_u32_data, note), 0, {10, 30}),
    CALL(remove_data(l.own, &ABSENT, U64, note), ENOENT),
    CALL(remove_all(l.own, note), 0, {}),
    CALL(find(l.own, &ABSENT, U64, &l.cursor), ENOENT),
    CALL(foreach (l.own, remove_until_20, l.own), -7, {20, 30}),
    CALL(set_data(l.ten, &ABSENT) | th_slist_sort(l.own, U64), 0, {20, 30, ABSENT}),
    CALL(set_data(l.twenty, &HIGH) | th_slist_sort(l.own, th_slist_compare_u32_data), 0, {HIGH, 10, 30}),
    CALL(sort(l.own, by_last_digit), 0, {20, 30, 10}),
};
// clang-format on

TEST(Slist, EveryCallLeavesAWholeList) {
    for (const row &r : ROWS) {
        SCOPED_TRACE(r.name);
        lists l;
        released.clear();
        errno = ENOTTY;
        EXPECT_EQ(r.call(l), r.error);
        EXPECT_EQ(errno, r.error ? r.error : ENOTTY);
        EXPECT_TRUE(l.made == l.ten || th_slist_get_data_u64(l.made) == NEW);
        words all = r.after;
        EXPECT_EQ(content(l.own), all);
        all.push_back(99);
        append(l.own, 99);
        EXPECT_EQ(content(l.own), all);
        th_slist_destroy(&l.own, note);
        th_slist_destroy(&l.other, nullptr);
        EXPECT_TRUE(!l.own && !l.other);
        EXPECT_GE(released.size(), all.size());
        EXPECT_TRUE(std::equal(all.rbegin(), all.rend(), released.rbegin()));
    }
}

TEST(Slist, RefusesWhatIsMissingOrForeign) {
    lists l;
    const std::set<int> refused[] = {
        with_each_null(th_slist_create, &l.none),
        with_each_null(th_slist_append, l.own, &NEW, nullptr),
        with_each_null(th_slist_prepend, l.own, &NEW, nullptr),
        with_each_null(th_slist_insert_after, l.own, &NEW, l.ten, nullptr),
        with_each_null(th_slist_insert_before, l.own, &NEW, l.ten, nullptr),
        with_each_null(th_slist_merge, l.own, &l.other),
        with_each_null(th_slist_remove, l.own, l.ten, nullptr),
        with_each_null(th_slist_remove_data, l.own, &TWENTY, U64, nullptr),
        with_each_null(th_slist_remove_all, l.own, nullptr),
        with_each_null(th_slist_find, l.own, &TWENTY, U64, &l.cursor),
        with_each_null(th_slist_foreach, l.own, remove_until_20, nullptr),
        with_each_null(th_slist_sort, l.own, U64),
        with_each_null(th_slist_set_data, l.ten, &NEW),
        {th_slist_append(nullptr, &NEW, &l.made), th_slist_insert_after(l.own, &NEW, l.foreign),
         th_slist_insert_before(l.own, &NEW, l.foreign), th_slist_remove(l.own, l.foreign, note),
         th_slist_find(l.own, &TWENTY, U64, &l.foreign), th_slist_merge(l.own, &l.own),
         th_slist_merge(l.own, &l.none)},
    };
    EXPECT_THAT(refused, testing::Each(std::set{EINVAL}));
    EXPECT_EQ(l.made, nullptr);
    EXPECT_EQ(content(l.own), (words{10, 20, 30}));
}

TEST(Slist, FindsOnFromTheCursorAndAnswersForNull) {
    lists l;
    append(l.own, ABSENT);
    append(l.own, 20);
    const std::map<th_slist_compare, words> found_by = {{th_slist_compare_u32_data, {20, ABSENT, 20}},
                                                        {U64, {20, 20}},
                                                        {th_slist_compare_vp_data, {20, 20}},
                                                        {by_last_digit, {10, 20, 30, 20}}};
    for (const auto &[compare, expected] : found_by) {
        words found;
        for (l.cursor = nullptr; th_slist_find(l.own, &TWENTY, compare, &l.cursor) == 0;)
            found.push_back(th_slist_get_data_u64(l.cursor));
        EXPECT_EQ(found, expected);
        EXPECT_EQ(l.cursor, th_slist_get_last(l.own)) << "which stays";
        EXPECT_TRUE(compare(l.twenty, &TWENTY) == 0 && compare(l.twenty, &NEW) != 0);
    }
    EXPECT_EQ(th_slist_get_previous(l.own, l.thirty), l.twenty);
    EXPECT_TRUE(!th_slist_get_previous(l.own, l.ten) && !th_slist_get_previous(l.own, l.foreign) &&
                !th_slist_get_previous(nullptr, l.thirty) && !th_slist_get_previous(l.own, nullptr));
    EXPECT_TRUE(!th_slist_get_first(nullptr) && !th_slist_get_last(nullptr) && !th_slist_get_next(nullptr));
    EXPECT_TRUE(!th_slist_get_data(nullptr) && !th_slist_get_data_vp(nullptr) &&
                !th_slist_get_data_u32(nullptr) && !th_slist_get_data_u64(nullptr) &&
                !th_slist_get_count(nullptr));
    EXPECT_EQ(th_slist_get_data_u32(th_slist_get_next(l.thirty)), 20U);
    EXPECT_EQ(th_slist_get_data_vp(l.ten), reinterpret_cast<void *>(10));
    errno = EIO;
    th_slist_destroy(&l.own, [](th_slist_node *) { errno = 0; });
    th_slist_destroy(&l.own, nullptr);
    th_slist_destroy(nullptr, nullptr);
    EXPECT_EQ(errno, EIO);
    append(l.own = make(), th_slist_word(std::malloc(1)));
    th_slist_destroy(&l.own, th_slist_free_vp);  // or a sanitizer finds a leak
}

}  // namespace
