// A whole image in memory, made for engine tests by the model of the fuzz targets.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <vector>

#include "support/image_model.h"
#include "ttd/caches.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/path.h"
#include "ttd/superblock.h"
#include "ttd/verify_range.h"

// Serves reads from the image's bytes, bounded.
inline int read_bytes(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    const image_bytes &image = *static_cast<image_bytes *>(io->handle);
    if (offset < 0 || static_cast<std::uint64_t>(offset) > image.size() ||
        length > image.size() - static_cast<std::uint64_t>(offset))
        return ERANGE;
    std::memcpy(buffer, image.data() + offset, length);
    return 0;
}

[[gnu::format(printf, 2, 3)]] inline int ignore_message(int, const char *, ...) {
    return 0;
}

class engine_image {
public:
    // `blocks` data blocks of random bytes, some of zeros.
    engine_image(std::uint32_t blocks, std::uint32_t block_size, std::uint32_t hash_code = 2)
        : io_{.read = read_bytes, .destroy = [](ttd_io *) {}, .handle = &image} {
        ttd_superblock &sb = ctx.superblock;
        sb.magic = TTD_MAGIC;
        sb.version = TTD_VERSION;
        sb.blksize = sb.hblksize = block_size;
        sb.hashtype = hash_code;
        sb.sigtype = 1;
        sb.fssize = sb.offset = std::uint64_t{blocks} * block_size;
        ttd_register_log_fct(ignore_message);
        EXPECT_EQ(ttd_tcrypto_init(&ctx), 0);
        sb.saltsize = 2 * ctx.info.hash_size;
        std::fill_n(sb.salt, sb.saltsize, std::uint8_t{0x5a});
        fill(blocks, block_size);
        EXPECT_EQ(ttd_superblock2info(&sb, &ctx.info), 0);
        ctx.data_io = ctx.hash_io = &io_;
        EXPECT_EQ(ttd_create_slabs(&ctx, 4), 0);
        EXPECT_EQ(ttd_create_vblkbitmap(&ctx), 0);
    }
    engine_image(const engine_image &) = delete;
    engine_image &operator=(const engine_image &) = delete;
    ~engine_image() {
        ttd_free_vblkbitmap(&ctx);
        ttd_free_caches(&ctx);
        ttd_free_slabs(&ctx);
        ttd_tcrypto_uninit(&ctx);
        ttd_register_log_fct(ttd_log_default);
    }

    [[nodiscard]] ttd_range range(std::int64_t offset, std::uint64_t length) {
        ttd_range range;
        EXPECT_EQ(ttd_setup_verify(&ctx, offset, length, UINT64_MAX, &range), 0);
        return range;
    }
    [[nodiscard]] bool is_verified(std::uint32_t block) const {
        return talg_bitmap_isset(ctx.verified, block);
    }

    ttd_ctx ctx;
    image_bytes image;

private:
    // The data, then a tree and a root hash that the model makes.
    void fill(std::uint32_t blocks, std::uint32_t block_size) {
        std::mt19937 random(blocks);
        image.resize(std::size_t{blocks} * block_size);
        std::ranges::generate(image, [&] { return static_cast<std::uint8_t>(random()); });
        for (std::uint32_t block = 2; block < blocks; block += 5)
            std::fill_n(image.begin() + block * block_size, block_size, std::uint8_t{0});
        ttd_info info;
        info.hash_size = ctx.info.hash_size;
        EXPECT_EQ(ttd_superblock2info(&ctx.superblock, &info), 0);
        image.resize(image.size() + info.tree_size + TTD_SUPERBLOCK_SIZE);
        image_model model(image, ctx.superblock);
        EXPECT_TRUE(model.is_well_formed());
        model.repair(ctx.superblock);
    }

    ttd_io io_;
};

// The calling thread's digest context.
class thread_digest {
public:
    explicit thread_digest(ttd_ctx &ctx) { EXPECT_EQ(ttd_hash_init(&ctx, &digest_), 0); }
    thread_digest(const thread_digest &) = delete;
    thread_digest &operator=(const thread_digest &) = delete;
    ~thread_digest() { ttd_hash_done(digest_); }
    operator tcrypto_ctx *() const { return digest_; }

private:
    tcrypto_ctx *digest_ = nullptr;
};
