// What is reported about a superblock: its fields, the geometry that they give, the checks
// that were asked for, and every reason why a reader would refuse it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "ttd/engine.h"

class ttd_image_file;

enum class ttdinfo_verdict {
    NOT_CHECKED,
    GOOD,
    BAD,
};

struct ttdinfo_problem {
    int err = 0;
    char text[320] = {};  // cut when longer; without a line end
};

inline constexpr std::size_t TTDINFO_MAX_PROBLEMS = 8;

struct ttdinfo_report {
    // Inputs: engine.superblock and these.
    std::uint64_t file_size = 0;         // bytes
    const char *public_key = nullptr;    // PEM file, null: the signature is not checked
    const char *min_rollback = nullptr;  // decimal, null: not checked
    // Results.
    ttd_ctx engine;               // engine.info holds a geometry when has_geometry
    std::uint32_t hash_size = 0;  // bytes, 0 when the digest is not known
    bool has_geometry = false;
    bool fits = false;  // the areas of the geometry lie within the file
    ttdinfo_verdict signature = ttdinfo_verdict::NOT_CHECKED;
    ttdinfo_verdict rollback = ttdinfo_verdict::NOT_CHECKED;
    ttdinfo_problem problems[TTDINFO_MAX_PROBLEMS];
    std::size_t problem_count = 0;
};

// Opens the image and reads its superblock and size.  An error becomes a problem.
[[nodiscard]] int ttdinfo_open(const char *path, ttd_image_file *image, ttdinfo_report *report);

// Does nothing when the list is full.
[[gnu::format(printf, 3, 4)]] void ttdinfo_add_problem(ttdinfo_report *report, int err, const char *format,
                                                       ...);

// Fills the results; installs a log function of its own in the engine.  No field of the
// superblock is trusted.  Returns the error number of the first problem, or 0.
[[nodiscard]] int ttdinfo_examine(ttdinfo_report *report);

// Largest inner image of a partition of this geometry, bytes; 0 when there is no room.
[[nodiscard]] std::uint64_t ttdinfo_max_fs_size(const ttd_info &info);
[[nodiscard]] bool ttdinfo_is_partition(const ttdinfo_report &report);
// The text of a verdict: "not checked", "good" or "bad".
[[nodiscard]] const char *ttdinfo_verdict_text(ttdinfo_verdict verdict);

// The parts of the variable-length fields that are in use, never more than the superblock
// has room for.
[[nodiscard]] std::span<const std::uint8_t> ttdinfo_salt(const ttdinfo_report &report);
[[nodiscard]] std::span<const std::uint8_t> ttdinfo_root_hash(const ttdinfo_report &report);
[[nodiscard]] std::span<const std::uint8_t> ttdinfo_signature(const ttdinfo_report &report);
