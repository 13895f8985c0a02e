#include "base/cleanup.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing::ExitedWithCode;
using testing::KilledBySignal;

int create(const std::string &path) {
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

int create_registered(const std::string &path) {
    return mktfs_cleanup_add(path.c_str(), create(path));
}

void install_without_core_dumps() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
    mktfs_cleanup_install();
}

void ignore(int signal) {
    std::signal(signal, SIG_IGN);
}

TEST(CleanupDeathTest, AnEndingSignalWaitsForTheRegistrationAndRemovesTheFile) {
    const temp_dir dir;
    const std::string path = dir / "out";
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU, SIGXFSZ, SIGBUS}) {
        SCOPED_TRACE(strsignal(signal));
        EXPECT_EXIT(
            {
                install_without_core_dumps();
                {
                    const mktfs_signal_guard guard;
                    const int descriptor = create(path);
                    raise(signal);
                    static_cast<void>(mktfs_cleanup_add(path.c_str(), descriptor));
                }
                _exit(9);
            },
            KilledBySignal(signal), "^$");
        EXPECT_FALSE(fs::exists(path));
    }
}

TEST(CleanupDeathTest, SignalsIgnoredAtTheStartStayIgnored) {
    const temp_dir dir;
    const std::string path = dir / "out";
    EXPECT_EXIT(
        {
            ignore(SIGINT);
            mktfs_cleanup_install();
            const int slot = create_registered(path);
            raise(SIGINT);
            mktfs_cleanup_forget(slot);
            _exit(fs::exists(path) ? 3 : 9);
        },
        ExitedWithCode(3), "");
}

TEST(CleanupDeathTest, AMappingThatLosesItsPagesEndsAsInputError) {
    const temp_dir dir;
    const std::string path = dir / "out", input = dir.file("in", std::string(8192, 'x'));
    EXPECT_EXIT(
        {
            mktfs_cleanup_install();
            static_cast<void>(create_registered(path));
            const int descriptor = open(input.c_str(), O_RDWR | O_CLOEXEC);
            const auto *bytes =
                static_cast<const volatile char *>(mmap(nullptr, 8192, PROT_READ, MAP_SHARED, descriptor, 0));
            if (ftruncate(descriptor, 0) != 0)
                _exit(9);
            _exit(bytes[4096]);
        },
        ExitedWithCode(5),
        "^mktfs: an input file changed or failed while it was read \\(Input/output error\\), run again when "
        "nothing writes to it\n$");
    EXPECT_FALSE(fs::exists(path));
}

TEST(CleanupDeathTest, ExitRemovesOnlyWhatIsStillPendingAndOurs) {
    const temp_dir dir;
    dir.link("link", "target");
    EXPECT_EXIT(
        {
            mktfs_cleanup_install();
            static_cast<void>(create_registered(dir / "pending"));
            mktfs_cleanup_forget(create_registered(dir / "forgotten"));
            static_cast<void>(create_registered(dir / "replaced"));
            fs::remove(dir / "replaced");
            dir.file("replaced", "somebody else's");
            static_cast<void>(create_registered(dir / "link"));
            for (const std::string &folder : {dir.folder("folder"), dir.folder("full")})
                static_cast<void>(mktfs_cleanup_add(folder.c_str(), open(folder.c_str(), O_RDONLY)));
            static_cast<void>(create_registered(dir / "folder/pending"));
            mktfs_cleanup_forget(create_registered(dir / "full/complete"));
            for (int i = 0; i < 100; ++i)  // a slot is offered again
                mktfs_cleanup_remove(create_registered(dir / "removed"));
            std::exit(create_registered("/dev/null") == -1 && !fs::exists(dir / "removed") ? 3 : 9);
        },
        ExitedWithCode(3), "");
    EXPECT_FALSE(fs::exists(dir / "pending"));
    EXPECT_TRUE(fs::exists(dir / "forgotten"));
    EXPECT_EQ(read_file(dir / "replaced"), "somebody else's");
    EXPECT_FALSE(fs::exists(dir / "target"));
    EXPECT_FALSE(fs::exists(dir / "folder"));
    EXPECT_TRUE(fs::exists(dir / "full/complete"));
    EXPECT_TRUE(fs::exists("/dev/null"));
}

}  // namespace
