// The engine's context: everything about one image that builder, verifier and a
// reading driver share.  The engine knows the image format, the crypto library
// and nothing of the tool: bytes arrive through ttd_io, messages leave through
// ttd_log.
//
// After set-up the context is read-only except for the caches, slabs, bitmap and
// per-thread digest slots, which are safe to use from several threads.
#pragma once

#include <cstdint>

#include "talg/bitmap.h"
#include "talg/slab.h"
#include "tcrypto/tcrypto.h"
#include "ttd/format.h"
#include "ttd/geometry.h"
#include "ttd/io.h"

struct ttd_lru_cache;

inline constexpr unsigned TTD_DIGEST_SLOTS = 64;

// The algorithms that the superblock names.
struct ttd_crypto {
    bool started = false;             // tcrypto_init succeeded and is to be undone
    const char *hash_name = nullptr;  // static
    const char *plugin = nullptr;     // null: any provider
    const ttd_signature_row *signature = nullptr;
    tcrypto_ctx *slots[TTD_DIGEST_SLOTS] = {};  // of the threads with these ids
};

struct ttd_ctx {
    ttd_superblock superblock{};
    ttd_info info;
    ttd_crypto crypto;
    int verbosity = 0;          // above 2 every step is traced
    ttd_io *data_io = nullptr;  // owned by whoever set it
    ttd_io *hash_io = nullptr;
    ttd_lru_cache *hash_cache = nullptr;   // digests of hash blocks, by global index
    ttd_lru_cache *block_cache = nullptr;  // hash blocks, by global index
    talg_slab *hash_slab = nullptr;        // buffers of one hash
    talg_slab *block_slab = nullptr;       // buffers of one block
    talg_bitmap *verified = nullptr;       // one bit per data block
};
