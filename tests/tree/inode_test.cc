#include "tree/inode.h"

#include <errno.h>

#include <set>
#include <tuple>

#include "tree/resolve.h"
#include "tree/tree_fixture.h"

using namespace std::literals;

namespace {

constexpr int MANY = 100000;

TEST_F(tree_test, ObstaclesAreParseErrorsThatMayReturn) {
    for (const char *path : {"/usr/file", "/usr/file/below", "usr//file"})
        place(MKTFS_INODE_FILE, path);
    EXPECT_EQ(listing(), " /usr /usr/file /usr/file/below /usr/file ");
    for (const char *none : {"", "usr/fil", "usr/filex", "file", "usr/file/x"})
        EXPECT_EQ(find(none), nullptr) << none;
    EXPECT_EQ(logged(), "4 build:7:3:intermediate filesystem object at path '/usr/file' is not a directory\n"
                        "4 build:7:3:duplicate filesystem object at path 'usr//file'\n"
                        "2 intermediate inode with name 'file' is not a dir\n");
}

// The types of the program sort.
TEST_F(tree_test, ChildrenOfATypeThatDoesNotSortAreNewestFirst) {
    backend.flags = 0;
    for (const char *path : {"a", "B", "c", "a"})
        place(MKTFS_INODE_FILE, path);
    EXPECT_EQ(listing(), " /a /c /B /a ");
    EXPECT_EQ(find("a"), fs.root.children.first);
    mktfs_inode_release(mktfs_inode_make(&fs, MKTFS_INODE_HLINK));
    EXPECT_EQ(log.take().back().text, "build:7:3:backend filesystem does not support hardlinks\n");
}

int free_x(mktfs_filesystem *, mktfs_inode *inode, void *) {
    if (inode->name != "x")
        return inode->name == "stop" ? 7 : 0;
    mktfs_inode_unlink(inode);
    mktfs_inode_free(inode);
    mktfs_inode_release(inode);
    return 0;
}

TEST_F(tree_test, WalksKeepTheirOrderAndLetTheCallbackFreeItsNode) {
    const std::pair<int (*)(mktfs_inode_function, void *), const char *> rows[] = {
        {mktfs_filesystem_walk_tree, " /a /a/x /a/x/a /a/x/z /a/y /b /b/w /b/x /x "},
        {mktfs_filesystem_walk_layer, " /a /b /x /a/x /a/y /a/x/a /a/x/z /b/w /b/x "}};
    for (const auto &[walk, order] : rows) {
        for (const char *path : {"a/x/z", "a/x/a", "a/y", "b/w", "b/x", "x"})
            place(MKTFS_INODE_FILE, path);
        EXPECT_EQ(listing(walk), order);
        EXPECT_EQ(walk(free_x, nullptr), 0);
        EXPECT_EQ(listing(), " /a /a/y /b /b/w ");
        place(MKTFS_INODE_FILE, "a/stop");
        EXPECT_EQ(walk(free_x, nullptr), 7);
        mktfs_filesystem_free(&fs);
    }
}

TEST_F(tree_test, NamesFromAnImageStayInTheirDirectory) {
    fs.root.path = "out";
    for (const std::string &name : {std::string(), "."s, ".."s, "a/b"s, "/"s, "a\0b"s})
        EXPECT_EQ(mktfs_inode_create(&fs.root, 2, name.data(), name.size(), MKTFS_INODE_FILE), EINVAL);
    EXPECT_EQ(fs.root.children.first, nullptr);
    EXPECT_EQ(mktfs_inode_create(&fs.root, 2, "...xx", 3, MKTFS_INODE_LINK), 0);
    const mktfs_inode *inode = fs.root.children.first;
    EXPECT_EQ(std::tuple(inode->path, inode->ino, inode->mode, inode->nlink),
              std::tuple("out/...", 2u, 0u, 0));
}

TEST_F(tree_test, ManyChildrenStayOrderedAndQuick) {
    std::set<std::string> names;
    for (std::uint64_t i = 0; i < MANY; ++i)  // each number once, in no order
        names.insert(place(MKTFS_INODE_FILE, std::to_string(i * 70001 % MANY))->name);
    for (int number = 0; number < MANY; number += 2) {
        mktfs_inode *inode = find(std::to_string(number));
        names.erase(inode->name);
        mktfs_inode_unlink(inode);
        mktfs_inode_release(inode);
    }
    const mktfs_inode *inode = fs.root.children.first;
    for (auto name = names.begin(); name != names.end(); ++name, inode = inode->next)
        ASSERT_TRUE(inode && inode->name == *name && find(*name) == inode) << *name;
    EXPECT_EQ(inode, nullptr);
}

TEST_F(tree_test, ResolvingCountsLinksIn16BitsAndRefusesUnknownTypes) {
    place(MKTFS_INODE_FILE, "dir/file");
    place(MKTFS_INODE_LINK, "link");
    place(MKTFS_INODE_HLINK, "links/other")->path = "link";
    for (int i = 0; i < MANY; ++i)
        place(MKTFS_INODE_HLINK, "dir/links/" + std::to_string(i))->path = "dir/file";
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), 0);
    EXPECT_EQ(std::tuple(fs.root.nlink, find("dir")->nlink, find("dir/file")->nlink, find("link")->nlink),
              std::tuple(4, 3, (MANY + 1) % 65536, 2));
    place(9, "unknown");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), EOPNOTSUPP);
}

}  // namespace
