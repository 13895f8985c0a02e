#include "driver/template_type.h"

#include <cerrno>

#include "attributes/options.h"
#include "base/log.h"
#include "buildfile/parser.h"
#include "fs/filesystem.h"

namespace {

void template_usage() {
    mktfs_log(MKTFS_LOG_INFO, "template_usage\n");
}

int template_opts_init(mktfs_filesystem_opts *) {
    return 0;
}

int template_cmdopt_handler(mktfs_filesystem_opts *, int, const char *) {
    return EOPNOTSUPP;
}

void template_print_stats(mktfs_filesystem *) {
    mktfs_log(MKTFS_LOG_INFO, "template_print_stats stats\n");
}

int template_fsys_init(mktfs_filesystem *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_init\n");
    return 0;
}

void template_fsys_finit(mktfs_filesystem *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_finit\n");
}

int template_fsys_build(mktfs_filesystem *, mktfs_io *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_build\n");
    return 0;
}

int template_fsys_mount(mktfs_filesystem *, mktfs_io *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_mount\n");
    return 0;
}

int template_fsys_readroot(mktfs_filesystem *, mktfs_io *, mktfs_inode *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_readroot\n");
    return 0;
}

int template_fsys_readdir(mktfs_filesystem *, mktfs_io *, mktfs_inode *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_readdir\n");
    return 0;
}

int template_fsys_readlnk(mktfs_filesystem *, mktfs_io *, mktfs_inode *, mktfs_io *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_readlink\n");
    return 0;
}

int template_fsys_readfile(mktfs_filesystem *, mktfs_io *, mktfs_inode *, mktfs_io *) {
    mktfs_log(MKTFS_LOG_INFO, "template_fsys_readfile\n");
    return 0;
}

}  // namespace

const mktfs_backend *template_backend() {
    // set at the first call: the parser record is no constant expression here
    static const mktfs_backend record = {
        .name = "TEMPLATE",
        .flags = MKTFS_BACKEND_SORTED,
        .usage = template_usage,
        .opts_init = template_opts_init,
        .optstring = "",
        .cmdopt_handler = template_cmdopt_handler,
        .print_stats = template_print_stats,
        .parser = mktfs_base_parser,
        .option_handler = base_option_handler,
        .inode_attr = base_inode_attr_fct,
        .build_init = template_fsys_init,
        .build_finit = template_fsys_finit,
        .build = template_fsys_build,
        .extract_init = template_fsys_init,
        .extract_finit = template_fsys_finit,
        .mount = template_fsys_mount,
        .readroot = template_fsys_readroot,
        .readdir = template_fsys_readdir,
        .readlnk = template_fsys_readlnk,
        .readfile = template_fsys_readfile,
    };
    return &record;
}
