#include "th/slist.h"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

#include "th/error.h"

struct th_slist_node {
    std::uint64_t data = 0;
    th_slist_node *next = nullptr;
    const th_slist *owner = nullptr;
};

struct th_slist {
    std::uint64_t count = 0;
    th_slist_node *first = nullptr;
    th_slist_node *last = nullptr;
};

namespace {

template <class T>
int compare_values(T a, T b) {
    return a < b ? -1 : a > b ? 1 : 0;
}

int compare_u32(const th_slist_node &node, std::uint64_t key) {
    return compare_values(static_cast<std::uint32_t>(node.data), static_cast<std::uint32_t>(key));
}

int compare_words(const th_slist_node &node, std::uint64_t key) {
    return compare_values(node.data, key);
}

// Runs `algorithm` with a comparison (node, key word): a direct one where the
// library knows what `compare` does, else a call of it.
template <class Algorithm>
auto with_comparison(th_slist_compare compare, Algorithm algorithm) {
    if (compare == th_slist_compare_u32_data)
        return algorithm([](const th_slist_node &node, std::uint64_t key) { return compare_u32(node, key); });
    if (compare == th_slist_compare_u64_data || compare == th_slist_compare_vp_data)
        return algorithm(
            [](const th_slist_node &node, std::uint64_t key) { return compare_words(node, key); });
    return algorithm(
        [compare](const th_slist_node &node, const std::uint64_t &key) { return compare(&node, &key); });
}

// A node with its predecessor, null for the head; both null when not found.
struct position {
    th_slist_node *before = nullptr;
    th_slist_node *node = nullptr;
};

template <class Predicate>
position find_position(const th_slist &list, Predicate matches) {
    position at{nullptr, list.first};
    while (at.node && !matches(*at.node))
        at = {at.node, at.node->next};
    return at;
}

position position_of(const th_slist &list, const th_slist_node *node) {
    return find_position(list, [node](const th_slist_node &candidate) { return &candidate == node; });
}

// Links a new node between `before` (null: at the head) and its successor.
int insert_behind(th_slist &list, th_slist_node *before, std::uint64_t data, th_slist_node **created) {
    auto *node = new (std::nothrow) th_slist_node;
    if (!node)
        return th_result(ENOMEM);
    th_slist_node *&link = before ? before->next : list.first;
    *node = {data, link, &list};
    link = node;
    if (list.last == before)
        list.last = node;
    list.count++;
    if (created)
        *created = node;
    return 0;
}

// The shared entry of the adding functions: `created` is null unless all goes
// well, and the arguments are there.
bool may_add(const th_slist *list, const std::uint64_t *data, th_slist_node **created) {
    if (created)
        *created = nullptr;
    return list && data;
}

void release_node(th_slist_node *node, th_slist_release release) {
    if (release == th_slist_free_vp)
        std::free(th_slist_get_data_vp(node));
    else if (release)
        release(node);
    delete node;
}

int remove_at(th_slist &list, position at, th_slist_release release) {
    if (!at.node)
        return th_result(ENOENT);
    (at.before ? at.before->next : list.first) = at.node->next;
    if (list.last == at.node)
        list.last = at.before;
    list.count--;
    release_node(at.node, release);
    return 0;
}

// Moves the greatest of the first `length` data words to the end of that stretch;
// of equal ones the first.
template <class Comparison>
void move_greatest_back(th_slist_node *head, std::uint64_t length, Comparison compare) {
    th_slist_node *greatest = head;
    th_slist_node *tail = head;
    for (std::uint64_t i = 1; i < length; i++) {
        tail = tail->next;
        if (compare(*tail, greatest->data) > 0)
            greatest = tail;
    }
    std::swap(greatest->data, tail->data);
}

}  // namespace

int th_slist_create(th_slist **list) {
    if (!list)
        return th_result(EINVAL);
    *list = new (std::nothrow) th_slist;
    return *list ? 0 : th_result(ENOMEM);
}

int th_slist_append(th_slist *list, const std::uint64_t *data, th_slist_node **created) {
    return may_add(list, data, created) ? insert_behind(*list, list->last, *data, created)
                                        : th_result(EINVAL);
}

int th_slist_prepend(th_slist *list, const std::uint64_t *data, th_slist_node **created) {
    return may_add(list, data, created) ? insert_behind(*list, nullptr, *data, created) : th_result(EINVAL);
}

int th_slist_insert_after(th_slist *list, const std::uint64_t *data, th_slist_node *node,
                          th_slist_node **created) {
    if (!may_add(list, data, created) || !node || node->owner != list)
        return th_result(EINVAL);
    return insert_behind(*list, node, *data, created);
}

int th_slist_insert_before(th_slist *list, const std::uint64_t *data, th_slist_node *node,
                           th_slist_node **created) {
    if (!may_add(list, data, created) || !node || node->owner != list)
        return th_result(EINVAL);
    const position at = position_of(*list, node);
    return at.node ? insert_behind(*list, at.before, *data, created) : th_result(EINVAL);
}

