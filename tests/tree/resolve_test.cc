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
    place(MKTFS_INODE_FILE, "z/file")->size = 100;
    place(MKTFS_INODE_LINK, "link");
    hardlink("z/late", "link");
    place(MKTFS_INODE_DIR, "z/sub");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), 0);
    EXPECT_EQ(logged(), "");
    std::uint32_t number = base;
    for (const auto &[path, nlink] :
         {std::pair{"/", 4}, {"a", 2}, {"link", 2}, {"z", 3}, {"z/file", 2}, {"z/sub", 2}})
        EXPECT_EQ(std::tuple(find(path)->ino, find(path)->nlink), std::tuple(++number, nlink)) << path;
    EXPECT_EQ(std::tuple(early->ino, early->nlink, early->hlink), std::tuple(0u, 0, find("z/file")));
    EXPECT_EQ(std::tuple(fs.dirs, fs.files, fs.links, fs.hardlinks), std::tuple(4u, 1u, 1u, 2u));
    EXPECT_EQ(std::tuple(fs.inodes, fs.object_size), std::tuple(number, 100u + 7 + 4));
    place(9, "unknown");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), EOPNOTSUPP);
}

TEST_F(resolve, RemovesHardlinksThatCannotBe) {
    verbose = 2;
    std::string expected = "2 build:7:3:hardlink 'a' to 'none' was not resolved\n";
    for (const auto &[name, target] : {std::pair{"a", "none"}, {"b", "/"}, {"c", "c"}, {"d", "dir"}}) {
        hardlink(name, target);
        expected += *name == 'a' ? "" : "2 hlink target inode is not of type 'file' or 'link'\n";
        expected += std::string("2 removing unresolved hardlink inode '") + name + "'\n";
    }
    place(MKTFS_INODE_DIR, "dir");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), 0);
    EXPECT_EQ(listing(), " /dir ");
    EXPECT_EQ(std::tuple(fs.root.nchildren, fs.object_size, fs.hardlinks),
              std::tuple(5u, 4u + 1 + 1 + 3, 0u));
    EXPECT_EQ(logged(), expected);
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
