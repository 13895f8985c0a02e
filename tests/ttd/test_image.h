// Images that the model makes, in memory, and the engine on one of them.
#pragma once

#include "support/image_model.h"
#include "support/log_capture.h"
#include "support/test.h"
#include "ttd/caches.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/superblock.h"
#include "ttd/verify_range.h"

// Every digest goes through the crypto library, whose calls can fail.
inline const int no_kernels = setenv("TCRYPTO_KERNELS", "none", 1);

// As built from `size` bytes: digest 2 is sha256.  With `partition` bytes, in partition mode.
struct image_shape {
    std::uint64_t size = 300 * 512;
    std::uint32_t block = 512, digest = 2, hash_size = 32, salt_byte = 0x5a;
    std::uint64_t partition = 0;
};

inline ttd_superblock superblock_of(const image_shape &shape) {
    ttd_superblock sb{};
    sb.magic = TTD_MAGIC;
    sb.version = TTD_VERSION;
    sb.flags = shape.partition != 0 ? TTD_FLAG_PARTITION : 0;
    sb.blksize = sb.hblksize = shape.block;
    sb.hashtype = shape.digest;
    sb.sigtype = 3;
    sb.saltsize = 2 * shape.hash_size;
    std::fill_n(sb.salt, sb.saltsize, static_cast<std::uint8_t>(shape.salt_byte));
    ttd_info info;
    info.covered_size = shape.partition != 0 ? shape.partition : shape.size;
    info.block_size = info.hash_block_size = shape.block;
    info.hash_size = shape.hash_size;
    EXPECT_EQ(ttd_generate_info(&info), 0);
    sb.fssize = shape.size;
    sb.totalsize = shape.partition != 0 ? shape.partition : shape.size + ttd_meta_data_size(info);
    sb.offset = sb.totalsize - ttd_meta_data_size(info);
    return sb;
}

// Random data, every fifth block of zeros, and what proves it; the superblock is not signed.
inline image_bytes make_image(ttd_superblock &sb) {
    std::mt19937 random(1);
    image_bytes image(sb.totalsize);
    for (std::uint64_t at = 0; at < sb.fssize; ++at)
        image[at] = at / sb.blksize % 5 == 2 ? 0 : static_cast<std::uint8_t>(random());
    image_model model(image, sb);
    EXPECT_TRUE(model.is_well_formed());
    model.repair(sb);
    std::memcpy(image.data() + image.size() - sizeof sb, &sb, sizeof sb);
    return image;
}

// What the engine says of such an image goes to `log`.
class engine_image {
public:
    explicit engine_image(const image_shape &shape = {}) { open(shape); }
    engine_image(const engine_image &) = delete;
    engine_image &operator=(const engine_image &) = delete;
    ~engine_image() {
        close();
        ttd_register_log_fct(ttd_log_default);
    }

    void open(const image_shape &shape) {
        ttd_register_log_fct(mktfs_log);
        EXPECT_EQ(tcrypto_init(0, nullptr), 0);
        ctx.superblock = superblock_of(shape);
        bytes = make_image(ctx.superblock);
        EXPECT_EQ(ttd_tcrypto_init(&ctx), 0);
        EXPECT_EQ(ttd_superblock2info(&ctx.superblock, &ctx.info), 0);
        EXPECT_EQ(ttd_hash_init(&ctx, &digest), 0);
        EXPECT_EQ(ttd_create_slabs(&ctx, 4), 0);
        ctx.data_io = ctx.hash_io = &io_;
        begin(0);
    }
    void close() {
        forget();
        ttd_free_slabs(&ctx);
        ttd_hash_done(digest);
        ttd_tcrypto_uninit(&ctx);
        tcrypto_uninit();
    }
    // Fresh caches of that many slots, and no block known to be good.
    void begin(std::size_t slots) {
        forget();
        EXPECT_EQ(ttd_create_caches(&ctx, slots), 0);
        EXPECT_EQ(ttd_create_vblkbitmap(&ctx), 0);
        log.clear();
        tree_blocks = 0;
    }

    [[nodiscard]] int verify(std::uint32_t first, std::uint32_t end, const void *data = nullptr) {
        const ttd_range range = {.first = first, .end = end};
        return ttd_verify_range(&ctx, &range, digest, data, told, &reports);
    }
    [[nodiscard]] int verify_block(std::uint32_t block, const ttd_range *range = nullptr) {
        return ttd_verify_block(&ctx, block, range, digest, nullptr, told, &reports);
    }
    // The data blocks that are not proven, a character each.
    [[nodiscard]] std::string bits() const {
        std::string all(ctx.info.raw_blocks, '.');
        for (std::uint32_t block = 0; block < all.size(); ++block)
            all[block] = talg_bitmap_isset(ctx.verified, block) ? '.' : 'X';
        return all;
    }

    ttd_ctx ctx;
    tcrypto_ctx *digest = nullptr;
    image_bytes bytes;
    log_capture log;
    std::vector<ttd_mismatch> reports;
    std::atomic<std::uint64_t> tree_blocks = 0;  // that were read
    std::int64_t bad_place = -1;                 // the read there fails
    int bad_reads = 0;                           // so many times

private:
    static void told(void *arg, const ttd_mismatch *report) {
        static_cast<std::vector<ttd_mismatch> *>(arg)->push_back(*report);
    }
    static int read(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
        auto &self = *static_cast<engine_image *>(io->handle);
        const auto at = static_cast<std::uint64_t>(offset);
        self.tree_blocks += at >= self.ctx.superblock.offset ? 1 : 0;
        if (offset == self.bad_place && self.bad_reads != 0 && self.bad_reads-- != 0)
            return EIO;
        if (offset < 0 || at > self.bytes.size() || length > self.bytes.size() - at)
            return ERANGE;
        std::memcpy(buffer, self.bytes.data() + at, length);
        return 0;
    }
    void forget() {
        ttd_free_vblkbitmap(&ctx);
        ttd_free_caches(&ctx);
    }

    ttd_io io_{.read = read, .destroy = nullptr, .handle = this};
};
