#include "info/verify.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "base/progress.h"
#include "info/keys.h"
#include "th/handle.h"
#include "ttd/caches.h"
#include "ttd/hash.h"
#include "ttd/image_file.h"
#include "ttd/path.h"
#include "ttd/verify_range.h"

namespace {

using digest_ptr = th_handle<tcrypto_ctx, ttd_hash_done>;

constexpr std::uint64_t WINDOW_SIZE = 4 << 20;  // read in one piece, bytes
constexpr std::size_t MAX_CACHE_SLOTS = 64;     // neighbouring windows share few hash blocks

// The blocks of one image.  The engine's context is ready except for what is set here.
class block_prover {
public:
    block_prover(const ttd_image_file &image, ttdinfo_proof &proof)
        : image_(image), proof_(proof), engine_(proof.report.engine) {
        engine_.data_io = &data_io_;
        engine_.hash_io = &hash_io_;
    }
    block_prover(const block_prover &) = delete;
    block_prover &operator=(const block_prover &) = delete;
    ~block_prover() {
        digest_.reset();
        ttd_free_vblkbitmap(&engine_);
        ttd_free_caches(&engine_);
        ttd_free_slabs(&engine_);
        ttd_tcrypto_uninit(&engine_);
    }

    [[nodiscard]] int run() {
        count_blocks();
        add_missing_areas();
        if (const int err = prepare(); err != 0)
            return err;
        prove_present();
        add_unproven(present_, proof_.blocks);
        return 0;
    }

private:
    void count_blocks() {
        const std::uint64_t size = engine_.superblock.fssize;
        ttd_info &info = engine_.info;
        proof_.blocks = size / info.block_size + (size % info.block_size != 0);
        info.present_blocks = ttd_blocks_within(info, image_.size());
        const std::uint32_t known = std::min(info.raw_blocks, info.present_blocks);
        present_ = static_cast<std::uint32_t>(std::min<std::uint64_t>(proof_.blocks, known));
    }

    // What lies outside the file counts as damaged.
    void add_missing_areas() {
        const ttd_info &info = engine_.info;
        add_missing(TTDINFO_DATA, 0, engine_.superblock.fssize);
        for (unsigned level = info.levels; level-- > 0;)
            add_missing(static_cast<int>(level), info.level_offset[level],
                        std::uint64_t{info.level_blocks[level]} * info.hash_block_size);
    }
    void add_missing(int level, std::uint64_t offset, std::uint64_t length) {
        const std::uint64_t from = std::max(offset, image_.size());
        if (offset + length > from)
            proof_.damage.add_damaged({level, from, offset + length - from});
    }

    [[nodiscard]] int prepare() {
        if (const int err = ttd_tcrypto_init(&engine_); err != 0)
            return err;
        if (const int err = ttd_hash_init(&engine_, th_out(digest_)); err != 0)
            return err;
        const std::size_t slots = std::min<std::size_t>(engine_.info.hash_blocks, MAX_CACHE_SLOTS);
        if (const int err = ttd_create_slabs(&engine_, slots); err != 0)
            return err;
        if (const int err = ttd_create_caches(&engine_, slots); err != 0)
            return err;
        if (const int err = ttd_create_vblkbitmap(&engine_); err != 0)
            return err;
        if (!window_.allocate(WINDOW_SIZE))
            return ENOMEM;
        return ttd_hash_zero_block(&engine_, digest_.get());
    }

    void prove_present() {
        const std::uint32_t block_size = engine_.info.block_size;
        const mktfs_progress progress(std::uint64_t{present_} * block_size, 1);
        ttd_range range;
        for (; range.first < present_; range.first = range.end) {
            const std::uint64_t left = present_ - range.first;
            range.end = range.first + static_cast<std::uint32_t>(std::min(WINDOW_SIZE / block_size, left));
            const std::size_t length = std::size_t{range.end - range.first} * block_size;
            // If some of it cannot be read, the engine tries each block by itself.
            const bool read =
                image_.read(std::uint64_t{range.first} * block_size, window_.data(), length) == 0;
            if (ttd_verify_range(&engine_, &range, digest_.get(), read ? window_.data() : nullptr, mismatch,
                                 this) != 0)
                note_unproven(range);
            mktfs_progress_add(length);
        }
    }

