#include "tcrypto/openssl/digest_blocks.h"

void block_run::advance(std::size_t blocks) {
    data += blocks * length;
    out += blocks * digest_size;
    count -= blocks;
}

void hash_lanes(const digest_kernel *kernel, block_run &run) {
    if (!kernel || run.count < kernel->lanes)
        return;
    const std::size_t blocks = run.count - run.count % kernel->lanes;
    kernel->hash(run.salt, run.salt_length, run.data, run.length, blocks, run.out);
    run.advance(blocks);
}
