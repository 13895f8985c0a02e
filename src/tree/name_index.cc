#include "tree/name_index.h"

namespace {

// Weights decide the shape only.  A mixed counter keeps the tree shallow for
// names in any order, and every run alike.
std::uint64_t next_weight() {
    static std::uint64_t state = 0;
    std::uint64_t bits = state += 0x9E3779B97F4A7C15;
    bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EB;
    return bits ^ (bits >> 31);
}

// The pointer that leads to the node.
mktfs_inode *&slot_of(mktfs_inode_list &list, const mktfs_inode &node) {
    mktfs_inode *up = node.index.up;
    if (!up)
        return list.top;
    return up->index.left == &node ? up->index.left : up->index.right;
}

// Swaps the node with the one above it; the order by name stays.
void rotate_up(mktfs_inode_list &list, mktfs_inode &node) {
    mktfs_inode &up = *node.index.up;
    const bool is_left = up.index.left == &node;
    mktfs_inode *&moved = is_left ? node.index.right : node.index.left;
    slot_of(list, up) = &node;
    (is_left ? up.index.left : up.index.right) = moved;
    if (moved)
        moved->index.up = &up;
    moved = &up;
    node.index.up = up.index.up;
    up.index.up = &node;
}

mktfs_inode *heavier_below(const mktfs_inode &node) {
    mktfs_inode *left = node.index.left, *right = node.index.right;
    if (!left || !right)
        return left ? left : right;
    return left->index.weight > right->index.weight ? left : right;
}

}  // namespace

mktfs_inode *mktfs_name_index_insert(mktfs_inode_list &list, mktfs_inode &node, bool before_equals) {
    mktfs_inode *previous = nullptr, *up = nullptr;
    mktfs_inode **slot = &list.top;
    while (*slot) {
        up = *slot;
        const int order = node.name.compare(up->name);
        const bool goes_left = order < 0 || (order == 0 && before_equals);
        if (!goes_left)
            previous = up;
        slot = goes_left ? &up->index.left : &up->index.right;
    }
    *slot = &node;
    node.index = {.up = up, .weight = next_weight()};
    while (node.index.up && node.index.up->index.weight < node.index.weight)
        rotate_up(list, node);
    return previous;
}

void mktfs_name_index_remove(mktfs_inode_list &list, mktfs_inode &node) {
    while (mktfs_inode *below = heavier_below(node))
        rotate_up(list, *below);
    slot_of(list, node) = nullptr;
    node.index = {};
}

mktfs_inode *mktfs_name_index_find(const mktfs_inode_list &list, std::string_view name) {
    mktfs_inode *first = nullptr;
    for (mktfs_inode *node = list.top; node;) {
        const int order = name.compare(node->name);
        if (order == 0)
            first = node;
        node = order <= 0 ? node->index.left : node->index.right;
    }
    return first;
}
