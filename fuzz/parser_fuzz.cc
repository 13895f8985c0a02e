// A whole parse into a tree, through a type with every capability.  A fatal message leaves
// the parser for good, as the end of the process would.
#include "attributes/options.h"
#include "base/log.h"
#include "buildfile/parser.h"
#include "buildfile/setters.h"
#include "fs/filesystem.h"
#include "inputs.h"
#include "tree/inode.h"
#include "tree/resolve.h"

static constexpr mktfs_backend backend = {
    .name = "FUZZ",
    .flags = MKTFS_BACKEND_SORTED | MKTFS_BACKEND_HARDLINKS | MKTFS_BACKEND_ACLS,
    .parser = mktfs_base_parser,
    .option_handler = base_option_handler,
    .inode_attr = base_inode_attr_fct,
};

// What the parser holds at a fatal message is lost.
extern "C" int __lsan_is_turned_off() {
    return 1;
}

static int log_function(int level, const char *, ...) {
    if (level == MKTFS_LOG_FATAL)
        throw level;
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    mktfs_register_log_fct(log_function);
    mktfs_set_backend(&backend);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const memory_file input(data, size);
    mktfs_filesystem &fs = *mktfs_get_filesystem();
    try {
        if (mktfs_filesystem_build_init(&fs) == 0 && mktfs_filesystem_parse(input.path()) == 0)
            (void)mktfs_filesystem_resolve_info(&fs);
    } catch (int) {
    }
    mktfs_filesystem_free(&fs);
    mktfs_backend_acls_free();
    fs = {};
    return 0;
}
