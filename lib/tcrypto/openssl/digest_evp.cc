#include "tcrypto/openssl/digest_evp.h"

#include <memory>
#include <new>

#include "tcrypto/kernels/kernel.h"
#include "tcrypto/openssl/ossl.h"

namespace {

// OpenSSL wipes what its digest contexts held when it frees them.
struct evp_state {
    evp_md_ptr md;  // fetched once, since a fetch costs as much as hashing a small block
    evp_md_ctx_ptr ctx;
    kernel_choice kernels;
};

evp_state &state_of(void *state) {
    return *static_cast<evp_state *>(state);
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
    state->kernels = digest_kernels_for(algorithm->name);
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
    if (const int err = create(algorithm, &to); err != TCRYPTO_OK)
        return err;
    if (EVP_MD_CTX_copy_ex(state_of(to).ctx.get(), static_cast<const evp_state *>(from)->ctx.get()) != 1) {
        destroy(to);
        return ossl_fail(TCRYPTO_E_INTERNAL, "digest copy failed\n");
    }
    *out = to;
    return TCRYPTO_OK;
}

std::size_t evp_digest::blocks(void *state, const void *salt, std::size_t salt_length, const void *data,
                               std::size_t length, std::size_t count, std::uint8_t *out) {
    return state_of(state).kernels.hash(salt, salt_length, data, length, count, out);
}
