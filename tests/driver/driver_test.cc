#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "driver/modes.h"
#include "driver/template_type.h"
#include "fs/filesystem.h"
#include "fs/stats.h"
#include "io/io.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

TEST(Build, AnErrorOfTheCloseLeavesNoOutput) {
    const temp_dir dir;
    const log_capture log;
    const std::string path = dir / "out";
    constexpr mktfs_backend closes_it = {
        .build = [](mktfs_filesystem *, mktfs_io *output) { return close(mktfs_io_descriptor(output)); }};
    mktfs_set_backend(&closes_it);
    mktfs_get_filesystem_opts()->flags = MKTFS_OPT_NO_SEARCH_PATHS | MKTFS_OPT_NO_RESOLVE;
    EXPECT_EQ(mktfs_run_build({.backend = &closes_it, .output = path.c_str()}), EBADF);
    EXPECT_EQ(log.text(), "Unable to complete output file '" + path + "' (Bad file descriptor)\n");
    EXPECT_FALSE(std::filesystem::exists(path));
    mktfs_set_backend(nullptr);
    mktfs_print_stats();  // of no type
}

TEST(TemplateType, EveryHookLogsItsNameAndSucceeds) {
    const mktfs_backend &type = *template_backend();
    const log_capture log;
    type.usage();
    type.print_stats(nullptr);
    type.build_finit(nullptr);
    type.extract_finit(nullptr);
    EXPECT_EQ(type.opts_init(nullptr) | type.build_init(nullptr) | type.build(nullptr, nullptr) |
                  type.extract_init(nullptr) | type.mount(nullptr, nullptr) |
                  type.readroot(nullptr, nullptr, nullptr) | type.readdir(nullptr, nullptr, nullptr) |
                  type.readlnk(nullptr, nullptr, nullptr, nullptr) |
                  type.readfile(nullptr, nullptr, nullptr, nullptr),
              0);
    EXPECT_EQ(log.lines().size(), 12u);
    EXPECT_EQ(type.cmdopt_handler(nullptr, 'x', nullptr), EOPNOTSUPP);
}

}  // namespace
