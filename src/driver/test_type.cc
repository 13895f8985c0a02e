#include "driver/test_type.h"

#include <cerrno>
#include <cstddef>

#include "attributes/options.h"
#include "base/log.h"
#include "buildfile/parser.h"
#include "fs/filesystem.h"
#include "tree/inode.h"
#include "tree/walk.h"

namespace {

constexpr std::size_t PATH_SIZE = 4096;  // longer paths are printed cut

void test_usage() {
    mktfs_log(MKTFS_LOG_INFO, "test_usage\n");
}

int test_opts_init(mktfs_filesystem_opts *opts) {
    opts->flags |= MKTFS_OPT_NO_OUTPUT;
    return 0;
}

int test_cmdopt_handler(mktfs_filesystem_opts *, int, const char *) {
    return EOPNOTSUPP;
}

void test_print_stats(mktfs_filesystem *) {}

int test_fsys_init(mktfs_filesystem *) {
    return 0;
}

void test_fsys_finit(mktfs_filesystem *) {}

int test_fsys_mount(mktfs_filesystem *, mktfs_io *) {
    return 0;
}

int test_fsys_read(mktfs_filesystem *, mktfs_io *, mktfs_inode *) {
    return 0;
}

int test_fsys_read_into(mktfs_filesystem *, mktfs_io *, mktfs_inode *, mktfs_io *) {
    return 0;
}

void print_defaults(const mktfs_filesystem &fs) {
    mktfs_log(MKTFS_LOG_INFO, "Filesystem Options:\n");
    mktfs_log(MKTFS_LOG_INFO, "  blksize:      %u\n", fs.blksize);
    mktfs_log(MKTFS_LOG_INFO, "  default uid:  %u\n", fs.uid);
    mktfs_log(MKTFS_LOG_INFO, "  default gid:  %u\n", fs.gid);
    mktfs_log(MKTFS_LOG_INFO, "  file mode:    %04o\n", fs.fmode);
    mktfs_log(MKTFS_LOG_INFO, "  dir mode:     %04o\n", fs.dmode);
    mktfs_log(MKTFS_LOG_INFO, "  mtime:        %zu\n", static_cast<std::size_t>(fs.mtime));
    mktfs_log(MKTFS_LOG_INFO, "  mtimefmt:     %s\n", fs.mtimefmt.c_str());
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

void print_heading() {
    mktfs_log(MKTFS_LOG_INFO, "type       ino               uid:gid        mode        mtime        name\n");
    mktfs_log(MKTFS_LOG_INFO, "-------------------------------------------------------------------------\n");
}

const char *path_of(const mktfs_inode &inode) {
    return mktfs_shown(inode.has_path ? inode.path.c_str() : nullptr);
}

// Where the contents come from.
void print_source(const mktfs_inode &inode) {
    const bool is_link = inode.type == MKTFS_INODE_LINK || inode.type == MKTFS_INODE_HLINK;
    if (is_link)
        mktfs_log(MKTFS_LOG_INFO, " --> %s", path_of(inode));
    else if (inode.type == MKTFS_INODE_FILE && (inode.flags & MKTFS_INODE_INLINE) != 0)
        mktfs_log(MKTFS_LOG_INFO, " [inline]");
    else if (inode.type == MKTFS_INODE_FILE)
        mktfs_log(MKTFS_LOG_INFO, " [%s]", path_of(inode));
}

int print_inode(mktfs_filesystem *, mktfs_inode *inode, void *) {
    char path[PATH_SIZE] = "";
    mktfs_inode_full_path(inode, path, sizeof path);
    mktfs_log(MKTFS_LOG_INFO, "%-10s %-10u %10u:%-10u %04o %6s %-12zu %s", mktfs_inode_type2str(inode->type),
              inode->ino, inode->uid, inode->gid, inode->mode, "", static_cast<std::size_t>(inode->mtime),
              path);
    print_source(*inode);
    mktfs_log(MKTFS_LOG_INFO, "\n");
    return 0;
}

int test_fsys_build(mktfs_filesystem *fs, mktfs_io *) {
    print_defaults(*fs);
    print_heading();
    return mktfs_filesystem_walk_layer(print_inode, nullptr);
}

}  // namespace

const mktfs_backend *test_backend() {
    // set at the first call: the parser record is no constant expression here
    static const mktfs_backend record = {
        .name = "TEST",
        .flags = MKTFS_BACKEND_SORTED | MKTFS_BACKEND_HARDLINKS,
        .usage = test_usage,
        .opts_init = test_opts_init,
        .optstring = "",
        .cmdopt_handler = test_cmdopt_handler,
        .print_stats = test_print_stats,
        .parser = mktfs_base_parser,
        .option_handler = base_option_handler,
        .inode_attr = base_inode_attr_fct,
        .build_init = test_fsys_init,
        .build_finit = test_fsys_finit,
        .build = test_fsys_build,
        .extract_init = test_fsys_init,
        .extract_finit = test_fsys_finit,
        .mount = test_fsys_mount,
        .readroot = test_fsys_read,
        .readdir = test_fsys_read,
        .readlnk = test_fsys_read_into,
        .readfile = test_fsys_read_into,
    };
    return &record;
}
