#include "tree/extract.h"

#include <errno.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "io/io.h"
#include "tree/tree_fixture.h"

namespace {

// What the image of the tests' type holds: its text is a list of entries "parent
// number type name contents\n", the contents of a link being its target.
struct entry {
    std::uint32_t parent, ino;
    std::int32_t type;
    std::string name, contents;
};
std::vector<entry> entries;
std::string calls;  // one letter for each slot called
int mount_error;

int write_contents(mktfs_inode *inode, mktfs_io *out) {
    for (const entry &e : entries)
        if (e.ino == inode->ino)
            return e.contents == "!" ? EXDEV : mktfs_io_write(out, -1, e.contents.data(), e.contents.size());
    return ENOENT;
}

class extract : public tree_test {
protected:
    extract() {
        backend.mount = [](mktfs_filesystem *, mktfs_io *image) {
            EXPECT_EQ(mktfs_io_datasize(image), 5u);
            calls += 'm';
            return mount_error;
        };
        backend.readroot = [](mktfs_filesystem *, mktfs_io *, mktfs_inode *root) {
            calls += 'r';
            root->type = MKTFS_INODE_DIR;
            root->ino = 1;
            return 0;
        };
        backend.readdir = [](mktfs_filesystem *, mktfs_io *, mktfs_inode *directory) {
            calls += 'd';
            for (const entry &e : entries)
                if (e.parent == directory->ino)
                    if (int err = mktfs_inode_create(directory, e.ino, e.name.data(), e.name.size(), e.type))
                        return err;
            return 0;
        };
        backend.readlnk = [](mktfs_filesystem *, mktfs_io *, mktfs_inode *link, mktfs_io *target) {
            calls += 'l';
            return write_contents(link, target);
        };
        backend.readfile = [](mktfs_filesystem *, mktfs_io *, mktfs_inode *file, mktfs_io *out) {
            calls += 'f';
            return write_contents(file, out);
        };
        calls.clear();
        mount_error = 0;
        EXPECT_EQ(mktfs_filesystem_extract_init(&fs), 0);
    }
    ~extract() override { verbose = 0; }

    int run(std::vector<entry> image) {
        entries = std::move(image);
        return mktfs_filesystem_extract(&fs, dir.file("image", "image").c_str(), dir.folder("out").c_str());
    }

    const temp_dir dir;
};

TEST_F(extract, WritesFoldersFilesAndLinks) {
    const mode_t mask = umask(0);
    const std::string long_target(4000, 't');
    EXPECT_EQ(run({{1, 2, MKTFS_INODE_DIR, "sub", ""},
                   {1, 3, MKTFS_INODE_FILE, "file", std::string("by\0tes", 6)},
                   {2, 4, MKTFS_INODE_DIR, "deeper", ""},
                   {4, 5, MKTFS_INODE_FILE, "empty", ""},
                   {4, 6, MKTFS_INODE_LINK, "link", long_target}}),
              0);
    umask(mask);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(calls, "mrdddflf") << "the tree is read before anything is written";
    EXPECT_EQ(read_file(dir / "out/file"), std::string("by\0tes", 6));
    EXPECT_EQ(read_file(dir / "out/sub/deeper/empty"), "");
    EXPECT_EQ(std::filesystem::read_symlink(dir / "out/sub/deeper/link"), long_target);
    struct stat status {};
    ASSERT_EQ(stat((dir / "out/file").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFREG | 0660u);
    ASSERT_EQ(stat((dir / "out/sub").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0755u);
}

TEST_F(extract, EveryFailureEndsItWithItsMessage) {
    const std::string out = dir / "out", closed(40, 'x');
    const struct {
        const char *name;
        std::vector<entry> image;
        int result;
        std::string log;
    } cases[] = {
        {"unsupported types are skipped",
         {{1, 2, MKTFS_INODE_HLINK, "h", ""}, {1, 3, 77, "u", ""}},
         0,
         "build:7:3:skipped extracting unsupported inode type\n"
         "build:7:3:skipped extracting unsupported inode type\n"},
        {"empty link target", {{1, 2, MKTFS_INODE_LINK, "l", ""}}, 0, "symlink data is empty!!!\n"},
        {"link target above the limit",
         {{1, 2, MKTFS_INODE_LINK, "l", std::string(5000, 't')}},
         ENAMETOOLONG,
         "inode symlink length '5000' exceeds host filesystem symlink max size '4096', skipping...\n"
         "failed to create symlink '" +
             out + "/l'\n"},
        {"link in use",
         {{1, 2, MKTFS_INODE_LINK, "l", "a"}, {1, 3, MKTFS_INODE_LINK, "l", "b"}},
         EEXIST,
         "failed to create symlink '" + out + "/l'\n"},
        {"folder in use",
         {{1, 2, MKTFS_INODE_DIR, "d", ""}, {1, 3, MKTFS_INODE_DIR, "d", ""}},
         EEXIST,
         "creating dir '" + out + "/d' failed\n"},
        {"file where a folder is",
         {{1, 2, MKTFS_INODE_DIR, "d", ""}, {1, 3, MKTFS_INODE_FILE, "d", ""}},
         EISDIR,
         "failed to open '" + out +
             "/d' (Is a directory)\n"
             "unable to open output file '" +
             out + "/d' (Is a directory)\n"},
        {"file through a link",
         {{1, 2, MKTFS_INODE_LINK, "l", "../escaped"}, {1, 3, MKTFS_INODE_FILE, "l", "!"}},
         ELOOP,
         "failed to open '" + out +
             "/l' (Too many levels of symbolic links)\n"
             "unable to open output file '" +
             out + "/l' (Too many levels of symbolic links)\n"},
        {"folder through a link",
         {{1, 2, MKTFS_INODE_LINK, "l", ".."}, {1, 1, MKTFS_INODE_DIR, "l", ""}},
         EEXIST,
         "creating dir '" + out + "/l' failed\n"},
        {"file contents", {{1, 2, MKTFS_INODE_FILE, "f", "!"}}, EXDEV, ""},
        {"link contents", {{1, 2, MKTFS_INODE_LINK, "l", "!"}}, EXDEV, ""},
        {"hostile name",
         {{1, 2, MKTFS_INODE_DIR, "ok", ""}, {2, 3, MKTFS_INODE_FILE, "../../escaped", ""}},
         EINVAL,
         ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(run(c.image), c.result);
        EXPECT_EQ(log.text(), c.log);
        EXPECT_FALSE(std::filesystem::exists(dir / "escaped"));
        log.clear();
        mktfs_filesystem_free(&fs);
        std::filesystem::remove_all(out);
    }
}

TEST_F(extract, EarlyFailuresAndMissingSlots) {
    verbose = 1;
    mount_error = EXDEV;
    EXPECT_EQ(run({}), EXDEV);
    EXPECT_EQ(log.text(), "Mounting filesystem image...\n");
    EXPECT_EQ(calls, "m");
    mount_error = 0;
    log.clear();
    EXPECT_EQ(run({}), 0);
    EXPECT_EQ(log.text(), "Mounting filesystem image...\nReading filesystem root inode...\n"
                          "Populating filesystem inodes...\nExtracting filesystem inodes...\n");
    backend.readfile = nullptr;
    EXPECT_EQ(run({{1, 2, MKTFS_INODE_FILE, "f", ""}}), EOPNOTSUPP);
    log.clear();
    EXPECT_EQ(mktfs_filesystem_extract(&fs, (dir / "none").c_str(), (dir / "out").c_str()), ENOENT);
    EXPECT_EQ(log.text(), "failed to open '" + dir / "none" + "' (No such file or directory)\n");
}

}  // namespace
