#include "tcrypto/openssl/digest_blake.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include <blake2.h>
#include <blake3.h>

#include "tcrypto/kernels/kernel.h"
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

template <class Hasher>
struct record_state {
    alignas(64) Hasher hasher;
    std::size_t digest_size = 0;
    kernel_choice kernels;
};

template <class Hasher>
record_state<Hasher> &state_of(void *state) {
    return *static_cast<record_state<Hasher> *>(state);
}

// BLAKE3 hashes chunks side by side, but only those that one call brings whole: a
// salt fed on its own leaves the block off the chunks' grid, and most of it is
// then hashed serially.  So salt and block go in together, through a buffer.
// Returns the number of blocks that it hashed: all, or none without a buffer.
std::size_t hash_joined(const void *salt, std::size_t salt_length, const std::uint8_t *data,
                        std::size_t length, std::size_t count, std::uint8_t *out) {
    constexpr std::size_t ROOM = 65536;  // bytes; what is longer takes a second update
    const std::size_t taken = salt_length > ROOM ? 0 : std::min(length, ROOM - salt_length);
    const std::unique_ptr<std::uint8_t[]> joined(new (std::nothrow) std::uint8_t[salt_length + taken]);
    if (!joined)
        return 0;
    std::copy_n(static_cast<const std::uint8_t *>(salt), salt_length, joined.get());
    for (std::size_t i = 0; i < count; ++i, data += length, out += BLAKE3_OUT_LEN) {
        std::copy_n(data, taken, joined.get() + salt_length);
        blake3_record hasher;
        hasher.init(BLAKE3_OUT_LEN);
        hasher.update(joined.get(), salt_length + taken);
        hasher.update(data + taken, length - taken);
        hasher.final(out, BLAKE3_OUT_LEN);
    }
    return count;
}

}  // namespace

template <class Hasher>
int record_digest<Hasher>::create(const tcrypto_algorithm *algorithm, void **out) {
    auto *const state = new (std::nothrow) record_state<Hasher>{};
    if (!state)
        return TCRYPTO_E_MEMORY;
    state->digest_size = algorithm->digest.digest_size;
    state->kernels = digest_kernels_for(algorithm->name);
    *out = state;
    return TCRYPTO_OK;
}

template <class Hasher>
void record_digest<Hasher>::destroy(void *state) {
    if (!state)
        return;
    static_assert(std::is_trivially_destructible_v<record_state<Hasher>>);
    explicit_bzero(state, sizeof(record_state<Hasher>));
    delete &state_of<Hasher>(state);
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
    if (const int err = create(algorithm, out); err != TCRYPTO_OK)
        return err;
    state_of<Hasher>(*out).hasher = static_cast<const record_state<Hasher> *>(from)->hasher;
    return TCRYPTO_OK;
}

template <class Hasher>
std::size_t record_digest<Hasher>::blocks(void *state, const void *salt, std::size_t salt_length,
                                          const void *data, std::size_t length, std::size_t count,
                                          std::uint8_t *out) {
    const std::size_t done =
        state_of<Hasher>(state).kernels.hash(salt, salt_length, data, length, count, out);
    if constexpr (!std::is_same_v<Hasher, blake3_record>)
        return done;
    return done + hash_joined(salt, salt_length, static_cast<const std::uint8_t *>(data) + done * length,
                              length, count - done, out + done * BLAKE3_OUT_LEN);
}

template struct record_digest<blake2s_record>;
template struct record_digest<blake2b_record>;
template struct record_digest<blake3_record>;