    void note_unproven(const ttd_range &range) {
        for (std::uint32_t block = range.first; block < range.end; ++block)
            if (!talg_bitmap_isset(engine_.verified, block))
                add_unproven(block, std::uint64_t{block} + 1);
    }
    void add_unproven(std::uint64_t first, std::uint64_t end) {
        if (first >= end)
            return;
        const std::uint64_t offset = first * engine_.info.block_size;
        const std::uint64_t room = engine_.superblock.fssize - offset;
        // Compared by division: the product might not fit.
        const std::uint64_t length =
            room / engine_.info.block_size < end - first ? room : (end - first) * engine_.info.block_size;
        proof_.unproven += end - first;
        proof_.damage.add_unproven({TTDINFO_DATA, offset, length});
    }

    static void mismatch(void *self, const ttd_mismatch *report) {
        auto &of = *static_cast<block_prover *>(self);
        const auto offset = static_cast<std::uint64_t>(report->offset);
        const ttd_info &info = of.engine_.info;
        if (offset < info.tree_offset)
            of.proof_.damage.add_damaged({TTDINFO_DATA, offset, info.block_size});
        else
            of.proof_.damage.add_damaged({report->level, offset, info.hash_block_size});
    }

    // What cannot be read is damaged as well.
    static int read_data(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
        return static_cast<block_prover *>(io->handle)->read(TTDINFO_DATA, offset, buffer, length);
    }
    static int read_tree(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
        auto *of = static_cast<block_prover *>(io->handle);
        const ttd_info &info = of->engine_.info;
        int level = 0;  // the highest level comes first
        while (level + 1 < info.levels && static_cast<std::uint64_t>(offset) < info.level_offset[level])
            ++level;
        return of->read(level, offset, buffer, length);
    }
    [[nodiscard]] int read(int level, std::int64_t offset, void *buffer, std::uint64_t length) {
        const auto from = static_cast<std::uint64_t>(offset);
        const int err = image_.read(from, buffer, length);
        if (err != 0)
            proof_.damage.add_damaged({level, from, length});
        return err;
    }

    const ttd_image_file &image_;
    ttdinfo_proof &proof_;
    ttd_ctx &engine_;
    ttd_io data_io_{.read = read_data, .destroy = nullptr, .handle = this};
    ttd_io hash_io_{.read = read_tree, .destroy = nullptr, .handle = this};
    digest_ptr digest_;
    ttd_bytes window_;
    std::uint32_t present_ = 0;  // data blocks that can be proven
};

void check_signature(const ttdinfo_keys &keys, ttdinfo_proof &proof) {
    ttdinfo_report &report = proof.report;
    if (keys.empty())
        return;
    proof.key = report.hash_size != 0 ? keys.proving(report.engine.superblock) : nullptr;
    report.signature = proof.key ? ttdinfo_verdict::GOOD : ttdinfo_verdict::BAD;
    if (!proof.key)
        ttdinfo_add_problem(&report, EINVAL, "no key proves the signature");
}

void prove_opened(const ttd_image_file &image, const ttdinfo_keys &keys, ttdinfo_proof &proof) {
    ttdinfo_report &report = proof.report;
    proof.damage.begin(image.size(), proof.map_cells);
    (void)ttdinfo_examine(&report);
    check_signature(keys, proof);
    if (!report.has_geometry)
        return;
    const int err = block_prover(image, proof).run();
    if (err != 0)
        ttdinfo_add_problem(&report, err, "the blocks could not be looked at: %s", std::strerror(err));
    else if (proof.unproven != 0)
        ttdinfo_add_problem(&report, EIO, "blocks not proven: %" PRIu64 " of %" PRIu64, proof.unproven,
                            proof.blocks);
}

}  // namespace

void ttdinfo_prove(const ttdinfo_keys &keys, ttdinfo_proof *proof) {
    ttd_image_file image;
    if (ttdinfo_open(proof->path, &image, &proof->report) == 0)
        prove_opened(image, keys, *proof);
    if (proof->report.problem_count != 0)
        proof->status = proof->report.problems[0].err;
    else if (!proof->key)
        proof->status = TTDINFO_UNSIGNED_STATUS;
}
