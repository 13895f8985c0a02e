#include "fs/filesystem.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include "fs/diag.h"
#include "io/io.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

// The fake type answers `answer` everywhere and notes what was called.
int answer = 0;
std::string calls;

int note(const char *what) {
    calls += what;
    calls += ' ';
    return answer;
}

constinit const mktfs_backend fake = {
    .parser = {.parse_cfg_file = [](const char *path) { return note(path); }},
    .option_handler = [](mktfs_filesystem *, const char *name, const char *) { return note(name); },
    .inode_attr = [](mktfs_inode *, const char *name, const char *) { return note(name); },
    .build_init = [](mktfs_filesystem *) { return note("build_init"); },
    .build_finit = [](mktfs_filesystem *) { note("build_finit"); },
    .build = [](mktfs_filesystem *, mktfs_io *) { return note("build"); },
    .extract_init = [](mktfs_filesystem *) { return note("extract_init"); },
    .extract_finit = [](mktfs_filesystem *) { note("extract_finit"); },
    .verify_init = [](mktfs_filesystem *) { return note("verify_init"); },
    .verify_finit = [](mktfs_filesystem *) { note("verify_finit"); },
    .verify = [](mktfs_filesystem *, mktfs_io *image) { return note(mktfs_io_size(image) == 5 ? "5" : "?"); },
};
constinit const mktfs_backend empty = {};

class Dispatch : public testing::Test {
protected:
    void select(const mktfs_backend *backend, int new_answer) {
        mktfs_set_backend(backend);
        answer = new_answer;
        calls.clear();
    }
    ~Dispatch() override { mktfs_set_backend(nullptr); }

    temp_dir dir_;
    std::string image_ = dir_.file("image", "12345");
    mktfs_filesystem fs_;
};

TEST_F(Dispatch, ReachesTheSlotsAndReturnsTheirResults) {
    select(&fake, ERANGE);
    EXPECT_EQ(mktfs_filesystem_build_init(&fs_), ERANGE);
    EXPECT_EQ(mktfs_filesystem_parse("input"), 0);  // the parser reports its errors itself
    EXPECT_EQ(mktfs_filesystem_build(&fs_, nullptr), ERANGE);
    mktfs_filesystem_build_finit(&fs_);
    EXPECT_EQ(calls, "build_init input build build_finit ");

    select(&fake, EIO);
    EXPECT_EQ(mktfs_filesystem_extract_init(&fs_), EIO);
    mktfs_filesystem_extract_finit(&fs_);
    EXPECT_EQ(mktfs_filesystem_verify_init(&fs_), EIO);
    EXPECT_EQ(mktfs_filesystem_verify(&fs_, image_.c_str()), EIO);
    mktfs_filesystem_verify_finit(&fs_);
    const log_capture log;
    EXPECT_EQ(mktfs_filesystem_verify(&fs_, (image_ + "x").c_str()), ENOENT);  // never reaches the type
    EXPECT_EQ(calls, "extract_init extract_finit verify_init 5 verify_finit ");
}

TEST_F(Dispatch, EmptySlotsHaveFixedAnswers) {
    for (const mktfs_backend *backend : {&empty, static_cast<const mktfs_backend *>(nullptr)}) {
        select(backend, 0);
        EXPECT_EQ(mktfs_filesystem_build_init(&fs_), 0);
        EXPECT_EQ(mktfs_filesystem_extract_init(&fs_), 0);
        EXPECT_EQ(mktfs_filesystem_verify_init(&fs_), 0);
        mktfs_filesystem_build_finit(&fs_);
        mktfs_filesystem_extract_finit(&fs_);
        mktfs_filesystem_verify_finit(&fs_);
        EXPECT_EQ(mktfs_filesystem_parse("input"), EOPNOTSUPP);
        EXPECT_EQ(mktfs_filesystem_build(&fs_, nullptr), EOPNOTSUPP);
        EXPECT_EQ(mktfs_filesystem_verify(&fs_, "/nonexistent"), EOPNOTSUPP);
    }
}

TEST_F(Dispatch, BuildInitOverwritesTheDefaultsAndKeepsTheOptions) {
    select(&empty, 0);
    EXPECT_EQ(mktfs_filesystem_build_init(nullptr), EINVAL);
    EXPECT_EQ(mktfs_filesystem_extract_init(nullptr), EINVAL);
    fs_.uid = fs_.gid = fs_.root.uid = fs_.root.ino = 7;
    fs_.mtime = 7;
    fs_.opts.flags = MKTFS_OPT_NO_STATS;
    ASSERT_EQ(mktfs_filesystem_build_init(&fs_), 0);
    EXPECT_EQ(fs_.uid + fs_.gid + fs_.root.uid + fs_.root.ino, 0u);
    EXPECT_EQ(fs_.mtime, 0);
    EXPECT_EQ(fs_.root.nlink, 2);
    EXPECT_EQ(fs_.mtimefmt, "%s");
    EXPECT_EQ(fs_.opts.flags, MKTFS_OPT_NO_STATS);
}

TEST_F(Dispatch, RefusedAttributesAreParseErrors) {
    const struct {
        int answer;
        const char *value;
        const char *option, *attribute;
    } cases[] = {
        {0, "v", "", ""},
        {EINVAL, "v", "invalid value for option attribute 'n' ('v')\n",
         "invalid value for inode attribute 'n' ('v')\n"},
        {EINVAL, nullptr, "invalid value for option attribute 'n' ('nil')\n",
         "invalid value for inode attribute 'n' ('nil')\n"},
        {EOPNOTSUPP, "v", "unsupported option attribute 'n'\n", "unsupported inode attribute 'n'\n"},
        {ERANGE, "v", "failed to parse option attribute 'n' ('v')\n",
         "failed to parse inode attribute 'n' ('v') [Numerical result out of range]\n"},
    };
    const auto positioned = [](std::string text) { return text.empty() ? text : "(null):0:0:" + text; };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.option);
        select(&fake, c.answer);
        log_capture log;
        mktfs_backend_option_handler("n", c.value);
        EXPECT_EQ(log.text(), positioned(c.option));
        for (const log_line &line : log.take())
            EXPECT_EQ(line.level, MKTFS_LOG_FATAL);
        mktfs_backend_inode_attr(nullptr, "n", c.value);
        EXPECT_EQ(log.text(), positioned(c.attribute));
    }
}

}  // namespace
