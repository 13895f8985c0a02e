#include "base/cleanup.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing::ExitedWithCode;

int create(const std::string &path) {
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

int add(const std::string &path) {
    return mktfs_cleanup_add(path.c_str(),
                             fs::is_directory(path) ? open(path.c_str(), O_RDONLY) : create(path));
}

TEST(CleanupDeathTest, AnEndingSignalWaitsForTheRegistrationAndRemovesTheFileUnlessIgnored) {
    const temp_dir dir;
    const std::string path = dir / "out";
    const auto raise_between = [&path](int signal, bool ignored) {
        const rlimit no_core_dump = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core_dump);
        std::signal(signal, ignored ? SIG_IGN : SIG_DFL);
        mktfs_cleanup_install();
        {
            const mktfs_signal_guard guard;
            const int descriptor = create(path);
            raise(signal);
            static_cast<void>(mktfs_cleanup_add(path.c_str(), descriptor));
        }
        _exit(9);
    };
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU, SIGXFSZ, SIGBUS}) {
        SCOPED_TRACE(strsignal(signal));
        EXPECT_EXIT(raise_between(signal, false), testing::KilledBySignal(signal), "^$");
        EXPECT_FALSE(fs::exists(path));
    }
    EXPECT_EXIT(raise_between(SIGINT, true), ExitedWithCode(9), "");
    EXPECT_TRUE(fs::exists(path));
}

TEST(CleanupDeathTest, AMappingThatLosesItsPagesEndsAsInputError) {
    const temp_dir dir;
    const std::string input = dir.file("in", std::string(8192, 'x'));
    const auto lose_pages = [&] {
        mktfs_cleanup_install();
        static_cast<void>(add(dir / "out"));
        const void *bytes = mmap(nullptr, 8192, PROT_READ, MAP_SHARED, create(input), 0);
        fs::resize_file(input, 0);
        _exit(static_cast<const volatile char *>(bytes)[4096]);
    };
    EXPECT_EXIT(lose_pages(), ExitedWithCode(5),
                "^mktfs: an input file changed or failed while it was read "
                "\\(Input/output error\\), run again when nothing writes to it\n$");
    EXPECT_FALSE(fs::exists(dir / "out"));
}

TEST(CleanupDeathTest, ExitRemovesOnlyWhatIsStillPendingAndOurs) {
    const temp_dir dir;
    dir.link("link", "target");
    const auto make_all_and_exit = [&dir] {
        mktfs_cleanup_install();
        mktfs_cleanup_forget(add(dir / "forgotten"));
        for (const std::string &path : {dir / "pending", dir / "replaced", dir / "link", dir.folder("folder"),
                                        dir.folder("f"), dir / "folder/pending"})
            static_cast<void>(add(path));
        fs::remove(dir / "replaced");
        dir.file("replaced", "somebody else's");
        mktfs_cleanup_forget(add(dir / "f/complete"));
        for (int i = 0; i < 100; ++i)  // a slot is offered again
            mktfs_cleanup_remove(add(dir / "removed"));
        mktfs_cleanup_finish(add(dir / "finished"));
        std::exit(add("/dev/null") == -1 && !fs::exists(dir / "removed") ? 3 : 9);
    };
    EXPECT_EXIT(make_all_and_exit(), ExitedWithCode(3), "");
    std::set<std::string> left;
    for (const auto &entry : fs::recursive_directory_iterator(dir.path()))
        left.insert(entry.path().lexically_relative(dir.path()));
    EXPECT_THAT(left, testing::ElementsAre("f", "f/complete", "finished", "forgotten", "link", "replaced"));
    EXPECT_EQ(read_file(dir / "replaced"), "somebody else's");
}

}  // namespace
