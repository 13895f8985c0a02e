// Counter-mode DRBGs, and the process-wide generator.
#include <memory>
#include <new>

#include <openssl/core_names.h>
#include <openssl/obj_mac.h>
#include <openssl/objects.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include "tcrypto/openssl/descriptor.h"
#include "tcrypto/openssl/families.h"
#include "tcrypto/openssl/ossl.h"

namespace {

// OpenSSL keeps the generator's secrets on its secure heap and wipes them.
struct rng_state {
    evp_rand_ctx_ptr ctx;
    unsigned strength = 0;  // bits
};

rng_state &state_of(void *state) {
    return *static_cast<rng_state *>(state);
}

// The generator draws its entropy from the operating system: it has no parent.
evp_rand_ctx_ptr make_drbg(int cipher_id) {
    const evp_rand_ptr drbg(EVP_RAND_fetch(nullptr, "CTR-DRBG", nullptr));
    if (!drbg)
        return nullptr;
    evp_rand_ctx_ptr ctx(EVP_RAND_CTX_new(drbg.get(), nullptr));
    const OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_DRBG_PARAM_CIPHER, const_cast<char *>(OBJ_nid2sn(cipher_id)),
                                         0),
        OSSL_PARAM_construct_end(),
    };
    return ctx && EVP_RAND_CTX_set_params(ctx.get(), params) == 1 ? std::move(ctx) : nullptr;
}

int rng_create(const tcrypto_algorithm *algorithm, void **out) {
    std::unique_ptr<rng_state> state(new (std::nothrow) rng_state);
    if (!state)
        return TCRYPTO_E_MEMORY;
    state->strength = algorithm->rng.strength;
    state->ctx = make_drbg(static_cast<int>(algorithm->parameter));
    if (!state->ctx)
        return ossl_fail(TCRYPTO_E_INTERNAL, "creating DRBG instance failed\n");
    *out = state.release();
    return TCRYPTO_OK;
}

void rng_destroy(void *state) {
    delete static_cast<rng_state *>(state);
}

int rng_instantiate(void *state, const void *personalisation, std::size_t length) {
    EVP_RAND_CTX *const ctx = state_of(state).ctx.get();
    EVP_RAND_uninstantiate(ctx);  // OpenSSL would keep a running generator as it is
    if (EVP_RAND_instantiate(ctx, state_of(state).strength, 0,
                             static_cast<const unsigned char *>(personalisation), length, nullptr) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "DRBG instance instantiation failed\n");
    return TCRYPTO_OK;
}

int rng_reseed(void *state, const void *additional, std::size_t length) {
    if (EVP_RAND_reseed(state_of(state).ctx.get(), 0, nullptr, 0,
                        static_cast<const unsigned char *>(additional), length) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "DRBG reseed failed\n");
    return TCRYPTO_OK;
}

int rng_generate(void *state, void *out, std::size_t length) {
    if (EVP_RAND_generate(state_of(state).ctx.get(), static_cast<unsigned char *>(out), length,
                          state_of(state).strength, 0, nullptr, 0) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "DRBG bytes failed\n");
    return TCRYPTO_OK;
}

consteval tcrypto_algorithm row(std::string_view name, std::uint32_t strength, int cipher_id) {
    tcrypto_algorithm algorithm = ossl_descriptor(TCRYPTO_RNG, name);
    algorithm.rng = {
        .strength = strength,
        .instantiate = rng_instantiate,
        .reseed = rng_reseed,
        .generate = rng_generate,
    };
    algorithm.ctx_create = rng_create;
    algorithm.ctx_destroy = rng_destroy;
    algorithm.parameter = static_cast<std::uintptr_t>(cipher_id);
    return algorithm;
}

constinit const tcrypto_algorithm RNGS[] = {
    row("drbg-ctr-128", 128, NID_aes_128_ctr),
    row("drbg-ctr-192", 192, NID_aes_192_ctr),
    row("drbg-ctr-256", 256, NID_aes_256_ctr),
};

}  // namespace

int ossl_register_rngs() {
    return ossl_register_all(RNGS);
}

int tcrypto_random_bytes(void *out, std::size_t length) {
    if (!out && length != 0)
        return TCRYPTO_E_PARAMETERS;
    if (RAND_bytes_ex(nullptr, static_cast<unsigned char *>(out), length, 0) != 1)
        return ossl_fail(TCRYPTO_E_INTERNAL, "drawing random bytes failed\n");
    return TCRYPTO_OK;
}
