// The last 4096 bytes of an image, shown as text and as JSON.
#include <algorithm>
#include <cstdio>
#include <memory>

#include "info/json.h"
#include "info/report.h"
#include "info/text.h"
#include "support/require.h"
#include "tcrypto/tcrypto.h"

static std::FILE *discarded;

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    discarded = std::fopen("/dev/null", "w");
    // A reference of its own: the provider is not started anew for every input.
    require(discarded && tcrypto_init(0, nullptr) == TCRYPTO_OK);
    return 0;
}

// With and without magic number and version, which few inputs would hit.
static void show(const std::uint8_t *data, std::size_t size, bool identified) {
    const auto report = std::make_unique<ttdinfo_report>();
    ttd_superblock &superblock = report->engine.superblock;
    std::copy_n(data, std::min(size, sizeof superblock), reinterpret_cast<std::uint8_t *>(&superblock));
    if (identified) {
        superblock.magic = TTD_MAGIC;
        superblock.version = TTD_VERSION;
    }
    report->file_size = TTD_SUPERBLOCK_SIZE + superblock.totalsize % (std::uint64_t{1} << 40);
    report->min_rollback = "1";
    require((ttdinfo_examine(report.get()) == 0) == (report->problem_count == 0));
    require(report->problem_count != 0 || report->has_geometry);
    ttdinfo_print_text(*report, discarded);
    ttdinfo_print_json(*report, discarded);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    show(data, size, false);
    show(data, size, true);
    return 0;
}
