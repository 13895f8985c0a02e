#include "tree/extract.h"

#include <errno.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "io/io.h"
#include "tree/tree_fixture.h"

namespace {

constexpr auto FOLDER = MKTFS_INODE_DIR, PLAIN = MKTFS_INODE_FILE, SYMLINK = MKTFS_INODE_LINK;

struct entry {
    std::uint32_t parent, ino;  // parent 0 is the root
    std::int32_t type;
    std::string name, contents = "";
};
std::vector<entry> entries;
std::string calls;  // one letter for each slot called
int mount_error;

int deliver(mktfs_filesystem *, mktfs_io *, mktfs_inode *inode, mktfs_io *out) {
    calls += inode->type == PLAIN ? 'f' : 'l';
    const entry &e = *std::ranges::find(entries, inode->ino, &entry::ino);
    const int err = mktfs_io_write(out, -1, e.contents.data(), e.contents.size());
    if (e.name == "closed")
        close(mktfs_io_descriptor(out));
    return e.name == "bad" ? EXDEV : err;
}

class extract : public tree_test {
protected:
    extract() {
        backend.mount = [](auto, mktfs_io *image) {
            calls += mktfs_io_datasize(image) == 5 ? 'm' : '?';
            return mount_error;
        };
        backend.readroot = [](auto, auto, mktfs_inode *root) {
            calls += 'r';
            root->type = FOLDER;
            root->ino = 1;
            return 0;
        };
        backend.readdir = [](auto, auto, mktfs_inode *directory) {
            calls += 'd';
            int err = 0;
            for (const entry &e : entries)
                if (err == 0 && e.parent == (directory->parent ? directory->ino : 0))
                    err = mktfs_inode_create(directory, e.ino, e.name.data(), e.name.size(), e.type);
            return err;
        };
        backend.readlnk = backend.readfile = deliver;
        calls.clear();
        mount_error = 0;
        EXPECT_EQ(mktfs_filesystem_extract_init(&fs), 0);
    }

    int run(std::vector<entry> image) {
        entries = std::move(image);
        return mktfs_filesystem_extract(&fs, dir.file("image", "image").c_str(), dir.folder("out").c_str());
    }
};

TEST_F(extract, WritesFoldersFilesAndLinks) {
    const mode_t mask = umask(0);
    const std::string bytes("by\0tes", 6), target(4000, 't');
    EXPECT_EQ(run({{0, 2, FOLDER, "sub"},
                   {0, 3, PLAIN, "file", bytes},
                   {2, 4, FOLDER, "deeper"},
                   {4, 5, PLAIN, "empty"},
                   {4, 6, SYMLINK, "link", target}}),
              0);
    umask(mask);
    EXPECT_EQ(logged(), "");
    EXPECT_EQ(calls, "mrdddffl") << "the tree is read before anything is written";
    EXPECT_EQ(read_file(dir / "out/file") + read_file(dir / "out/sub/deeper/empty"), bytes);
    EXPECT_EQ(std::filesystem::read_symlink(dir / "out/sub/deeper/link"), target);
    EXPECT_EQ(static_cast<int>(std::filesystem::status(dir / "out/file").permissions()), 0660);
    EXPECT_EQ(static_cast<int>(std::filesystem::status(dir / "out/sub").permissions()), 0755);
}

TEST_F(extract, EveryFailureEndsItWithItsMessage) {
    const std::string skipped = "2 build:7:3:skipped extracting unsupported inode type\n";
    const std::string too_long =
        "2 inode symlink length '5000' exceeds host filesystem symlink max size '4096', skipping...\n"
        "3 failed to create symlink 'T/out/x'\n";
    const std::string no_dir = "3 creating dir 'T/out/x' failed\n";
    const auto no_file = [](const std::string &why) {
        return "3 failed to open 'T/out/x' (" + why + ")\n3 unable to open output file 'T/out/x' (" + why +
               ")\n";
    };
    const struct {
        int result;
        std::string log;
        std::vector<entry> image;
    } rows[] = {
        // clang-format off
        {0, skipped + skipped, {{0, 2, MKTFS_INODE_HLINK, "x"}, {0, 3, 77, "x"}}},
        {0, "3 symlink data is empty!!!\n", {{0, 2, SYMLINK, "x"}}},
        {ENAMETOOLONG, too_long, {{0, 2, SYMLINK, "x", std::string(5000, 't')}}},
        {EEXIST, no_dir, {{0, 2, FOLDER, "x"}, {0, 3, FOLDER, "x"}}},
        {EISDIR, no_file("Is a directory"), {{0, 2, FOLDER, "x"}, {0, 3, PLAIN, "x"}}},
        {ELOOP, no_file("Too many levels of symbolic links"), {{0, 2, SYMLINK, "x", "../escaped"}, {0, 3, PLAIN, "x"}}},
        {EEXIST, no_dir, {{0, 2, SYMLINK, "x", ".."}, {0, 1, FOLDER, "x"}, {1, 3, PLAIN, "escaped"}}},
        {EINVAL, "", {{0, 2, FOLDER, "x"}, {2, 3, PLAIN, "../../escaped"}}},
        {EXDEV, "", {{0, 2, PLAIN, "bad"}}},
        {EBADF, "", {{0, 2, PLAIN, "closed"}}},
        {EXDEV, "", {{0, 2, SYMLINK, "bad", "t"}}},
        {EEXIST, "3 failed to create symlink 'T/out/x'\n", {{0, 2, FOLDER, "x"}, {0, 3, SYMLINK, "x", "t"}}},
        {ENAMETOOLONG, "3 failed to create symlink 'T/out/x'\n", {{0, 2, SYMLINK, "x", std::string(4096, 't')}}},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.log + row.image.back().name);
        EXPECT_EQ(run(row.image), row.result);
        EXPECT_EQ(logged(), row.log);
        for (const char *gone : {"escaped", "out/bad", "out/closed"})
            EXPECT_FALSE(std::filesystem::exists(dir / gone)) << gone;
        mktfs_filesystem_free(&fs);
        std::filesystem::remove_all(dir / "out");
    }
    backend.readfile = nullptr;
    EXPECT_EQ(run({{0, 2, PLAIN, "f"}}), EOPNOTSUPP);
    calls.clear();
    mount_error = EXDEV;
    EXPECT_EQ(run({}), EXDEV);
    EXPECT_EQ(calls, "m");
    mount_error = 0;
    backend.readroot = nullptr;
    EXPECT_EQ(run({}), EOPNOTSUPP);
    mktfs_inode link;
    link.type = SYMLINK;
    EXPECT_EQ(mktfs_inode_extract(&fs, &link, nullptr), EINVAL);
    fs.root.path.clear();  // where nothing can be asked
    link.parent = &fs.root;
    EXPECT_EQ(mktfs_inode_extract(&fs, &link, nullptr), ENOENT);
}

}  // namespace
