#include "driver/template_type.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "fs/filesystem.h"
#include "support/log_capture.h"

namespace {

TEST(TemplateType, EveryHookLogsItsNameAndSucceeds) {
    const mktfs_backend &type = *template_backend();
    const log_capture log;
    type.usage();
    type.print_stats(nullptr);
    type.build_finit(nullptr);
    type.extract_finit(nullptr);
    EXPECT_EQ(type.build_init(nullptr) | type.build(nullptr, nullptr) | type.extract_init(nullptr), 0);
    EXPECT_EQ(type.mount(nullptr, nullptr) | type.readroot(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(type.readdir(nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(type.readlnk(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(type.readfile(nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(log.text(), "template_usage\ntemplate_print_stats stats\n"
                          "template_fsys_finit\ntemplate_fsys_finit\n"
                          "template_fsys_init\ntemplate_fsys_build\ntemplate_fsys_init\n"
                          "template_fsys_mount\ntemplate_fsys_readroot\ntemplate_fsys_readdir\n"
                          "template_fsys_readlink\ntemplate_fsys_readfile\n");
    for (const log_line &line : log.lines())
        EXPECT_EQ(line.level, MKTFS_LOG_INFO);
    EXPECT_EQ(type.cmdopt_handler(nullptr, 'x', nullptr), EOPNOTSUPP);
}

}  // namespace
