// The digests that OpenSSL lacks: short BLAKE2, where the length is a parameter
// of the digest and not a truncation, and BLAKE3.
#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include <blake2.h>
#include <blake3.h>

#include "tcrypto/openssl/digest_backends.h"
#include "tcrypto/openssl/digest_blocks.h"
#include "tcrypto/openssl/ossl.h"

// A hasher is a record that can be copied and wiped as bytes.  Its functions
// return false when the library refuses.

struct blake2s_record {
    blake2s_state running;

    bool init(std::size_t digest_size) { return blake2s_init(&running, digest_size) == 0; }
    bool update(const std::uint8_t *data, std::size_t length) {
        return blake2s_update(&running, data, length) == 0;
    }
    bool final(std::uint8_t *out, std::size_t digest_size) {
        return blake2s_final(&running, out, digest_size) == 0;
    }
};

struct blake2b_record {
    blake2b_state running;

    bool init(std::size_t digest_size) { return blake2b_init(&running, digest_size) == 0; }
    bool update(const std::uint8_t *data, std::size_t length) {
        return blake2b_update(&running, data, length) == 0;
    }
    bool final(std::uint8_t *out, std::size_t digest_size) {
        return blake2b_final(&running, out, digest_size) == 0;
    }
};

struct blake3_record {
    blake3_hasher running;

    bool init(std::size_t) {
        blake3_hasher_init(&running);
        return true;
    }
    bool update(const std::uint8_t *data, std::size_t length) {
        blake3_hasher_update(&running, data, length);
        return true;
    }
    bool final(std::uint8_t *out, std::size_t digest_size) {
        blake3_hasher_finalize(&running, out, digest_size);
        return true;
    }
};

namespace {

// Hashes blocks from a saved state that has taken the salt.
template <class Hasher>
struct block_hasher {
    Hasher salted;

    bool start(const block_run &run) {
        return salted.init(run.digest_size) && salted.update(run.salt, run.salt_length);
    }
    bool hash(const block_run &run) const {
        Hasher hasher = salted;
        return hasher.update(run.data, run.length) && hasher.final(run.out, run.digest_size);
    }
};

// BLAKE3 hashes chunks side by side, but only those that one call brings whole: a
// salt fed on its own leaves the block off the chunks' grid, and most of it is
// then hashed serially.  So salt and block go in together, through a buffer.
template <>
struct block_hasher<blake3_record> {
    static constexpr std::size_t ROOM = 65536;  // what is longer takes a second update
    std::uint8_t joined[ROOM];

    bool start(const block_run &run) {
        std::copy_n(run.salt, std::min(run.salt_length, ROOM), joined);
        return true;
    }
    bool hash(const block_run &run) {
        blake3_record hasher;
        hasher.init(run.digest_size);
        std::size_t taken = 0;
        if (run.salt_length <= ROOM) {
            taken = std::min(run.length, ROOM - run.salt_length);
            std::copy_n(run.data, taken, joined + run.salt_length);
            hasher.update(joined, run.salt_length + taken);
        } else {
            hasher.update(run.salt, run.salt_length);
        }
        hasher.update(run.data + taken, run.length - taken);
        return hasher.final(run.out, run.digest_size);
    }
};

// Frees a record of bytes after wiping it.
struct wiping_delete {
    template <class Record>
    void operator()(Record *record) const noexcept {
        static_assert(std::is_trivially_destructible_v<Record>);
        explicit_bzero(record, sizeof(*record));
        delete record;
    }
};

template <class Record>
using wiped_ptr = std::unique_ptr<Record, wiping_delete>;

template <class Hasher>
struct record_state {
    alignas(64) Hasher hasher;
    std::size_t digest_size = 0;
    const digest_kernel *kernel = nullptr;
    block_hasher<Hasher> *blocks = nullptr;  // owned; made when blocks are first hashed without a kernel
};

template <class Hasher>
record_state<Hasher> &state_of(void *state) {
    return *static_cast<record_state<Hasher> *>(state);
}

template <class Hasher>
int hash_one_by_one(record_state<Hasher> &state, block_run &run) {
    if (!state.blocks)
        state.blocks = new (std::nothrow) block_hasher<Hasher>;
    if (!state.blocks)
        return TCRYPTO_E_MEMORY;
    bool good = state.blocks->start(run);
    for (; good && run.count != 0; run.advance(1))
        good = state.blocks->hash(run);
    return good ? int{TCRYPTO_OK} : ossl_fail(TCRYPTO_E_INTERNAL, "digest update failed\n");
}

}  // namespace

template <class Hasher>
int record_digest<Hasher>::create(const tcrypto_algorithm *algorithm, void **out) {
    auto *const state = new (std::nothrow) record_state<Hasher>{};
    if (!state)
        return TCRYPTO_E_MEMORY;
    state->digest_size = algorithm->digest.digest_size;
    state->kernel = digest_kernel_for(algorithm->name);
    *out = state;
    return TCRYPTO_OK;
}

template <class Hasher>
void record_digest<Hasher>::destroy(void *state) {
    if (!state)
        return;
    const wiped_ptr<block_hasher<Hasher>> blocks(state_of<Hasher>(state).blocks);
    const wiped_ptr<record_state<Hasher>> record(&state_of<Hasher>(state));
}

template <class Hasher>
int record_digest<Hasher>::init(void *state) {
    if (!state_of<Hasher>(state).hasher.init(state_of<Hasher>(state).digest_size))
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest init failed\n");
    return TCRYPTO_OK;
}

template <class Hasher>
int record_digest<Hasher>::update(void *state, const void *data, std::size_t length) {
    if (!state_of<Hasher>(state).hasher.update(static_cast<const std::uint8_t *>(data), length))
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest update failed\n");
    return TCRYPTO_OK;
}

template <class Hasher>
int record_digest<Hasher>::final(void *state, std::uint8_t *out, std::size_t *out_length) {
    const std::size_t digest_size = state_of<Hasher>(state).digest_size;
    if (!state_of<Hasher>(state).hasher.final(out, digest_size))
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest final failed\n");
    if (out_length)
        *out_length = digest_size;
    return TCRYPTO_OK;
}

template <class Hasher>
int record_digest<Hasher>::copy(const tcrypto_algorithm *algorithm, const void *from, void **out) {
    const int rc = create(algorithm, out);
    if (rc == TCRYPTO_OK)
        state_of<Hasher>(*out).hasher = static_cast<const record_state<Hasher> *>(from)->hasher;
    return rc;
}

template <class Hasher>
int record_digest<Hasher>::blocks(void *state, const void *salt, std::size_t salt_length, const void *data,
                                  std::size_t length, std::size_t count, std::uint8_t *out) {
    record_state<Hasher> &record = state_of<Hasher>(state);
    block_run run = {
        .salt = static_cast<const std::uint8_t *>(salt),
        .salt_length = salt_length,
        .data = static_cast<const std::uint8_t *>(data),
        .length = length,
        .count = count,
        .out = out,
        .digest_size = record.digest_size,
    };
    hash_lanes(record.kernel, run);
    return run.count == 0 ? int{TCRYPTO_OK} : hash_one_by_one(record, run);
}

template struct record_digest<blake2s_record>;
template struct record_digest<blake2b_record>;
template struct record_digest<blake3_record>;
