// The signing command without a shell: system() and the temporary folder are replaced
// at link time.  The command that would run is the user's with both tokens replaced,
// or none runs; and no temporary file is left.
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "base/log.h"
#include "image_input.h"
#include "support/require.h"
#include "support/temp_dir.h"
#include "tcrypto/tcrypto.h"
#include "ttd/custom_sign.h"

static constexpr std::size_t COMMAND_SIZE = 4096;  // with the terminator
static constexpr std::uint32_t FIRST_PURE = 3;

// One run: what goes in, and what the command saw.
static struct {
    std::string folder;
    int status = 0;
    std::string signature;
    std::optional<std::string> command;
    std::string hash_file, signature_file, message;
} run;

static void find_files() {
    for (const auto &entry : std::filesystem::directory_iterator(run.folder)) {
        const bool is_hash = entry.path().filename().string().starts_with("ttd_hash-");
        // As the tool writes it: the folder's name, one slash, the file's.
        (is_hash ? run.hash_file : run.signature_file) = run.folder + "/" + entry.path().filename().string();
    }
    require(!run.hash_file.empty() && !run.signature_file.empty());
}

extern "C" int __real_system(const char *command);
extern "C" int __wrap_system(const char *command);
extern "C" int __wrap_system(const char *command) {
    if (run.folder.empty())
        return __real_system(command);  // the fuzzer's own
    run.command = command;
    find_files();
    run.message = read_file(run.hash_file);
    std::ofstream(run.signature_file, std::ios::binary) << run.signature;
    return run.status;
}

extern "C" const char *__wrap__Z12mktfs_tmpdirv();
extern "C" const char *__wrap__Z12mktfs_tmpdirv() {
    return run.folder.c_str();
}

static int ignore(int, const char *, ...) {
    return 0;
}

// From left to right, not looking into what was inserted.
static std::string replaced(const std::string &text, const std::string &token, const std::string &value) {
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const bool here = text.compare(at, token.size(), token) == 0;
        result += here ? value : text.substr(at, 1);
        at += here ? token.size() : 1;
    }
    return result;
}

static bool acts_on_the_shell(const std::string &folder) {
    return std::ranges::any_of(folder, [](char c) {
        return static_cast<unsigned char>(c) < ' ' || c == 0x7f ||
               std::strchr("$`\"'\\;&|<>()", c) != nullptr;
    });
}

static void check(ttd_superblock superblock, std::uint32_t sigtype, const std::string &command) {
    const ttd_superblock before = superblock;
    const int err = ttd_custom_sign_superblock(sigtype, command.c_str(), &superblock);
    require(std::filesystem::is_empty(run.folder));
    require(std::memcmp(&before, &superblock, TTD_SIGNED_SIZE) == 0);
    require(!acts_on_the_shell(run.folder) || (!run.command && err == EINVAL));
    if (!run.command) {
        require(err != 0);
        return;
    }
    const std::string with_hash = replaced(command, "<hashfile>", run.hash_file);
    require(*run.command == replaced(with_hash, "<sigfile>", run.signature_file));
    require(with_hash.size() < COMMAND_SIZE && run.command->size() < COMMAND_SIZE);
    require(run.message.size() == (sigtype >= FIRST_PURE ? TTD_SIGNED_SIZE : 32));
    const bool read = run.status == 0 && run.signature.size() <= TTD_MAX_SIGNATURE && !run.signature.empty();
    require(superblock.sigsize == (err == 0 && read ? run.signature.size() : 0));
    require(err != 0 || !read ||
            std::memcmp(superblock.sig, run.signature.data(), run.signature.size()) == 0);
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    mktfs_register_log_fct(ignore);
    require(tcrypto_init(0, nullptr) == TCRYPTO_OK);  // kept up between the runs
    return 0;
}

// A letter that chooses, then lines: the temporary folder's name, the signature, and
// the command with all that follows.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const temp_dir work;
    std::string text(reinterpret_cast<const char *>(data), size);
    const auto next_line = [&] {
        const std::string line = text.substr(0, text.find('\n'));
        text.erase(0, line.size() + 1);
        return line;
    };
    const std::string choices = next_line(), name = std::string(next_line().c_str());
    if (choices.empty() || name.find('/') != name.npos || name == ".." || name.size() > NAME_MAX)
        return 0;
    run = {.folder = work / name, .status = (choices[0] & 1) != 0 ? 256 : 0, .signature = next_line()};
    if ((choices[0] & 2) != 0)
        run.signature.resize(TTD_MAX_SIGNATURE + run.signature.size() % 2, 's');
    work.folder(name);
    verbose = 3;
    check({.magic = TTD_MAGIC}, 1 + (static_cast<std::uint32_t>(choices[0]) >> 2) % 4, text.c_str());
    if (!name.empty() && name != ".")
        std::filesystem::remove(run.folder);
    run = {};
    return 0;
}
