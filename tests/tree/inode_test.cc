#include "tree/inode.h"

#include <errno.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "tree/tree_fixture.h"

namespace {

constexpr int MANY = 100000;

TEST_F(tree_test, SpellingsOfAPathPlaceTheSameNode) {
    for (const char *path : {"usr/bin/ls", "/usr/bin/ls", "usr//bin/ls/"}) {
        SCOPED_TRACE(path);
        place(MKTFS_INODE_FILE, path);
        EXPECT_EQ(listing(), " /usr /usr/bin /usr/bin/ls ");
        EXPECT_EQ(find("/usr/bin")->mode, 0755u);
        EXPECT_EQ(find("usr")->nchildren, 1u);
        EXPECT_EQ(find("//usr/bin//ls/"), find("usr/bin/ls"));
        for (const char *none : {"", "usr/bin/l", "usr/bin/lsx", "bin/ls", "usr/bin/ls/x"})
            EXPECT_EQ(find(none), nullptr) << none;
        EXPECT_EQ(logged(), "2 intermediate inode with name 'ls' is not a dir\n");
        mktfs_filesystem_free(&fs);
    }
    EXPECT_EQ(place(MKTFS_INODE_FILE, ""), nullptr);
    mktfs_inode *unplaced = place(MKTFS_INODE_DIR, "//");
    EXPECT_EQ(listing(), " ");
    mktfs_inode_release(unplaced);
}

TEST_F(tree_test, ASecondDirectoryOverridesTheAttributesOfTheFirst) {
    mktfs_inode *first = place(MKTFS_INODE_DIR, "/a/usr");
    mktfs_inode *second = mktfs_inode_make(&fs, MKTFS_INODE_DIR);
    std::tie(second->uid, second->gid, second->mode, second->mtime) = std::tuple(1u, 2u, 0700u, 3);
    EXPECT_EQ(mktfs_inode_add(&fs, second, "a/usr"), 0);
    EXPECT_EQ(listing(), " /a /a/usr ");
    EXPECT_EQ(std::tuple(first->uid, first->gid, first->mode, first->mtime), std::tuple(1u, 2u, 0700u, 0));
    EXPECT_EQ(logged(), "2 build:7:3:directory 'usr' attributes overridden\n");
}

TEST_F(tree_test, ObstaclesAreParseErrorsThatMayReturn) {
    place(MKTFS_INODE_FILE, "/usr/file");
    place(MKTFS_INODE_FILE, "/usr/file/below/it");
    place(MKTFS_INODE_DIR, "usr//file");
    EXPECT_EQ(logged(), "4 build:7:3:intermediate filesystem object at path '/usr/file' is not a directory\n"
                        "4 build:7:3:duplicate filesystem object at path 'usr//file'\n");
    EXPECT_EQ(listing(), " /usr /usr/file /usr/file/below /usr/file/below/it /usr/file ");
    EXPECT_EQ(find("usr/file")->type, MKTFS_INODE_FILE) << "the first of a name is found";
    backend.flags = 0;
    mktfs_inode_release(mktfs_inode_make(&fs, MKTFS_INODE_HLINK));
    EXPECT_EQ(logged(), "4 build:7:3:backend filesystem does not support hardlinks\n");
}

TEST_F(tree_test, ChildrenAreInByteOrderOrNewestFirst) {
    for (const char *path : {"a", "B", "\xE4", "ab", "", "C"})
        place(MKTFS_INODE_FILE, path);
    EXPECT_EQ(listing(), " /B /C /a /ab /\xE4 ");
    mktfs_filesystem_free(&fs);
    backend.flags = 0;
    for (const char *path : {"a", "B", "c", "a"})
        place(MKTFS_INODE_FILE, path);
    EXPECT_EQ(listing(), " /a /c /B /a ");
    EXPECT_EQ(find("a"), fs.root.children.first);
    mktfs_inode *newest = fs.root.children.first;
    mktfs_inode_unlink(newest);
    mktfs_inode_release(newest);
    EXPECT_EQ(find("a")->next, nullptr);
    EXPECT_EQ(fs.root.nchildren, 9u) << "never decreased";
}

int free_x(mktfs_filesystem *, mktfs_inode *inode, void *) {
    if (inode->name == "stop")
        return 7;
    if (inode->name == "x") {
        mktfs_inode_unlink(inode);
        mktfs_inode_free(inode);
        mktfs_inode_release(inode);
    }
    return 0;
}

TEST_F(tree_test, WalksKeepTheirOrderAndLetTheCallbackFreeItsNode) {
    for (auto *walk : {mktfs_filesystem_walk_tree, mktfs_filesystem_walk_layer}) {
        for (const char *path : {"a/x/z", "a/x/a", "a/y", "b/w", "b/x", "x"})
            place(MKTFS_INODE_FILE, path);
        EXPECT_EQ(listing(walk), walk == mktfs_filesystem_walk_tree
                                     ? " /a /a/x /a/x/a /a/x/z /a/y /b /b/w /b/x /x "
                                     : " /a /b /x /a/x /a/y /a/x/a /a/x/z /b/w /b/x ");
        EXPECT_EQ(walk(free_x, nullptr), 0);
        EXPECT_EQ(listing(), " /a /a/y /b /b/w ");
        place(MKTFS_INODE_FILE, "a/stop");
        EXPECT_EQ(walk(free_x, nullptr), 7);
        mktfs_filesystem_free(&fs);
    }
}

TEST_F(tree_test, NamesFromAnImageStayInTheirDirectory) {
    fs.root.path = "out";
    const std::string names[] = {"", ".", "..", "a/b", "/", std::string("a\0b", 3)};
    for (const std::string &name : names)
        EXPECT_EQ(mktfs_inode_create(&fs.root, 2, name.data(), name.size(), MKTFS_INODE_FILE), EINVAL);
    EXPECT_EQ(fs.root.children.first, nullptr);
    EXPECT_EQ(mktfs_inode_create(&fs.root, 2, "...xx", 3, MKTFS_INODE_LINK), 0);
    const mktfs_inode *inode = fs.root.children.first;
    EXPECT_EQ(std::tuple(inode->path, inode->ino, inode->mode, inode->nlink),
              std::tuple("out/...", 2u, 0u, 0));
}

TEST_F(tree_test, NullIsNothing) {
    char text[8] = "same";
    EXPECT_EQ(mktfs_inode_create(nullptr, 2, "a", 1, MKTFS_INODE_FILE), EINVAL);
    EXPECT_EQ(mktfs_inode_create(&fs.root, 2, nullptr, 1, MKTFS_INODE_FILE), EINVAL);
    EXPECT_EQ(mktfs_inode_add(nullptr, &fs.root, "a") + mktfs_inode_add(&fs, nullptr, "a"), 2 * EINVAL);
    EXPECT_EQ(mktfs_inode_add(&fs, &fs.root, nullptr), EINVAL);
    mktfs_inode_full_path(nullptr, text, sizeof text);
    mktfs_inode_full_path(&fs.root, nullptr, sizeof text);
    mktfs_inode_full_path(&fs.root, text, 0);
    EXPECT_STREQ(text, "same");
    EXPECT_EQ(mktfs_filesystem_find_inode(nullptr, "a"), nullptr);
    EXPECT_EQ(mktfs_filesystem_find_inode(&fs, nullptr), nullptr);
    mktfs_inode_unlink(nullptr);
    mktfs_inode_unlink(&fs.root);
    mktfs_inode_free(nullptr);
    mktfs_inode_release(nullptr);
    mktfs_inode_init(nullptr);
    mktfs_filesystem_free(nullptr);
}

TEST_F(tree_test, ManyChildrenStayOrderedAndQuick) {
    std::vector<int> order(MANY);
    std::iota(order.begin(), order.end(), 0);
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    std::set<std::string> names;
    for (const int number : order)
        names.insert(place(MKTFS_INODE_FILE, std::to_string(number))->name);
    for (int number = 0; number < MANY; number += 2) {
        mktfs_inode *inode = find(std::to_string(number));
        ASSERT_NE(inode, nullptr);
        names.erase(inode->name);
        mktfs_inode_unlink(inode);
        mktfs_inode_release(inode);
    }
    const mktfs_inode *inode = fs.root.children.first;
    for (const std::string &name : names) {
        ASSERT_EQ(inode->name, name);
        ASSERT_EQ(find(name), inode);
        inode = inode->next;
    }
    EXPECT_EQ(inode, nullptr);
}

TEST_F(tree_test, ADeepPathNeedsNoDeepStack) {
    std::string path;
    for (int i = 0; i < MANY; ++i)
        path += "/d";
    const mktfs_inode *last = place(MKTFS_INODE_FILE, path);
    EXPECT_EQ(find(path), last);
    char text[4096] = "";
    mktfs_inode_full_path(last, text, sizeof text);
    EXPECT_EQ(text, path.substr(0, 4095));
    for (auto *walk : {mktfs_filesystem_walk_tree, mktfs_filesystem_walk_layer}) {
        int count = 0;
        walk([](mktfs_filesystem *, mktfs_inode *, void *arg) { return ++*static_cast<int *>(arg), 0; },
             &count);
        EXPECT_EQ(count, MANY + 1);
    }
}

}  // namespace
