#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "driver/modes.h"
#include "driver/template_type.h"
#include "fs/filesystem.h"
#include "io/io.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

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
}

// Nothing selects it.
TEST(TemplateType, LogsItsHooks) {
    const mktfs_backend &type = *template_backend();
    const log_capture log;
    EXPECT_EQ(
        type.build_init(nullptr) | type.build(nullptr, nullptr) | type.readfile(nullptr, nullptr, {}, {}), 0);
    EXPECT_EQ(log.text(), "template_fsys_init\ntemplate_fsys_build\ntemplate_fsys_readfile\n");
}
