// The command line: lines of the input are arguments.  The run's folder is a temporary
// one, and arguments that could lead out of it are left out.  No command is run, and
// exit() comes back to the target; both are replaced at link time.  A run that fails
// leaves nothing new, and none changes a file that no argument names.
#include <unistd.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "base/log.h"
#include "driver/cmdline.h"
#include "fs/filesystem.h"
#include "support/require.h"
#include "support/temp_dir.h"
#include "tcrypto/tcrypto.h"
#include "tree/inode.h"
#include "tree/search_path.h"
#include "ttd/format.h"

namespace files = std::filesystem;

static constexpr std::size_t MAX_DIGITS = 6;  // of a number that is a size of the output
static std::map<std::string, std::string> inputs;
static bool running = false;

// What a run leaves to the end of the process is given up.
extern "C" int __lsan_is_turned_off() {
    return 1;
}
extern "C" std::size_t __sanitizer_get_allocated_size(const volatile void *memory);

extern "C" [[noreturn]] void __real_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status);
extern "C" [[noreturn]] void __wrap_exit(int status) {
    if (running)
        throw status;
    __real_exit(status);
}
extern "C" int __real_system(const char *command);
extern "C" int __wrap_system(const char *command);
extern "C" int __wrap_system(const char *command) {
    return running ? 256 : __real_system(command);  // the fuzzer's own
}

// Short of what would touch other folders, name devices, or ask for a huge image.
static bool is_harmless(const std::string &argument) {
    std::size_t digits = 0, most = 0;
    for (const char c : argument)
        most = std::max(most, digits = c >= '0' && c <= '9' ? digits + 1 : 0);
    const bool sized = argument.starts_with('-') && argument.find('P') == argument.npos;
    return argument.find('/') == argument.npos && argument.find("..") == argument.npos &&
           (sized || most <= MAX_DIGITS);
}

static std::vector<std::string> arguments_of(const std::uint8_t *data, std::size_t size) {
    std::vector<std::string> arguments = {"mktfs"};
    const std::string text = std::string(reinterpret_cast<const char *>(data), size).c_str();
    for (std::size_t at = 0, end = 0; at < text.size(); at = end + 1) {
        end = std::min(text.find('\n', at), text.size());
        if (const std::string argument = text.substr(at, end - at); is_harmless(argument))
            arguments.push_back(argument);
    }
    return arguments;
}

// Frees what a run that did not come to its end left in the record.
static void release_record() {
    mktfs_filesystem &fs = *mktfs_get_filesystem();
    if (fs.priv != nullptr && __sanitizer_get_allocated_size(fs.priv) == sizeof(ttd_superblock))
        mktfs_filesystem_extract_finit(&fs);
    else if (fs.priv != nullptr)
        mktfs_filesystem_build_finit(&fs);
    mktfs_filesystem_free(&fs);
    mktfs_clean_search_paths();
}

static int run(std::vector<std::string> &arguments) {
    std::vector<char *> vector;
    for (std::string &argument : arguments)
        vector.push_back(argument.data());
    vector.push_back(nullptr);
    optind = 0;  // makes getopt forget where it was
    (void)getopt(1, vector.data(), "");
    verbose = abort_on_warning = 0;
    int status = 0;
    running = true;
    try {
        status = mktfs_main(static_cast<int>(arguments.size()), vector.data());
    } catch (int ended) {
        status = ended;
    }
    running = false;
    release_record();
    return status;
}

static void restore() {
    for (const auto &entry : files::directory_iterator("."))
        files::remove_all(entry.path());
    for (const auto &[name, text] : inputs)
        std::ofstream(name, std::ios::binary) << text;
    files::create_directory("tmp");
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    static const temp_dir work;
    const std::string image = read_file(GOOD_IMAGE);
    inputs = {{"image", image},
              {"in", image.substr(0, 1536)},
              {"key", read_file(MKTFS_TEST_DATA "/ed25519.pem")},
              {"pub", read_file(MKTFS_TEST_DATA "/ed25519.pub.pem")},
              {"list", "[dir uid=0] /d\n[file gid=\"7\"] /d/f = in\n[link] /l = /d/f\n"}};
    require(tcrypto_init(0, nullptr) == TCRYPTO_OK);  // kept up between the runs
    require(chdir(work.path().c_str()) == 0 && setenv("TMPDIR", "tmp", 1) == 0 &&
            unsetenv("TAV_TARGET") == 0);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    restore();
    std::vector<std::string> arguments = arguments_of(data, size);
    const std::vector<std::string> given = arguments;
    const bool failed = run(arguments) != 0;
    const auto is_named = [&](const std::string &name) {
        return std::ranges::any_of(given, [&](const auto &text) { return text.ends_with(name); });
    };
    for (const auto &[name, text] : inputs)
        require(is_named(name) || (files::exists(name) && read_file(name) == text));
    const auto left = std::distance(files::recursive_directory_iterator("."), {});
    require(!failed || left <= static_cast<std::ptrdiff_t>(inputs.size()) + 1);
    return 0;
}
