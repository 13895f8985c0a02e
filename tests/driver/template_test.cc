#include "driver/template_type.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "fs/filesystem.h"
#include "support/log_capture.h"

namespace {

TEST(TemplateType, EveryHookLogsItsNameAndSucceeds) {
    const mktfs_backend &type = *template_backend();
    log_capture log;
    const auto said = [&](int result) { return result == 0 ? log.text() : "failed"; };
    const auto expect = [&](const std::string &text, const char *line) {
        EXPECT_EQ(text, std::string(line) + "\n");
        for (const log_line &logged : log.take())
            EXPECT_EQ(logged.level, MKTFS_LOG_INFO);
    };
    type.usage();
    expect(log.text(), "template_usage");
    type.print_stats(nullptr);
    expect(log.text(), "template_print_stats stats");
    expect(said(type.build_init(nullptr)), "template_fsys_init");
    type.build_finit(nullptr);
    expect(log.text(), "template_fsys_finit");
    expect(said(type.build(nullptr, nullptr)), "template_fsys_build");
    expect(said(type.extract_init(nullptr)), "template_fsys_init");
    type.extract_finit(nullptr);
    expect(log.text(), "template_fsys_finit");
    expect(said(type.mount(nullptr, nullptr)), "template_fsys_mount");
    expect(said(type.readroot(nullptr, nullptr, nullptr)), "template_fsys_readroot");
    expect(said(type.readdir(nullptr, nullptr, nullptr)), "template_fsys_readdir");
    expect(said(type.readlnk(nullptr, nullptr, nullptr, nullptr)), "template_fsys_readlink");
    expect(said(type.readfile(nullptr, nullptr, nullptr, nullptr)), "template_fsys_readfile");

    EXPECT_EQ(type.opts_init(nullptr), 0);
    EXPECT_EQ(type.cmdopt_handler(nullptr, 'x', nullptr), EOPNOTSUPP);
    EXPECT_EQ(type.flags, MKTFS_BACKEND_SORTED);
    EXPECT_EQ(type.verify_init, nullptr);
    EXPECT_EQ(type.verify, nullptr);
    EXPECT_STREQ(type.name, "TEMPLATE");
}

}  // namespace
