#include "driver/cmdline.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "driver/modes.h"
#include "fs/filesystem.h"
#include "fs/stats.h"
#include "io/io.h"
#include "support/log_capture.h"
#include "support/temp_dir.h"

namespace {

int run(std::vector<std::string> arguments) {
    std::vector<char *> vector;
    for (std::string &argument : arguments)
        vector.push_back(argument.data());
    vector.push_back(nullptr);
    return mktfs_main(static_cast<int>(arguments.size()), vector.data());
}

// Under the default log function these end at the fatal message.
TEST(CommandLine, GoesOnHarmlesslyWhenFatalMessagesReturn) {
    const struct {
        const char *name;
        std::vector<std::string> arguments;
        int status;
        const char *messages;
    } cases[] = {
        {"both modes: extraction, which needs a folder",
         {"mktfs", "ttd", "-x", "-y", "in"},
         1,
         "can't mix options -y and -x\nmissing -o option\n"},
        {"extraction without folder",
         {"mktfs", "ttd", "-x", "-f", "in"},
         1,
         "missing -o option\nmissing -o option\n"},
        {"no search paths", {"mktfs", "test", "in"}, EINVAL, "TAV_TARGET env variable is not defined\n"},
        {"verification without image",
         {"mktfs", "ttd", "-y"},
         EINVAL,
         "missing input file\nFilesystem verification failed (Invalid argument)\n"},
    };
    unsetenv("TAV_TARGET");
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const log_capture log;
        EXPECT_EQ(run(c.arguments), c.status);
        EXPECT_EQ(log.text(), c.messages);
    }
}

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

}  // namespace
