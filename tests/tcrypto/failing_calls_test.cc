// Every call of OpenSSL and libb2 and every allocation fails
// once: what was asked for then fails as well, and the library goes on afterwards.
#include "support/failing_openssl.h"

#include <gmock/gmock.h>
#include <openssl/err.h>

#include "key_fixture.h"
#include "support/stderr_of.h"

namespace {

class failing_calls : public key_test {
protected:
    // `make` gets the address for a key.
    template <class Make>
    static tcrypto_key_ptr key_of(Make make) {
        tcrypto_key *key = nullptr;
        const int rc = make(&key);
        EXPECT_EQ(rc == 0, key != nullptr);
        return tcrypto_key_ptr(key);
    }

    static bool digests(const char *name) {
        const tcrypto_ctx_ptr ctx = request(TCRYPTO_DIGEST, name);
        tcrypto_ctx *copy = nullptr;
        std::uint8_t out[128];
        const bool copied = ctx && tcrypto_digest_init(ctx.get()) == 0 &&
                            tcrypto_digest_update(ctx.get(), "a", 1) == 0 &&
                            tcrypto_digest_copy(ctx.get(), &copy) == 0;
        const tcrypto_ctx_ptr owner(copy);
        return copied && tcrypto_digest_final(copy, out, nullptr) == 0 &&
               tcrypto_digest(ctx.get(), "a", 1, out, nullptr) == 0 &&
               tcrypto_digest_blocks(ctx.get(), "s", 1, "ab", 1, 2, out) == 0;
    }
    static bool draws() {
        const tcrypto_ctx_ptr ctx = request(TCRYPTO_RNG, "drbg-ctr-128");
        std::uint8_t out[8];
        return ctx && tcrypto_rng_instantiate(ctx.get(), nullptr, 0) == 0 &&
               tcrypto_rng_instantiate(ctx.get(), "afresh", 6) == 0 &&
               tcrypto_rng_reseed(ctx.get(), nullptr, 0) == 0 &&
               tcrypto_rng_generate(ctx.get(), out, 8) == 0 && tcrypto_random_bytes(out, 8) == 0;
    }
    static bool keeps_symmetric_keys() {
        const tcrypto_ctx_ptr ctx = request(TCRYPTO_KEYGEN, "symmetric");
        return ctx && key_of([&](auto out) { return tcrypto_generate_key(ctx.get(), 128, out); }) &&
               key_of([&](auto out) { return tcrypto_key_from_mem(ctx.get(), out, "key", 3); });
    }
    static bool signs(const std::string &name, const char *signature, tcrypto_signature_params params) {
        const tcrypto_ctx_ptr keys = request(TCRYPTO_KEYGEN, name);
        const tcrypto_key_ptr secret = keys ? load(name, name + ".pem") : nullptr;
        const tcrypto_key_ptr open_half = secret ? load(name, name + ".pub.pem") : nullptr;
        const tcrypto_ctx_ptr ctx = open_half ? request(TCRYPTO_SIGNATURE, signature) : nullptr;
        std::uint8_t out[512];
        std::size_t length = sizeof out;
        int matches = 0;
        if (!ctx ||
            !key_of([&](auto to) { return tcrypto_pubkey_from_privkey(keys.get(), secret.get(), to); }) ||
            tcrypto_privkey_to_file(secret.get(), (folder() / "out").c_str(), TCRYPTO_FORMAT_PEM) != 0 ||
            tcrypto_signature_init(ctx.get(), secret.get(), &params) != 0 ||
            tcrypto_signature_sign_oneshot(ctx.get(), "m", 1, out, &length) != 0)
            return false;
        params.operation = TCRYPTO_VERIFY;
        return tcrypto_signature_init(ctx.get(), open_half.get(), &params) == 0 &&
               tcrypto_signature_verify_oneshot(ctx.get(), "m", 1, out, length, &matches) == 0 &&
               matches == 1;
    }
    static bool all_work() {
        const bool worked = tcrypto_init(2, nullptr) == 0 && digests("md5") && digests("blake2s128") &&
                            draws() && keeps_symmetric_keys() &&
                            signs("rsa", "rsa-with-sha256", {.padding = TCRYPTO_PADDING_PSS}) &&
                            signs("ed448", "eddsa-pure", {});
        tcrypto_uninit();
        return worked;
    }
};

TEST_F(failing_calls, FailWhatNeedsThem) {
    tcrypto_uninit();  // so that every round binds the provider again
    ASSERT_TRUE(all_work());
    stderr_of([] { EXPECT_GT(fail_each_call(all_work), 100); });
    EXPECT_TRUE(all_work());
}

// The reason comes first, as OpenSSL has it, and nothing is left in its queue.
TEST_F(failing_calls, LogOpensslsReason) {
    const tcrypto_ctx_ptr keys = request(TCRYPTO_KEYGEN, "rsa");
    tcrypto_key *key = nullptr;
    const std::string log = stderr_of(
        [&] { EXPECT_EQ(tcrypto_privkey_from_mem(keys.get(), &key, "junk", 4, TCRYPTO_FORMAT_PEM), -403); });
    EXPECT_THAT(log, testing::MatchesRegex("tc_openssl: error:[0-9A-F]+:[^\n]*\\[keygen.cc\\([0-9]+\\)\\]\n"
                                           "tc_openssl: failed to convert raw key into EVP_PKEY [^\n]*\n"));
    EXPECT_EQ(ERR_peek_error(), 0u);
}

}  // namespace
