#include "tree/resolve.h"

#include <errno.h>

#include <tuple>

#include "tree/tree_fixture.h"

namespace {

class resolve : public tree_test {
protected:
    ~resolve() override { verbose = 0; }
    mktfs_inode *hardlink(const std::string &path, const std::string &target) {
        mktfs_inode *inode = place(MKTFS_INODE_HLINK, path);
        inode->path = target;
        inode->size = target.size();
        return inode;
    }
    const std::uint32_t base = mktfs_inode_num();
};

TEST_F(resolve, NumbersInLayerOrderAndCounts) {
    const mktfs_inode *early = hardlink("a/early", "/z/file");
    mktfs_inode *file = place(MKTFS_INODE_FILE, "z/file");
    file->size = 100;
    const mktfs_inode *link = place(MKTFS_INODE_LINK, "link");
    hardlink("z/late", "link");
    place(MKTFS_INODE_DIR, "z/sub");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), 0);
    EXPECT_EQ(log.text(), "");
    std::uint32_t number = base;
    for (const char *path : {"/", "a", "link", "z", "z/file", "z/sub"})
        EXPECT_EQ(find(path)->ino, ++number) << path;
    EXPECT_EQ(fs.inodes, number);
    EXPECT_EQ(early->ino, 0u);
    EXPECT_EQ(early->hlink, file);
    EXPECT_EQ(std::tuple(file->nlink, link->nlink, early->nlink), std::tuple(2, 2, 0));
    EXPECT_EQ(std::tuple(fs.root.nlink, find("z")->nlink), std::tuple(4, 3));
    EXPECT_EQ(std::tuple(fs.dirs, fs.files, fs.links, fs.hardlinks), std::tuple(4u, 1u, 1u, 2u));
    EXPECT_EQ(fs.object_size, 100u + 7 + 4);
}

TEST_F(resolve, RemovesHardlinksThatCannotBe) {
    verbose = 2;
    hardlink("a", "none");
    hardlink("b", "/");
    hardlink("c", "c");
    hardlink("d", "dir");
    place(MKTFS_INODE_DIR, "dir");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), 0);
    EXPECT_EQ(listing(), " /dir ");
    EXPECT_EQ(fs.root.nchildren, 5u);
    EXPECT_EQ(fs.object_size, 4u + 1 + 1 + 3);
    EXPECT_EQ(fs.hardlinks, 0u);
    std::string expected = "2 build:7:3:hardlink 'a' to 'none' was not resolved\n";
    for (const std::string name : {"a", "b", "c", "d"})
        expected += (name == "a" ? "" : "2 hlink target inode is not of type 'file' or 'link'\n") +
                    ("2 removing unresolved hardlink inode '" + name + "'\n");
    EXPECT_EQ(logged(), expected);
}

TEST_F(resolve, StopsAtAnUnknownType) {
    place(9, "a");
    place(MKTFS_INODE_FILE, "b");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), EOPNOTSUPP);
    EXPECT_EQ(fs.files, 0u);
    EXPECT_EQ(fs.inodes, 0u);
}

TEST_F(resolve, ManyHardlinksToOneFileAreQuickAndWrapItsCount) {
    place(MKTFS_INODE_FILE, "file");
    for (int i = 0; i < 100000; ++i)
        hardlink("links/" + std::to_string(i), "file");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), 0);
    EXPECT_EQ(fs.hardlinks, 100000u);
    EXPECT_EQ(find("file")->nlink, 100001 % 65536);
}

}  // namespace