int th_slist_merge(th_slist *list, th_slist **other) {
    if (!list || !other || !*other || *other == list)
        return th_result(EINVAL);
    th_slist *moved = std::exchange(*other, nullptr);
    if (moved->first) {
        (list->last ? list->last->next : list->first) = moved->first;
        list->last = moved->last;
        list->count += moved->count;
    }
    delete moved;
    return 0;
}

int th_slist_find(const th_slist *list, const std::uint64_t *key, th_slist_compare compare,
                  th_slist_node **cursor) {
    if (!list || !key || !compare || !cursor || (*cursor && (*cursor)->owner != list))
        return th_result(EINVAL);
    th_slist_node *start = *cursor ? (*cursor)->next : list->first;
    th_slist_node *found = with_comparison(compare, [=](auto compared) {
        th_slist_node *node = start;
        while (node && compared(*node, *key) != 0)
            node = node->next;
        return node;
    });
    if (!found)
        return th_result(ENOENT);
    *cursor = found;
    return 0;
}

int th_slist_remove(th_slist *list, th_slist_node *node, th_slist_release release) {
    if (!list || !node || node->owner != list)
        return th_result(EINVAL);
    return remove_at(*list, position_of(*list, node), release);
}

int th_slist_remove_data(th_slist *list, const std::uint64_t *key, th_slist_compare compare,
                         th_slist_release release) {
    if (!list || !key || !compare)
        return th_result(EINVAL);
    const position at = with_comparison(compare, [=](auto compared) {
        return find_position(*list, [&](const th_slist_node &node) { return compared(node, *key) == 0; });
    });
    return remove_at(*list, at, release);
}

int th_slist_remove_all(th_slist *list, th_slist_release release) {
    if (!list)
        return th_result(EINVAL);
    th_slist_node *node = list->first;
    *list = {};
    while (node)
        release_node(std::exchange(node, node->next), release);
    return 0;
}

void th_slist_destroy(th_slist **list, th_slist_release release) {
    if (!list || !*list)
        return;
    const int saved = errno;
    th_slist_remove_all(*list, release);
    delete std::exchange(*list, nullptr);
    errno = saved;
}

int th_slist_foreach(th_slist *list, th_slist_callback callback, void *context) {
    if (!list || !callback)
        return th_result(EINVAL);
    th_slist_node *node = list->first;
    while (node) {
        const int result = callback(std::exchange(node, node->next), context);
        if (result != 0)
            return th_result(result);
    }
    return 0;
}

int th_slist_sort(th_slist *list, th_slist_compare compare) {
    if (!list || !compare)
        return th_result(EINVAL);
    with_comparison(compare, [=](auto compared) {
        for (std::uint64_t length = list->count; length > 1; length--)
            move_greatest_back(list->first, length, compared);
    });
    return 0;
}

std::uint64_t th_slist_get_count(const th_slist *list) {
    return list ? list->count : 0;
}

th_slist_node *th_slist_get_first(const th_slist *list) {
    return list ? list->first : nullptr;
}

th_slist_node *th_slist_get_last(const th_slist *list) {
    return list ? list->last : nullptr;
}

th_slist_node *th_slist_get_next(const th_slist_node *node) {
    return node ? node->next : nullptr;
}

th_slist_node *th_slist_get_previous(const th_slist *list, const th_slist_node *node) {
    if (!list || !node || node->owner != list)
        return nullptr;
    const position at = position_of(*list, node);
    return at.node ? at.before : nullptr;
}

const std::uint64_t *th_slist_get_data(const th_slist_node *node) {
    return node ? &node->data : nullptr;
}

void *th_slist_get_data_vp(const th_slist_node *node) {
    return node ? reinterpret_cast<void *>(static_cast<std::uintptr_t>(node->data)) : nullptr;
}

std::uint32_t th_slist_get_data_u32(const th_slist_node *node) {
    return node ? static_cast<std::uint32_t>(node->data) : 0;
}

std::uint64_t th_slist_get_data_u64(const th_slist_node *node) {
    return node ? node->data : 0;
}

int th_slist_set_data(th_slist_node *node, const std::uint64_t *data) {
    if (!node || !data)
        return th_result(EINVAL);
    node->data = *data;
    return 0;
}

int th_slist_compare_u32_data(const th_slist_node *node, const std::uint64_t *key) {
    return compare_u32(*node, *key);
}

int th_slist_compare_u64_data(const th_slist_node *node, const std::uint64_t *key) {
    return compare_words(*node, *key);
}

int th_slist_compare_vp_data(const th_slist_node *node, const std::uint64_t *key) {
    return compare_words(*node, *key);
}

void th_slist_free_vp(th_slist_node *node) {
    std::free(th_slist_get_data_vp(node));
}
