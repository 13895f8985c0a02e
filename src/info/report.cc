#include "info/report.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/image_file.h"
#include "ttd/signature.h"
#include "ttd/superblock.h"

namespace {

// The engine's last complaint, which becomes the text of a problem.
char complaint[sizeof ttdinfo_problem::text];

[[gnu::format(printf, 2, 3)]] int keep_complaint(int level, const char *format, ...) {
    if (level < TTD_LOG_WARN)
        return 0;
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(complaint, sizeof complaint, format, args);
    va_end(args);
    complaint[std::strcspn(complaint, "\n")] = '\0';
    return length;
}

// Adds what the engine said, or `otherwise` when it said nothing.
void add_complaint(ttdinfo_report &report, int err, const char *otherwise) {
    ttdinfo_add_problem(&report, err, "%s", complaint[0] != '\0' ? complaint : otherwise);
}

// False when the fields cannot be read as those of this format.
bool check_identity(ttdinfo_report &report) {
    const ttd_superblock &superblock = report.engine.superblock;
    if (superblock.magic != TTD_MAGIC)
        ttdinfo_add_problem(&report, EINVAL, "not a ttd image: the magic number is 0x%08" PRIx32,
                            superblock.magic);
    else if (superblock.version != TTD_VERSION)
        ttdinfo_add_problem(&report, EINVAL, "version %" PRIu32 " of the format is not supported",
                            superblock.version);
    return report.problem_count == 0;
}

void check_fields(ttdinfo_report &report) {
    const ttd_superblock &superblock = report.engine.superblock;
    if (superblock.sigsize == 0)
        ttdinfo_add_problem(&report, EINVAL, "the image is not signed");
    else if (superblock.sigsize > TTD_MAX_SIGNATURE)
        ttdinfo_add_problem(&report, EINVAL, "the signature size is %" PRIu32 ", above %zu",
                            superblock.sigsize, TTD_MAX_SIGNATURE);
}

bool start_crypto(ttdinfo_report &report) {
    complaint[0] = '\0';
    if (const int err = ttd_tcrypto_init(&report.engine); err != 0) {
        add_complaint(report, err, "the algorithms are not available");
        return false;
    }
    report.hash_size = report.engine.info.hash_size;
    return true;
}

void check_signature(ttdinfo_report &report) {
    const ttd_superblock &superblock = report.engine.superblock;
    if (!report.public_key || superblock.sigsize == 0 || superblock.sigsize > TTD_MAX_SIGNATURE)
        return;
    complaint[0] = '\0';
    const int err = ttd_verify_superblock(&superblock, report.public_key);
    report.signature = err == 0 ? ttdinfo_verdict::GOOD : ttdinfo_verdict::BAD;
    if (err != 0)
        add_complaint(report, err, "the signature does not match");
}

void check_rollback(ttdinfo_report &report) {
    if (!report.min_rollback)
        return;
    complaint[0] = '\0';
    const int err = ttd_check_rollback(&report.engine.superblock, report.min_rollback);
    report.rollback = err == 0 ? ttdinfo_verdict::GOOD : ttdinfo_verdict::BAD;
    if (err != 0)
        add_complaint(report, err, "the anti-rollback version is too low");
}

// Reports sizes that are wrong in themselves; true when there is one.  A block size of 0
// must not reach the engine.
bool refuse_sizes(ttdinfo_report &report) {
    const ttd_superblock &superblock = report.engine.superblock;
    const std::size_t before = report.problem_count;
    if (!ttd_is_block_size(superblock.blksize))
        ttdinfo_add_problem(&report, EINVAL,
                            "the block size %" PRIu32 " is no power of two from 512 to 32768",
                            superblock.blksize);
    if (!ttd_is_block_size(superblock.hblksize))
        ttdinfo_add_problem(&report, EINVAL,
                            "the hash block size %" PRIu32 " is no power of two from 512 to 32768",
                            superblock.hblksize);
    if (superblock.saltsize < report.hash_size || superblock.saltsize > TTD_MAX_SALT)
        ttdinfo_add_problem(&report, EINVAL, "the salt size %" PRIu32 " is not %" PRIu32 " to %zu",
                            superblock.saltsize, report.hash_size, TTD_MAX_SALT);
    if (ttdinfo_is_partition(report) && superblock.totalsize < superblock.fssize)
        ttdinfo_add_problem(&report, EINVAL, "the inner image is larger than its partition");
    if (!ttdinfo_is_partition(report) && superblock.fssize == 0)
        ttdinfo_add_problem(&report, EINVAL, "the inner image is empty");
    return report.problem_count != before;
}

void derive_geometry(ttdinfo_report &report) {
    if (refuse_sizes(report))
        return;
    ttd_ctx &engine = report.engine;
    if (const int err = ttd_superblock2info(&engine.superblock, &engine.info); err != 0) {
        ttdinfo_add_problem(&report, err, "%s",
                            err == ENOMEM ? "out of memory" : "no hash tree of this format has such a size");
        return;
    }
    report.has_geometry = true;
    report.fits = ttd_superblock_fits(engine.superblock, engine.info, report.file_size);
    if (!report.fits)
        ttdinfo_add_problem(&report, EINVAL, "the areas of the image do not lie within the file");
}

}  // namespace

