#include "tree/search_path.h"

#include <errno.h>

#include "tree/tree_fixture.h"

namespace {

class placement : public tree_test {
protected:
    placement() {
        dir.file("one/file", "12345");
        dir.file("two/file", "1");
        dir.folder("one/shadow");
        dir.file("two/shadow", "1");
        dir.file("two/second", "12");
        dir.file("two/sub/below", "123");
        dir.link("one/link", "any where");
        dir.file("source", "1234567");
        dir.link("source_link", "target");
        mkfifo((dir / "fifo").c_str(), 0600);
        EXPECT_EQ(mktfs_parse_search_paths((dir / "none" + "::" + dir / "source").c_str()), 0);
        EXPECT_TRUE(mktfs_search_paths_empty());
        EXPECT_EQ(mktfs_parse_search_paths((dir / "one" + ":").c_str()) +
                      mktfs_parse_search_paths(dir.link("to_two", dir / "two").c_str()),
                  0);
        mktfs_print_search_paths();
        EXPECT_EQ(logged(),
                  "2 search path 'T/none' doesn't exist!\n2 search path 'T/source' is not a directory!\n"
                  "0 search paths:\n0 \tT/one\n0 \tT/to_two\n");
    }

    std::string outcome(std::int32_t type, const char *image_path, const char *source,
                        std::uint32_t flags = 0) {
        mktfs_inode *made = mktfs_inode_make(&fs, type);
        made->flags = flags;
        mktfs_backend_inode_add(made, image_path, source);
        const mktfs_inode *inode = find(image_path);
        std::string text;
        if (inode && inode->parent)
            text = std::string(mktfs_inode_type2str(inode->type)) + " " +
                   (inode->has_path ? inode->path : "-") + " " + std::to_string(inode->size) + " " +
                   std::to_string(inode->flags);
        mktfs_filesystem_free(&fs);
        return shorten(text);
    }
};

TEST_F(placement, FindsOrDropsByTypeAndSource) {
    const std::string source = dir / "source", link = dir / "source_link", fifo = dir / "fifo";
    const auto missing = [](const std::string &what) {
        return "2 build:7:3:failed to find matching target for " + what + "\n";
    };
    const struct {
        const char *name;
        std::int32_t type;
        const char *image_path, *source;
        std::string outcome, log;
    } cases[] = {
        {"first folder wins", MKTFS_INODE_FILE, "/file", nullptr, "file T/one//file 5 0", ""},
        {"later folder", MKTFS_INODE_FILE, "sub/below", nullptr, "file T/to_two/sub/below 3 0", ""},
        {"host link", MKTFS_INODE_FILE, "link", nullptr, "link any where 9 0", ""},
        {"a folder ends the search", MKTFS_INODE_FILE, "shadow", nullptr, "",
         "3 filesystem object found at path 'T/one/shadow' is not a file\n" + missing("file 'shadow'")},
        {"file source", MKTFS_INODE_FILE, "x", source.c_str(), "file T/source 7 0", ""},
        {"source on the search paths", MKTFS_INODE_FILE, "x", "second", "file T/to_two/second 2 0", ""},
        {"missing source", MKTFS_INODE_FILE, "file", "none", "", missing("file 'none'")},
        {"odd source", MKTFS_INODE_FILE, "x", fifo.c_str(), "file - 0 0",
         "2 build:7:3:target inode 'T/fifo' is not a file or link, skipping...\n"},
        {"host link for a link", MKTFS_INODE_LINK, "link", nullptr, "link any where 9 0", ""},
        {"link target", MKTFS_INODE_LINK, "x", "../a b", "link ../a b 6 2", ""},
        {"hard link", MKTFS_INODE_HLINK, "x", "/file", "hlink /file 5 2", ""},
        {"hard link without target", MKTFS_INODE_HLINK, "x", nullptr, "", ""},
        {"directory", MKTFS_INODE_DIR, "none", "any", "dir - 0 0", ""},
        {"the root", MKTFS_INODE_DIR, "//", nullptr, "", ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(outcome(c.type, c.image_path, c.source), c.outcome);
        EXPECT_EQ(logged(), c.log);
    }
    EXPECT_EQ(outcome(MKTFS_INODE_FILE, "none", nullptr, MKTFS_INODE_INLINE), "file - 0 1");
    mktfs_backend_inode_add(nullptr, "x", "y");
    EXPECT_EQ(mktfs_parse_search_paths(nullptr) + mktfs_resolve_search_path_inode(nullptr, &fs.root) +
                  mktfs_resolve_search_path_inode("x", nullptr),
              3 * EINVAL);
}

}  // namespace
