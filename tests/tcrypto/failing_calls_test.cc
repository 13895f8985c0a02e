// Every call of OpenSSL and libb2, every allocation and every lock of the library fails
// once: what was asked for then fails as well, and the library goes on afterwards.
#include "support/failing_openssl.h"

#include <gmock/gmock.h>
#include <pthread.h>

#include "key_fixture.h"
#include "support/null_arguments.h"
#include "support/stderr_of.h"
#include "tcrypto/lock.h"
#include "tcrypto/plugin.h"

static bool lock_fails = false;

static bool is_ours(const pthread_mutex_t *mutex) {
    return mutex == &tcrypto_init_mutex.handle || mutex == &tcrypto_library_mutex.handle ||
           mutex == &tcrypto_plugin_mutex.handle;
}

FAILING_IF(lock_fails &&is_ours(mutex), int, pthread_mutex_lock, EAGAIN, (pthread_mutex_t * mutex), mutex)

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

TEST_F(failing_calls, NullArgumentsAreErrors) {
    const tcrypto_ctx_ptr digest = request(TCRYPTO_DIGEST, "md5");
    const tcrypto_ctx_ptr random = request(TCRYPTO_RNG, "drbg-ctr-128");
    const tcrypto_ctx_ptr keys = request(TCRYPTO_KEYGEN, "ed448");
    const tcrypto_ctx_ptr ctx = request(TCRYPTO_SIGNATURE, "rsa-with-sha256");
    const tcrypto_key_ptr secret = load("rsa", "rsa.pem");
    const tcrypto_signature_params params;
    tcrypto_plugin *plugin = nullptr, *other = nullptr;
    ASSERT_EQ(tcrypto_find_plugin("openssl", nullptr, &plugin), 0);
    ASSERT_EQ(tcrypto_rng_instantiate(random.get(), nullptr, 0), 0);
    tcrypto_key *key = nullptr;
    tcrypto_ctx *made = nullptr;
    std::uint8_t out[512];
    std::size_t length = sizeof out;
    int result = 1;
    const std::vector<int> answers[] = {
        answers_to_null(tcrypto_add_plugin, "new", nullptr, &other),
        answers_to_null(tcrypto_find_plugin, nullptr, nullptr, &other),
        answers_to_null(tcrypto_bind_plugin, plugin),
        answers_to_null(tcrypto_get_algorithm, plugin, TCRYPTO_DIGEST, "md5", nullptr),
        answers_to_null(tcrypto_digest_init, digest.get()),
        answers_to_null(tcrypto_digest_update, digest.get(), "m", 1),
        answers_to_null(tcrypto_digest_final, digest.get(), out, nullptr),
        answers_to_null(tcrypto_digest, digest.get(), "m", 1, out, nullptr),
        answers_to_null(tcrypto_digest_copy, digest.get(), &made),
        answers_to_null(tcrypto_digest_blocks, digest.get(), "s", 1, "m", 1, 1, out, nullptr),
        answers_to_null(tcrypto_rng_instantiate, random.get(), "p", 1),
        answers_to_null(tcrypto_rng_reseed, random.get(), "m", 1),
        answers_to_null(tcrypto_load_key_from_file, keys.get(), &key, "", 3, 3),
        answers_to_null(tcrypto_load_key_from_mem, keys.get(), &key, "m", 1, 3, 3),
        answers_to_null(tcrypto_pubkey_from_privkey, keys.get(), secret.get(), &key),
        answers_to_null(tcrypto_generate_key, keys.get(), 8, &key),
        answers_to_null(tcrypto_privkey_to_mem, secret.get(), nullptr, &length, 3),
        answers_to_null(tcrypto_privkey_to_file, secret.get(), "", 3),
        answers_to_null(tcrypto_signature_init, ctx.get(), secret.get(), &params),
        answers_to_null(tcrypto_signature_update, ctx.get(), nullptr, 0),
        {tcrypto_get_algorithm(plugin, 9, "md5", &made), tcrypto_get_algorithm(plugin, 1, "none", &made)},
    };
    EXPECT_THAT(answers, testing::Each(testing::Each(testing::Ne(0))));
    EXPECT_EQ(tcrypto_digestsize(nullptr) + tcrypto_digestsize(random.get()), 0u);
    EXPECT_EQ(tcrypto_rng_strength(nullptr) + tcrypto_rng_strength(digest.get()), 0u);
    EXPECT_EQ(tcrypto_signature_sigsize(nullptr), 0u);
    EXPECT_EQ(tcrypto_plugin_name(nullptr), nullptr);
    EXPECT_EQ(tcrypto_get_algorithm(plugin, TCRYPTO_DIGEST, "md5", nullptr), 0);
    EXPECT_FALSE(tcrypto_key_is_private(nullptr));
    tcrypto_release_ctx(nullptr);
    tcrypto_release_key(nullptr);
    const auto start = [&] { EXPECT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &params), 0); };
    const std::vector<int> refused[] = {
        answers_to_null_after(start, tcrypto_signature_update, ctx.get(), "m", 1),
        answers_to_null_after(start, tcrypto_signature_sign, ctx.get(), out, &length),
        answers_to_null_after(start, tcrypto_signature_sign_oneshot, ctx.get(), "m", 1, out, &length),
        answers_to_null_after(start, tcrypto_signature_sign_without_digest, ctx.get(), "m", 1, out, &length),
        answers_to_null_after(start, tcrypto_signature_verify, ctx.get(), out, 1, &result),
        answers_to_null_after(start, tcrypto_signature_verify_oneshot, ctx.get(), "m", 1, out, 1, &result),
        answers_to_null_after(start, tcrypto_signature_verify_without_digest, ctx.get(), "m", 1, out, 1,
                              &result),
    };
    EXPECT_THAT(refused, testing::Each(testing::Each(TCRYPTO_E_PARAMETERS)));
    EXPECT_EQ(result, 0);
}

TEST_F(failing_calls, LocksFailWhatNeedsThem) {
    tcrypto_plugin *plugin = nullptr;
    tcrypto_ctx *ctx = nullptr;
    ASSERT_EQ(tcrypto_find_plugin("openssl", nullptr, &plugin), 0);
    testing::internal::CaptureStderr();
    lock_fails = true;
    const int answers[] = {tcrypto_init(0, nullptr),
                           tcrypto_uninit(),
                           tcrypto_add_plugin("new", nullptr, &plugin),
                           tcrypto_find_plugin("openssl", nullptr, &plugin),
                           tcrypto_bind_plugin(plugin),
                           tcrypto_bind_plugins(2),
                           tcrypto_request_algorithm(TCRYPTO_DIGEST, "md5", nullptr, 0, &ctx),
                           tcrypto_get_algorithm(plugin, TCRYPTO_DIGEST, "md5", &ctx)};
    EXPECT_EQ(tcrypto_got_plugins(), 0);
    tcrypto_print_plugins();
    lock_fails = false;
    testing::internal::GetCapturedStderr();
    EXPECT_THAT(answers, testing::Each(testing::Ne(0)));
    EXPECT_EQ(ctx, nullptr);
    EXPECT_EQ(tcrypto_digest_supported("md5", nullptr, 0), 0);
}

}  // namespace
