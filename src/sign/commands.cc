#include "sign/commands.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <deque>

#include "base/host.h"
#include "base/json.h"
#include "sign/replace.h"
#include "ttd/image_file.h"
#include "ttd/signature.h"

namespace {

constexpr unsigned JSON_VERSION = 1;

enum class outcome {
    REFUSED,
    UNCHANGED,
    SIGNED,
};

// An image with its old and its new superblock.
struct job {
    const char *path = nullptr;
    ttd_image_file image;
    ttd_superblock before{};
    ttd_superblock after{};
    outcome result = outcome::REFUSED;
};

int refuse(const char *path, int err, const char *reason) {
    std::fprintf(stderr, "ttdsign: %s: %s\n", path, reason);
    return err;
}

int refuse(const char *path, int err) {
    return refuse(path, err, std::strerror(err));
}

const char *type_name(const ttd_superblock &superblock) {
    const ttd_signature_row *row = ttd_sig_row(superblock.sigtype);
    return row ? row->option : "unknown";
}

// ---- Reading

int check_superblock(const char *path, const ttd_superblock &superblock) {
    if (superblock.magic != TTD_MAGIC || superblock.version != TTD_VERSION)
        return refuse(path, EINVAL, "not a ttd image of a known version");
    if (!ttd_sig_row(superblock.sigtype))
        return refuse(path, EINVAL, "the superblock names no known signature type");
    return 0;
}

int open_image(const char *path, bool writable, ttd_image_file &image) {
    const int err = image.open(path, writable);
    if (err == EINVAL)
        return refuse(path, err, "no regular file or block device of at least 4096 bytes");
    if (err != 0)
        return refuse(path, err);
    // No other run writes the image while it is open here.
    if (writable && mktfs_claim_file(path, image.descriptor()) != 0)
        return refuse(path, EAGAIN, "another program is writing it");
    return 0;
}

int read_image(const char *path, bool writable, ttd_image_file &image, ttd_superblock &superblock) {
    if (const int err = open_image(path, writable, image); err != 0)
        return err;
    if (const int err = image.read_superblock(&superblock); err != 0)
        return refuse(path, err);
    return check_superblock(path, superblock);
}

int read_job(const ttdsign_settings &with, const char *path, job &to) {
    to.path = path;
    const int err = read_image(path, !with.dry_run, to.image, to.before);
    to.after = to.before;
    return err;
}

// ---- Reporting

const char *result_text(const job &of, bool dry_run) {
    if (of.result == outcome::UNCHANGED)
        return "unchanged";
    return dry_run ? "to be signed" : "signed";
}

void print_line(const job &of, bool dry_run) {
    std::printf("%s: %s, %s, rollback %" PRIu64, of.path, result_text(of, dry_run), type_name(of.after),
                of.after.rollback);
    if (of.before.rollback != of.after.rollback)
        std::printf(" (was %" PRIu64 ")", of.before.rollback);
    if (of.before.sigtype != of.after.sigtype)
        std::printf(" (was %s)", type_name(of.before));
    std::printf("\n");
}

void print_json(const std::deque<job> &jobs, bool dry_run) {
    mktfs_json whole(stdout);
    whole.number("version", JSON_VERSION);
    whole.boolean("dry_run", dry_run);
    mktfs_json images = whole.array("images");
    for (const job &of : jobs) {
        mktfs_json entry = images.object(nullptr);
        entry.text("path", of.path);
        entry.boolean("refused", of.result == outcome::REFUSED);
        entry.boolean("changes", of.result == outcome::SIGNED);
        entry.text("signature_type", type_name(of.after));
        entry.number("rollback", of.after.rollback);
        entry.text("old_signature_type", type_name(of.before));
        entry.number("old_rollback", of.before.rollback);
    }
}

void print(const ttdsign_settings &with, const std::deque<job> &jobs) {
    if (with.json)
        return print_json(jobs, with.dry_run);
    for (const job &of : jobs)
        if (of.result != outcome::REFUSED)
            print_line(of, with.dry_run);
}

// ---- Changing

int replace(const ttdsign_settings &with, job &of) {
    if (with.dry_run || of.result != outcome::SIGNED)
        return 0;
    const int err = ttdsign_replace(of.path, of.image, of.before, of.after);
    if (err == 0)
        return 0;
    of.result = outcome::REFUSED;
    return refuse(of.path, err,
                  err == EOPNOTSUPP ? "the superblock of this device cannot be replaced in one write"
                                    : std::strerror(err));
}

// Changes made before an error are still reported.
int replace_all(const ttdsign_settings &with, std::deque<job> &jobs) {
    int result = 0;
    for (job &of : jobs) {
        if (result == 0)
            result = replace(with, of);
        else
            of.result = outcome::REFUSED;
    }
    print(with, jobs);
    return result;
}

// ---- message

int write_message(std::span<const std::uint8_t> bytes, const char *path) {
    std::FILE *out = path ? std::fopen(path, "wbe") : stdout;
    if (!out)
        return refuse(path, errno);
    const bool whole =
        std::fwrite(bytes.data(), 1, bytes.size(), out) == bytes.size() && std::fflush(out) == 0;
    const int err = whole ? 0 : errno;
    if (path && std::fclose(out) != 0)
        return refuse(path, errno);
    return err == 0 ? 0 : refuse(path ? path : "standard output", err);
}

// ---- join

int read_signature(const char *path, ttd_superblock &superblock) {
    std::uint8_t bytes[TTD_MAX_SIGNATURE + 1];
    std::size_t size = 0;
    if (const int err = mktfs_read_file(path, bytes, &size); err != 0)
        return refuse(path, err);
    if (size == 0 || size > TTD_MAX_SIGNATURE)
        return refuse(path, EINVAL, "a signature has 1 to 3832 bytes");
    std::memset(superblock.sig, 0, sizeof superblock.sig);
    std::memcpy(superblock.sig, bytes, size);
    superblock.sigsize = static_cast<std::uint32_t>(size);
    return 0;
}

bool same(const ttd_superblock &a, const ttd_superblock &b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// ---- resign

// The keys of one run.  Each file is read once, since it may be a pipe.
class key_ring {
public:
    explicit key_ring(const ttdsign_settings &with) : with_(with) {}

    [[nodiscard]] int load() {
        if (const int err = ttd_load_private_key(with_.sigtype, with_.key, &signing_); err != 0)
            return err;
        return ttd_public_key_of(signing_, &proving_);
    }
    // Whether the old key signed the superblock; true if that is not to be checked.
    [[nodiscard]] bool old_signature_holds(const ttd_superblock &superblock) {
        if (with_.unchecked)
            return true;
        if (old_type_ != superblock.sigtype) {
            old_ = {};
            if (ttd_load_public_key(superblock.sigtype, with_.old_key, &old_) != 0)
                return false;
            old_type_ = superblock.sigtype;
        }
        return ttd_verify_with_key(&superblock, old_) == 0;
    }
    [[nodiscard]] bool new_key_signed(const ttd_superblock &superblock) const {
        return superblock.sigtype == with_.sigtype && superblock.sigsize != 0 &&
               ttd_verify_with_key(&superblock, proving_) == 0;
    }
    [[nodiscard]] int sign(ttd_superblock &superblock) const {
        std::memset(superblock.sig, 0, sizeof superblock.sig);
        return ttd_sign_with_key(&superblock, signing_);
    }

private:
    const ttdsign_settings &with_;
    ttd_key signing_;
    ttd_key proving_;
    ttd_key old_;
    std::uint32_t old_type_ = 0;
};

int sign_job(const ttdsign_settings &with, key_ring &keys, job &of) {
    of.after.sigtype = with.sigtype;
    of.after.rollback = with.rollback.value_or(of.before.rollback);
    if (of.after.rollback == of.before.rollback && keys.new_key_signed(of.before)) {
        of.result = outcome::UNCHANGED;
        return 0;
    }
    if (!keys.old_signature_holds(of.before))
        return refuse(of.path, EINVAL,
                      "the old key does not prove its signature (--unchecked would not ask for that)");
    if (const int err = keys.sign(of.after); err != 0)
        return refuse(of.path, err, "it could not be signed");
    if (with.unchecked)
        std::fprintf(stderr, "ttdsign: %s: the old signature was not checked\n", of.path);
    of.result = outcome::SIGNED;
    return 0;
}

// Every refusal is reported; the first one is the result.
int sign_all(const ttdsign_settings &with, key_ring &keys, std::deque<job> &jobs) {
    int result = 0;
    for (const char *path : with.images) {
        job &of = jobs.emplace_back();
        int err = read_job(with, path, of);
        if (err == 0)
            err = sign_job(with, keys, of);
        if (result == 0)
            result = err;
    }
    return result;
}

}  // namespace

int ttdsign_message(const ttdsign_settings &with) {
    const char *path = with.images.front();
    ttd_image_file image;
    ttd_superblock superblock{};
    if (const int err = read_image(path, false, image, superblock); err != 0)
        return err;
    std::span<const std::uint8_t> message = ttd_signed_bytes(superblock);
    std::uint8_t digest[TTD_SIGNED_DIGEST_SIZE];
    if (with.digest) {
        if (ttd_sig_is_pure(superblock.sigtype))
            return refuse(path, EINVAL, "its signature type signs the bytes themselves, not a digest");
        if (const int err = ttd_signed_digest(superblock, digest); err != 0)
            return refuse(path, err);
        message = digest;
    }
    return write_message(message, with.output);
}

int ttdsign_join(const ttdsign_settings &with) {
    std::deque<job> jobs(1);
    job &of = jobs.front();
    if (const int err = read_job(with, with.images.front(), of); err != 0)
        return err;
    if (const int err = read_signature(with.signature, of.after); err != 0)
        return err;
    ttd_key key;
    if (const int err = ttd_load_public_key(of.after.sigtype, with.key, &key); err != 0)
        return err;
    if (const int err = ttd_verify_with_key(&of.after, key); err != 0)
        return refuse(of.path, err, "the key does not prove this signature of the image");
    of.result = same(of.before, of.after) ? outcome::UNCHANGED : outcome::SIGNED;
    return replace_all(with, jobs);
}

int ttdsign_resign(const ttdsign_settings &with) {
    key_ring keys(with);
    if (const int err = keys.load(); err != 0)
        return err;
    std::deque<job> jobs;
    if (const int err = sign_all(with, keys, jobs); err != 0) {
        std::fputs("ttdsign: no image was changed\n", stderr);
        return err;
    }
    return replace_all(with, jobs);
}
