#include <memory>
#include <new>

#include "tcrypto/openssl/digest_backends.h"
#include "tcrypto/openssl/digest_blocks.h"
#include "tcrypto/openssl/ossl.h"

namespace {

// OpenSSL wipes what its digest contexts held when it frees them.
struct evp_state {
    evp_md_ptr md;  // fetched once, since a fetch costs as much as hashing a small block
    evp_md_ctx_ptr ctx;
    evp_md_ctx_ptr block_ctx;  // for `blocks`: the salted state's copies; made on first use
    const digest_kernel *kernel = nullptr;
    std::size_t digest_size = 0;
};

evp_state &state_of(void *state) {
    return *static_cast<evp_state *>(state);
}

int hash_salt(evp_state &state, const block_run &run) {
    const int rc = evp_digest::init(&state);
    return rc == TCRYPTO_OK ? evp_digest::update(&state, run.salt, run.salt_length) : rc;
}

int hash_salted_block(evp_state &state, const block_run &run) {
    EVP_MD_CTX *const ctx = state.block_ctx.get();
    if (EVP_MD_CTX_copy_ex(ctx, state.ctx.get()) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest copy failed\n");
    if (EVP_DigestUpdate(ctx, run.data, run.length) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest update failed\n");
    if (EVP_DigestFinal_ex(ctx, run.out, nullptr) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest final failed\n");
    return TCRYPTO_OK;
}

// Keeps the salted state in `ctx` and hashes every block from a copy of it.
int hash_one_by_one(evp_state &state, block_run &run) {
    if (!state.block_ctx)
        state.block_ctx.reset(EVP_MD_CTX_new());
    if (!state.block_ctx)
        return ossl_fail(TCRYPTO_E_MEMORY, "digest copy failed\n");
    int rc = hash_salt(state, run);
    for (; rc == TCRYPTO_OK && run.count != 0; run.advance(1))
        rc = hash_salted_block(state, run);
    return rc;
}

}  // namespace

int evp_digest::create(const tcrypto_algorithm *algorithm, void **out) {
    std::unique_ptr<evp_state> state(new (std::nothrow) evp_state);
    if (!state)
        return TCRYPTO_E_MEMORY;
    state->md.reset(EVP_MD_fetch(nullptr, algorithm->name, nullptr));
    if (!state->md)
        return ossl_fail(TCRYPTO_E_LIBRARY, "digest not found\n");
    state->ctx.reset(EVP_MD_CTX_new());
    if (!state->ctx)
        return ossl_fail(TCRYPTO_E_MEMORY, "digest context creation failed\n");
    state->kernel = digest_kernel_for(algorithm->name);
    state->digest_size = algorithm->digest.digest_size;
    *out = state.release();
    return TCRYPTO_OK;
}

void evp_digest::destroy(void *state) {
    delete static_cast<evp_state *>(state);
}

int evp_digest::init(void *state) {
    if (EVP_DigestInit_ex(state_of(state).ctx.get(), state_of(state).md.get(), nullptr) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest init failed\n");
    return TCRYPTO_OK;
}

int evp_digest::update(void *state, const void *data, std::size_t length) {
    if (EVP_DigestUpdate(state_of(state).ctx.get(), data, length) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest update failed\n");
    return TCRYPTO_OK;
}

int evp_digest::final(void *state, std::uint8_t *out, std::size_t *out_length) {
    unsigned length = 0;
    if (EVP_DigestFinal_ex(state_of(state).ctx.get(), out, &length) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest final failed\n");
    if (out_length)
        *out_length = length;
    return TCRYPTO_OK;
}

int evp_digest::copy(const tcrypto_algorithm *algorithm, const void *from, void **out) {
    void *to = nullptr;
    const int rc = create(algorithm, &to);
    if (rc != TCRYPTO_OK)
        return rc;
    if (EVP_MD_CTX_copy_ex(state_of(to).ctx.get(), static_cast<const evp_state *>(from)->ctx.get()) != 1) {
        destroy(to);
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest copy failed\n");
    }
    *out = to;
    return TCRYPTO_OK;
}

int evp_digest::blocks(void *state, const void *salt, std::size_t salt_length, const void *data,
                       std::size_t length, std::size_t count, std::uint8_t *out) {
    block_run run = {
        .salt = static_cast<const std::uint8_t *>(salt),
        .salt_length = salt_length,
        .data = static_cast<const std::uint8_t *>(data),
        .length = length,
        .count = count,
        .out = out,
        .digest_size = state_of(state).digest_size,
    };
    hash_lanes(state_of(state).kernel, run);
    return run.count == 0 ? int{TCRYPTO_OK} : hash_one_by_one(state_of(state), run);
}
