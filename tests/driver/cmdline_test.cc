#include "driver/cmdline.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/log_capture.h"

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

}  // namespace
