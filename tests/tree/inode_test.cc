#include "tree/inode.h"

#include <errno.h>
#include <gmock/gmock.h>

#include <set>
#include <tuple>

#include "fs/diag.h"
#include "tree/extract.h"
#include "tree/resolve.h"
#include "tree/tree_fixture.h"

using namespace std::literals;

namespace {

using numbers = std::vector<std::uint64_t>;
template <class... Values>
numbers of(Values... values) {
    return {static_cast<std::uint64_t>(values)...};
}

constexpr int MANY = 100000;

TEST_F(tree_test, RecordsBeginEmptyAndABuildWithItsDefaults) {
    const mktfs_inode i;
    EXPECT_THAT(of(i.type, i.flags, i.ino, i.uid, i.gid, i.mode, i.mtime, i.nlink, i.has_path, i.size,
                   i.depth, i.nchildren, i.index.weight),
                testing::Each(0));
    const mktfs_filesystem f;
    EXPECT_THAT(of(f.blksize, f.uid, f.gid, f.fmode, f.dmode, f.mtime, f.inodes, f.files, f.dirs, f.links,
                   f.hardlinks, f.object_size, f.opts.flags, mktfs_backend{}.flags),
                testing::Each(0));
    EXPECT_EQ(of(MKTFS_BACKEND_SORTED, MKTFS_BACKEND_EXTRACT, MKTFS_BACKEND_VERIFY, MKTFS_BACKEND_HARDLINKS,
                 MKTFS_BACKEND_ACLS, MKTFS_OPT_NO_INPUT, MKTFS_OPT_NO_OUTPUT, MKTFS_OPT_NO_RESOLVE,
                 MKTFS_OPT_NO_STATS, MKTFS_OPT_NO_SEARCH_PATHS, MKTFS_INODE_INLINE, MKTFS_INODE_TARGET,
                 MKTFS_ROOT_INO, f.opts.threads),
              (numbers{1, 2, 4, 8, 16, 1, 2, 4, 8, 16, 1, 2, 1, 1}));
    fs.uid = fs.gid = fs.root.uid = 9, fs.mtime = 9;
    EXPECT_EQ(mktfs_filesystem_build_init(&fs), 0);
    EXPECT_EQ(of(fs.blksize, fs.uid, fs.gid, fs.fmode, fs.dmode, fs.mtime, fs.root.type, fs.root.mode,
                 fs.root.nlink, fs.root.uid),
              (numbers{4096, 0, 0, 0644, 0755, 0, 1, 0775, 2, 0}));
    EXPECT_EQ(fs.mtimefmt, "%s");
    mktfs_filesystem_build_finit(&fs);
    EXPECT_EQ(fs.mtimefmt, "");
    place(MKTFS_INODE_FILE, "lost");
    const mktfs_inode_list lost = fs.root.children;
    EXPECT_EQ(mktfs_filesystem_extract_init(&fs), 0);
    EXPECT_EQ(fs.root.children.first, nullptr);
    fs.root.children = lost;
}

TEST_F(tree_test, ATypeWithoutOperationsLacksThem) {
    EXPECT_EQ(
        (std::vector{mktfs_filesystem_build_init(nullptr), mktfs_filesystem_extract_init(nullptr),
                     mktfs_filesystem_verify_init(nullptr), mktfs_filesystem_parse(""),
                     mktfs_filesystem_build(&fs, nullptr), mktfs_filesystem_verify(&fs, "/dev/null"),
                     mktfs_filesystem_extract(&fs, dir.file("image", "i").c_str(), "out"),
                     mktfs_filesystem_extract(nullptr, "", ""), mktfs_filesystem_extract(&fs, "", nullptr)}),
        (std::vector{EINVAL, EINVAL, 0, EOPNOTSUPP, EOPNOTSUPP, EOPNOTSUPP, EOPNOTSUPP, EINVAL, EINVAL}));
    static int result;
    const auto handle = [this](int err) {
        result = err;
        mktfs_backend_option_handler("x", "y");
        mktfs_backend_inode_attr(&fs.root, "x", nullptr);
        return logged();
    };
    EXPECT_EQ(handle(0),
              "4 build:7:3:unsupported option attribute 'x'\n4 build:7:3:unsupported inode attribute 'x'\n");
    backend.option_handler = [](auto, auto, auto) { return result; };
    backend.inode_attr = [](auto, auto, auto) { return result; };
    backend.parser.scanner_context = nullptr;
    EXPECT_EQ(handle(0), "");
    EXPECT_EQ(handle(EINVAL), "4 (null):0:0:invalid value for option attribute 'x' ('y')\n"
                              "4 (null):0:0:invalid value for inode attribute 'x' ('nil')\n");
    EXPECT_EQ(handle(EOPNOTSUPP), "4 (null):0:0:unsupported option attribute 'x'\n"
                                  "4 (null):0:0:unsupported inode attribute 'x'\n");
    EXPECT_EQ(handle(EIO), "4 (null):0:0:failed to parse option attribute 'x' ('y')\n"
                           "4 (null):0:0:failed to parse inode attribute 'x' ('nil') [Input/output error]\n");
    for (const std::string &text : {""s, "\n"s, "a\n\n"s, std::string(4095, 'x'), std::string(4096, 'x')}) {
        mktfs_parse_warn("%s", text.c_str());
        const std::string shown =
            text.substr(0, std::min<std::size_t>(text.size() - text.ends_with('\n'), 4095));
        EXPECT_EQ(logged(), "2 (null):0:0:" + shown + "\n");
    }
}

TEST_F(tree_test, NothingIsDoneWithoutAnObject) {
    mktfs_inode lonely;
    mktfs_inode_insert(nullptr, &lonely);
    mktfs_inode_insert(&fs.root.children, nullptr);
    mktfs_inode_unlink(nullptr);
    mktfs_inode_unlink(&lonely);
    mktfs_inode_free(nullptr);
    mktfs_inode_init(nullptr);
    mktfs_filesystem_free(nullptr);
    char text[2] = "";
    EXPECT_EQ(mktfs_inode_find(nullptr, "x"), nullptr);
    EXPECT_EQ(mktfs_inode_find(&fs.root.children, nullptr), nullptr);
    EXPECT_EQ(mktfs_inode_make(nullptr, MKTFS_INODE_FILE), nullptr);
    EXPECT_EQ(mktfs_filesystem_find_inode(nullptr, "x"), nullptr);
    EXPECT_EQ(mktfs_filesystem_find_inode(&fs, nullptr), nullptr);
    EXPECT_EQ(
        (std::vector{mktfs_inode_add(nullptr, &lonely, "x"), mktfs_inode_add(&fs, nullptr, "x"),
                     mktfs_inode_add(&fs, &lonely, nullptr), mktfs_inode_add(&fs, &lonely, ""),
                     mktfs_inode_create(nullptr, 2, "x", 1, 0), mktfs_inode_create(&lonely, 2, nullptr, 1, 0),
                     mktfs_parse_search_paths(nullptr), mktfs_resolve_search_path_inode(nullptr, &lonely),
                     mktfs_resolve_search_path_inode("x", nullptr)}),
        std::vector(9, EINVAL));
    EXPECT_EQ(
        (std::vector{mktfs_inode_add(&fs, &lonely, "//"), mktfs_inode_full_path(nullptr, text, 2),
                     mktfs_inode_full_path(&lonely, nullptr, 2), mktfs_inode_full_path(&lonely, text, 0),
                     mktfs_inode_populate(&fs, &lonely, nullptr)}),
        std::vector(5, 0));
    mktfs_backend_inode_add(nullptr, "/x", nullptr);
    mktfs_backend_inode_add(mktfs_inode_make(&fs, MKTFS_INODE_DIR), nullptr, nullptr);
    EXPECT_EQ(listing(), " ");
}

TEST_F(tree_test, TypesHaveTheirNamesAndBitsAndNodesTheirDefaults) {
    fs.uid = 1, fs.gid = 2, fs.mtime = 3;
    std::string all;
    for (const std::int32_t type : {0, 1, 2, 3, 9}) {
        const mktfs_inode_ptr made(mktfs_inode_make(&fs, type));
        const auto bits = mktfs_inode_type2mode_type(type);
        char text[99];
        snprintf(text, sizeof text, "%s %x %d; %d %u:%u %ld %o %d\n", mktfs_inode_type2str(type), bits,
                 mktfs_mode_type2mktfs_type(bits | 0777), made->type, made->uid, made->gid, made->mtime,
                 made->mode, made->nlink);
        all += text;
    }
    EXPECT_EQ(all, "file 8000 0; 0 1:2 3 644 1\ndir 4000 1; 1 1:2 3 755 2\nlink a000 2; 2 1:2 3 777 1\n"
                   "hlink 8000 0; 3 1:2 3 0 0\nunknown 0 -1; 9 1:2 3 0 0\n");
}

TEST_F(tree_test, AFullPathIsCutToFit) {
    std::string path;
    for (int i = 0; i < 60; ++i)
        path += i % 7 == 3 ? "/long_name" : "/a";
    const mktfs_inode *deep = place(MKTFS_INODE_FILE, path);
    for (const std::string begin : {"", "x"})
        for (std::size_t size = 1; size < path.size() + 3; ++size) {
            std::string buffer(path.size() + 4, '\0');
            begin.copy(buffer.data(), size - 1);
            EXPECT_EQ(mktfs_inode_full_path(deep, buffer.data(), size), 0);
            EXPECT_EQ(buffer.c_str(), (begin + path).substr(0, size - 1));
            EXPECT_THAT(buffer.substr(size), testing::Each('\0'));
        }
}

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
    EXPECT_EQ(find("links/other")->hlink, find("link"));
    EXPECT_EQ(of(fs.inodes, fs.root.nchildren), (numbers{mktfs_inode_num(), 3}));
    place(9, "unknown");
    EXPECT_EQ(mktfs_filesystem_resolve_info(&fs), EOPNOTSUPP);
}

}  // namespace
