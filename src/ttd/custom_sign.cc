#include "ttd/custom_sign.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "base/hex.h"
#include "base/host.h"
#include "base/log.h"
#include "base/progress.h"
#include "base/temporary_file.h"
#include "io/io.h"
#include "ttd/signature.h"

namespace {

constexpr std::size_t COMMAND_SIZE = 4096;

// The paths go into a shell command unquoted, since the user may quote the tokens;
// blanks are the user's business, characters that would run something are not.
bool is_safe_for_shell(const char *path) {
    for (const char *c = path; *c; ++c)
        if (static_cast<unsigned char>(*c) < ' ' || *c == 0x7f || std::strchr("$`\"'\\;&|<>()", *c))
            return false;
    return true;
}

int digest_signed_bytes(const ttd_superblock &superblock,
                        std::span<std::uint8_t, TTD_SIGNED_DIGEST_SIZE> out) {
    const int err = ttd_signed_digest(superblock, out);
    if (err == ENOENT)
        return MKTFS_FAIL(err, "ttd: failed to retrieve tcrypto hash algorithm sha256\n");
    return err == 0 ? 0 : MKTFS_FAIL(err, "ttd: failed to perform superblock hash\n");
}

void trace_bytes(std::span<const std::uint8_t> bytes) {
    mktfs_print_hex(bytes.data(), bytes.size());
    mktfs_log(MKTFS_LOG_INFO, "\n");
}

// One signing operation, in the order of its steps.
class command_signer {
public:
    command_signer(std::uint32_t sigtype, const char *command, ttd_superblock &superblock)
        : sigtype_(sigtype), user_command_(command), superblock_(superblock) {}

    [[nodiscard]] int run() {
        if (const int err = name_files(); err != 0)
            return err;
        if (const int err = choose_message(); err != 0)
            return err;
        if (const int err = create_files(); err != 0)
            return err;
        if (const int err = make_command(); err != 0)
            return err;
        if (const int err = write_message(); err != 0)
            return err;
        bool signature_is_there = false;
        if (const int err = run_command(signature_is_there); err != 0 || !signature_is_there)
            return err;
        return read_signature();
    }

    // Tries the first steps; leaves nothing behind.
    [[nodiscard]] int check() {
        if (const int err = name_files(); err != 0)
            return err;
        return access(mktfs_tmpdir(), F_OK) == 0 ? 0 : create_files();
    }

private:
    [[nodiscard]] int name_files() {
        if (!hash_file_.name(mktfs_tmpdir(), "/ttd_hash-XXXXXX"))
            return MKTFS_FAIL(EINVAL, "ttd: hash filename too long\n");
        if (!signature_file_.name(mktfs_tmpdir(), "/ttd_sig-XXXXXX"))
            return MKTFS_FAIL(EINVAL, "ttd: sig filename too long\n");
        if (!is_safe_for_shell(mktfs_tmpdir()))
            return MKTFS_FAIL(EINVAL,
                              "ttd: temporary folder '%s' has characters that the shell would act on, set "
                              "TMPDIR to another one\n",
                              mktfs_tmpdir());
        return 0;
    }

    [[nodiscard]] int choose_message() {
        message_ = ttd_signed_bytes(superblock_);
        if (!ttd_sig_is_pure(sigtype_)) {
            if (const int err = digest_signed_bytes(superblock_, digest_); err != 0)
                return err;
            message_ = digest_;
        }
        if (verbose > 2) {
            mktfs_log(MKTFS_LOG_INFO, "sig hash: ");
            trace_bytes(message_);
        }
        return 0;
    }

    [[nodiscard]] int create_files() {
        if (const int err = hash_file_.create(); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to create temporary hash file as '%s'\n", hash_file_.path());
        if (const int err = signature_file_.create(); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to create temporary sig file as '%s'\n",
                              signature_file_.path());
        return 0;
    }

    [[nodiscard]] int make_command() {
        char with_hash[COMMAND_SIZE];
        if (mktfs_strreplace(user_command_, "<hashfile>", hash_file_.path(), with_hash, sizeof with_hash) !=
            0)
            return MKTFS_FAIL(EINVAL, "ttd: failed to replace hashfile token in signing cmd\n");
        if (mktfs_strreplace(with_hash, "<sigfile>", signature_file_.path(), command_, sizeof command_) != 0)
            return MKTFS_FAIL(EINVAL, "ttd: failed to replace sigfile token in signing cmd\n");
        if (verbose > 1)
            mktfs_log(MKTFS_LOG_INFO, "ttd: executing signing command: %s\n", command_);
        return 0;
    }

    [[nodiscard]] int write_message() {
        mktfs_io_ptr file;
        int err = mktfs_io_fd_create(hash_file_.descriptor(), th_out(file));
        if (err == 0)
            err = mktfs_io_write(file.get(), 0, message_.data(), message_.size());
        if (err == 0)
            return 0;
        return MKTFS_FAIL(err, "ttd: error writing meta data hash to '%s' (%s)\n", hash_file_.path(),
                          strerror(err));
    }

    // A command that merely exits non-zero sets no errno and leaves the signature
    // empty on purpose.
    [[nodiscard]] int run_command(bool &signature_is_there) {
        std::fflush(nullptr);
        mktfs_progress_wipe();  // the terminal is the command's now
        errno = 0;
        const int status = std::system(command_);
        const int err = errno;
        if (status != -1 && WIFSIGNALED(status) &&
            (WTERMSIG(status) == SIGINT || WTERMSIG(status) == SIGQUIT))
            std::raise(WTERMSIG(status));
        signature_is_there = status == 0;
        return signature_is_there ? 0 : err;
    }

    [[nodiscard]] int read_signature() {
        mktfs_io_ptr file;
        if (const int err = mktfs_io_fd_create(signature_file_.descriptor(), th_out(file)); err != 0)
            return MKTFS_FAIL(err, "ttd: failed to create sigfile io\n");
        const std::uint64_t size = mktfs_io_size(file.get());
        int err = size <= TTD_MAX_SIGNATURE ? 0 : EINVAL;
        if (err == 0)
            err = mktfs_io_read(file.get(), 0, superblock_.sig, size);
        if (err != 0)
            return MKTFS_FAIL(err, "ttd: failed to read signature file\n");
        superblock_.sigsize = static_cast<std::uint32_t>(size);
        if (verbose > 1) {
            mktfs_log(MKTFS_LOG_INFO, "sig (%u): ", superblock_.sigsize);
            trace_bytes({superblock_.sig, superblock_.sigsize});
        }
        return 0;
    }

    const std::uint32_t sigtype_;
    const char *const user_command_;
    ttd_superblock &superblock_;
    std::uint8_t digest_[TTD_SIGNED_DIGEST_SIZE] = {};
    std::span<const std::uint8_t> message_;  // what the command signs
    mktfs_temporary_file hash_file_;
    mktfs_temporary_file signature_file_;  // removed before the hash file
    char command_[COMMAND_SIZE] = "";
};

}  // namespace

int ttd_check_custom_sign() {
    ttd_superblock nothing{};
    return command_signer(0, "", nothing).check();
}

int ttd_custom_sign_superblock(std::uint32_t sigtype, const char *command, ttd_superblock *superblock) {
    return command_signer(sigtype, command, *superblock).run();
}
