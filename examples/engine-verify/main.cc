// engine-verify IMAGE PUBLIC_KEY: proves every block of a ttd image from two threads.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <thread>

#include "ttd/caches.h"
#include "ttd/engine_log.h"
#include "ttd/hash.h"
#include "ttd/signature.h"
#include "ttd/superblock.h"
#include "ttd/verify.h"

namespace {

constexpr std::size_t CACHE_SLOTS = 32;

// Where the engine gets bytes from; called from both threads.
int read_file(ttd_io *io, std::int64_t offset, void *buffer, std::uint64_t length) {
    const int file = *static_cast<int *>(io->handle);
    const ssize_t got = ::pread(file, buffer, length, offset);
    return got == static_cast<ssize_t>(length) ? 0 : got < 0 ? errno : EIO;
}

[[gnu::format(printf, 2, 3)]] int log_nothing(int, const char *, ...) {
    return 0;
}

// Everything that has to hold before the first block is read, in this order.
int prepare(ttd_ctx &ctx, std::uint64_t image_size, const char *key) {
    const ttd_superblock &superblock = ctx.superblock;
    if (superblock.magic != TTD_MAGIC || superblock.version != TTD_VERSION)
        return EINVAL;
    if (const int err = ttd_tcrypto_init(&ctx); err != 0)
        return err;
    if (const int err = ttd_verify_superblock(&superblock, key); err != 0)
        return err;
    if (!ttd_is_block_size(superblock.blksize))  // 0 would end the process
        return EINVAL;
    if (const int err = ttd_superblock2info(&superblock, &ctx.info); err != 0)
        return err;
    if (!ttd_superblock_fits(superblock, ctx.info, image_size))
        return EINVAL;
    if (const int err = ttd_create_slabs(&ctx, CACHE_SLOTS); err != 0)
        return err;
    if (const int err = ttd_create_caches(&ctx, CACHE_SLOTS); err != 0)
        return err;
    return ttd_create_vblkbitmap(&ctx);
}

// Each thread has its own digest context; the rest of the context is shared.
void verify_blocks(ttd_ctx &ctx, std::uint32_t first, std::uint32_t end, int &result) {
    tcrypto_ctx *digest = nullptr;
    if (result = ttd_hash_init(&ctx, &digest); result != 0)
        return;
    for (std::uint32_t block = first; block < end; ++block) {
        const ttd_range one = {.first = block, .end = block + 1};
        if (const int err = ttd_verify_block(&ctx, block, &one, digest, nullptr, nullptr, nullptr); err != 0)
            result = err;
    }
    ttd_hash_done(digest);
}

int verify_image(ttd_ctx &ctx) {
    ttd_range whole;
    const std::uint64_t size = ctx.superblock.fssize;
    if (const int err = ttd_setup_verify(&ctx, 0, size, size, &whole); err != 0)
        return err;
    const std::uint32_t middle = whole.end / 2;
    int results[2] = {};
    std::thread other(verify_blocks, std::ref(ctx), 0, middle, std::ref(results[0]));
    verify_blocks(ctx, middle, whole.end, results[1]);
    other.join();
    if (results[0] != 0 || results[1] != 0)
        return results[0] != 0 ? results[0] : results[1];
    std::printf("%u blocks proven\n", whole.end);
    return 0;
}

int run(int file, const char *key) {
    ttd_ctx ctx;
    ttd_io io = {.read = read_file, .handle = &file};
    const off_t end = ::lseek(file, 0, SEEK_END);
    const off_t superblock_offset = end - static_cast<off_t>(TTD_SUPERBLOCK_SIZE);
    if (superblock_offset < 0)
        return EINVAL;
    int err = read_file(&io, superblock_offset, &ctx.superblock, sizeof ctx.superblock);
    ctx.data_io = ctx.hash_io = &io;
    if (err == 0)
        err = prepare(ctx, static_cast<std::uint64_t>(end), key);
    if (err == 0)
        err = verify_image(ctx);
    ttd_free_vblkbitmap(&ctx);
    ttd_free_caches(&ctx);
    ttd_free_slabs(&ctx);
    ttd_tcrypto_uninit(&ctx);
    return err;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 3) {
        std::fputs("usage: engine-verify IMAGE PUBLIC_KEY\n", stderr);
        return 1;
    }
    ttd_register_log_fct(log_nothing);
    const int file = ::open(argv[1], O_RDONLY | O_CLOEXEC);
    const int err = file < 0 ? errno : run(file, argv[2]);
    if (file >= 0)
        ::close(file);
    if (err != 0)
        std::fprintf(stderr, "%s: %s\n", argv[1], std::strerror(err));
    return err;
}
