// reads MODE IMAGE KEY: what reading through the C library costs, for scripts/bench.
//   random      100,000 reads of a block at random, with the hash tree in memory
//   hash        the hashes of the same blocks alone, where the image lies in memory
//   sequential  the whole inner image once, in pieces of 1 MiB
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <vector>

#include "tcrypto/tcrypto.h"
#include "ttd/format.h"
#include "ttd/image_file.h"
#include "ttd/reader.h"

namespace {

constexpr int READS = 100000;
constexpr std::size_t PIECE = 1024 * 1024;

// Offsets of blocks at random, the same in every run.
class random_blocks {
public:
    random_blocks(std::uint64_t image_size, std::uint32_t block_size)
        : count_(image_size / block_size), block_size_(block_size) {}
    [[nodiscard]] std::uint64_t next() { return random_() % count_ * block_size_; }

private:
    std::minstd_rand random_{1};
    const std::uint64_t count_;
    const std::uint32_t block_size_;
};

bool read_random(ttd_reader *reader, const ttd_reader_info &info) {
    std::vector<std::uint8_t> block(info.block_size);
    random_blocks blocks(info.image_size, info.block_size);
    for (int i = 0; i < READS; ++i)
        if (ttd_reader_read(reader, block.data(), block.size(), blocks.next()) != 0)
            return false;
    return true;
}

bool read_all(ttd_reader *reader, const ttd_reader_info &info) {
    std::vector<std::uint8_t> piece(PIECE);
    for (std::uint64_t at = 0; at < info.image_size; at += piece.size()) {
        const std::size_t length = std::min<std::uint64_t>(piece.size(), info.image_size - at);
        if (ttd_reader_read(reader, piece.data(), length, at) != 0)
            return false;
    }
    return true;
}

bool hash_blocks(const char *path) {
    ttd_image_file image;
    ttd_superblock superblock{};
    tcrypto_ctx_ptr digest;
    if (image.open(path, false) != 0 || image.read_superblock(&superblock) != 0 ||
        tcrypto_init(0, nullptr) != 0 ||
        tcrypto_digest_request(ttd_hash_name(superblock.hashtype), nullptr, 0, th_out(digest)) != 0)
        return false;
    const void *mapped = mmap(nullptr, superblock.fssize, PROT_READ, MAP_SHARED, image.descriptor(), 0);
    if (mapped == MAP_FAILED)
        return false;
    random_blocks blocks(superblock.fssize, superblock.blksize);
    std::uint8_t hash[TTD_MAX_ROOT_HASH];
    for (int i = 0; i < READS; ++i)
        if (tcrypto_digest_init(digest.get()) != 0 ||
            tcrypto_digest_update(digest.get(), superblock.salt, superblock.saltsize) != 0 ||
            tcrypto_digest_update(digest.get(), static_cast<const std::uint8_t *>(mapped) + blocks.next(),
                                  superblock.blksize) != 0 ||
            tcrypto_digest_final(digest.get(), hash, nullptr) != 0)
            return false;
    return true;
}

bool read_image(bool random, const char *path, const char *key) {
    ttd_reader_options options = {};
    options.size = sizeof options;
    options.key_path = key;
    options.cache = random ? "max" : nullptr;
    ttd_reader *reader = nullptr;
    ttd_reader_info info = {};
    info.size = sizeof info;
    if (ttd_reader_open(path, &options, &reader) != 0 || ttd_reader_get_info(reader, &info) != 0)
        return false;
    const bool good = random ? read_random(reader, info) : read_all(reader, info);
    ttd_reader_close(reader);
    return good;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 4)
        return 1;
    const bool good = std::strcmp(argv[1], "hash") == 0
                          ? hash_blocks(argv[2])
                          : read_image(std::strcmp(argv[1], "random") == 0, argv[2], argv[3]);
    return good ? 0 : 1;
}