void ttdinfo_add_problem(ttdinfo_report *report, int err, const char *format, ...) {
    if (report->problem_count == TTDINFO_MAX_PROBLEMS)
        return;
    ttdinfo_problem &problem = report->problems[report->problem_count++];
    problem.err = err;
    va_list args;
    va_start(args, format);
    std::vsnprintf(problem.text, sizeof problem.text, format, args);
    va_end(args);
}

int ttdinfo_open(const char *path, ttd_image_file *image, ttdinfo_report *report) {
    int err = image->open(path, false);
    if (err == 0)
        err = image->read_superblock(&report->engine.superblock);
    report->file_size = image->size();
    if (err == EINVAL)
        ttdinfo_add_problem(report, err, "no regular file or block device of at least %zu bytes",
                            TTD_SUPERBLOCK_SIZE);
    else if (err != 0)
        ttdinfo_add_problem(report, err, "%s", std::strerror(err));
    return err;
}

int ttdinfo_examine(ttdinfo_report *report) {
    ttd_register_log_fct(keep_complaint);
    if (check_identity(*report)) {
        check_fields(*report);
        const bool started = start_crypto(*report);
        if (started)
            check_signature(*report);
        check_rollback(*report);
        if (started)
            derive_geometry(*report);
        ttd_tcrypto_uninit(&report->engine);
    }
    return report->problem_count == 0 ? 0 : report->problems[0].err;
}

std::uint64_t ttdinfo_max_fs_size(const ttd_info &info) {
    const std::uint64_t meta_data = ttd_meta_data_size(info);
    return info.covered_size > meta_data ? info.covered_size - meta_data : 0;
}

bool ttdinfo_is_partition(const ttdinfo_report &report) {
    return (report.engine.superblock.flags & TTD_FLAG_PARTITION) != 0;
}

const char *ttdinfo_verdict_text(ttdinfo_verdict verdict) {
    constexpr const char *texts[] = {"not checked", "good", "bad"};
    return texts[static_cast<unsigned>(verdict)];
}

std::span<const std::uint8_t> ttdinfo_salt(const ttdinfo_report &report) {
    const ttd_superblock &superblock = report.engine.superblock;
    return {superblock.salt, std::min<std::size_t>(superblock.saltsize, TTD_MAX_SALT)};
}

std::span<const std::uint8_t> ttdinfo_root_hash(const ttdinfo_report &report) {
    const std::size_t size = report.hash_size != 0 ? report.hash_size : TTD_MAX_ROOT_HASH;
    return {report.engine.superblock.roothash, std::min(size, TTD_MAX_ROOT_HASH)};
}

std::span<const std::uint8_t> ttdinfo_signature(const ttdinfo_report &report) {
    const ttd_superblock &superblock = report.engine.superblock;
    return {superblock.sig, std::min<std::size_t>(superblock.sigsize, TTD_MAX_SIGNATURE)};
}
