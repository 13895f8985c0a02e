// Every call of OpenSSL and libb2, every allocation and every lock of the library fails
// once: what was asked for then fails as well, and the library goes on afterwards.
#include "support/failing_openssl.h"

#include <functional>
#include <new>

#include <gmock/gmock.h>
#include <pthread.h>

#include "key_fixture.h"
#include "tcrypto/lock.h"
#include "tcrypto/plugin.h"

namespace {

int fails_at = 0;  // counts down to the failing call; 0: none fails
bool lock_fails = false;

}  // namespace

bool fails() {
    return fails_at != 0 && --fails_at == 0;
}
// clang-format off
FAILING(void *, _ZnwmRKSt9nothrow_t, nullptr, (std::size_t size, const std::nothrow_t &tag), size, tag)
// clang-format on
extern "C" int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex);
extern "C" int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
    const bool ours = mutex == &tcrypto_init_mutex.mutex || mutex == &tcrypto_library_mutex.mutex ||
                      mutex == &tcrypto_plugin_mutex.mutex;
    return lock_fails && ours ? EAGAIN : __real_pthread_mutex_lock(mutex);
}

namespace {

using request_function = int (*)(const char *, const char *, std::uint32_t, tcrypto_ctx **);

class failing_calls : public key_test {
protected:
    static tcrypto_ctx_ptr request(request_function function, const char *name) {
        tcrypto_ctx *ctx = nullptr;
        const int rc = function(name, nullptr, 0, &ctx);
        EXPECT_EQ(rc == 0, ctx != nullptr);
        return tcrypto_ctx_ptr(ctx);
    }
    // `make` gets the address for a key.
    template <class Make>
    static tcrypto_key_ptr key_of(Make make) {
        tcrypto_key *key = nullptr;
        const int rc = make(&key);
        EXPECT_EQ(rc == 0, key != nullptr);
        return tcrypto_key_ptr(key);
    }

    static bool digests(const char *name) {
        const tcrypto_ctx_ptr ctx = request(tcrypto_digest_request, name);
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
        const tcrypto_ctx_ptr ctx = request(tcrypto_rng_request, "drbg-ctr-128");
        std::uint8_t out[8];
        return ctx && tcrypto_rng_instantiate(ctx.get(), nullptr, 0) == 0 &&
               tcrypto_rng_instantiate(ctx.get(), "afresh", 6) == 0 &&
               tcrypto_rng_reseed(ctx.get(), nullptr, 0) == 0 &&
               tcrypto_rng_generate(ctx.get(), out, 8) == 0 && tcrypto_random_bytes(out, 8) == 0;
    }
    static bool keeps_symmetric_keys() {
        const tcrypto_ctx_ptr ctx = request(tcrypto_keygen_request, "symmetric");
        return ctx && key_of([&](auto out) { return tcrypto_generate_key(ctx.get(), 128, out); }) &&
               key_of([&](auto out) { return tcrypto_key_from_mem(ctx.get(), out, "key", 3); });
    }
    static bool signs(const char *name, const char *signature, tcrypto_signature_params params) {
        const tcrypto_ctx_ptr keys = request(tcrypto_keygen_request, name);
        const auto loaded = [&](std::uint32_t type, const char *end) {
            const std::string path = key_file(std::string(name) + end);
            return key_of([&](auto out) {
                return tcrypto_load_key_from_file(keys.get(), out, path.c_str(), type, TCRYPTO_FORMAT_PEM);
            });
        };
        const tcrypto_key_ptr secret = keys ? loaded(TCRYPTO_KEY_PRIVATE, ".pem") : nullptr;
        const tcrypto_key_ptr open_half = secret ? loaded(TCRYPTO_KEY_PUBLIC, ".pub.pem") : nullptr;
        const tcrypto_ctx_ptr ctx = open_half ? request(tcrypto_signature_request, signature) : nullptr;
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
    testing::internal::CaptureStderr();
    int reached = 0;
    for (bool failed = true; failed && reached < 1000; ++reached) {
        fails_at = reached + 1;
        const bool worked = all_work();
        failed = fails_at == 0;
        EXPECT_NE(worked, failed) << "call " << reached + 1;
    }
    fails_at = 0;
    testing::internal::GetCapturedStderr();
    EXPECT_GT(reached, 100);
    EXPECT_TRUE(all_work());
}

TEST_F(failing_calls, NullArgumentsAreErrors) {
    const tcrypto_ctx_ptr digest = request(tcrypto_digest_request, "md5");
    const tcrypto_ctx_ptr random = request(tcrypto_rng_request, "drbg-ctr-128");
    const tcrypto_ctx_ptr keys = request(tcrypto_keygen_request, "ed448");
    const tcrypto_ctx_ptr ctx = request(tcrypto_signature_request, "rsa-with-sha256");
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
    const int answers[] = {tcrypto_add_plugin(nullptr, nullptr, &other),
                           tcrypto_add_plugin("new", nullptr, nullptr),
                           tcrypto_find_plugin("openssl", nullptr, nullptr),
                           tcrypto_bind_plugin(nullptr),
                           tcrypto_get_algorithm(nullptr, TCRYPTO_DIGEST, "md5", &made),
                           tcrypto_digest_init(nullptr),
                           tcrypto_digest_update(nullptr, "", 0),
                           tcrypto_digest_final(nullptr, out, nullptr),
                           tcrypto_digest_final(digest.get(), nullptr, nullptr),
                           tcrypto_get_algorithm(plugin, TCRYPTO_DIGEST, nullptr, &made),
                           tcrypto_get_algorithm(plugin, 9, "md5", &made),
                           tcrypto_get_algorithm(plugin, TCRYPTO_DIGEST, "none", &made),
                           tcrypto_digest(digest.get(), nullptr, 1, out, nullptr),
                           tcrypto_digest(digest.get(), "", 1, nullptr, nullptr),
                           tcrypto_digest_copy(digest.get(), nullptr),
                           tcrypto_digest_blocks(nullptr, "", 0, "", 1, 1, out),
                           tcrypto_digest_blocks(digest.get(), nullptr, 1, "", 1, 1, out),
                           tcrypto_digest_blocks(digest.get(), "", 0, nullptr, 1, 1, out),
                           tcrypto_rng_instantiate(nullptr, nullptr, 0),
                           tcrypto_rng_instantiate(random.get(), nullptr, 1),
                           tcrypto_rng_reseed(random.get(), nullptr, 1),
                           tcrypto_load_key_from_file(keys.get(), nullptr, "", 3, 3),
                           tcrypto_load_key_from_file(keys.get(), &key, nullptr, 3, 3),
                           tcrypto_load_key_from_mem(keys.get(), nullptr, "", 1, 3, 3),
                           tcrypto_load_key_from_mem(keys.get(), &key, nullptr, 1, 3, 3),
                           tcrypto_load_key_from_mem(nullptr, &key, "", 1, 3, 3),
                           tcrypto_pubkey_from_privkey(keys.get(), secret.get(), nullptr),
                           tcrypto_pubkey_from_privkey(keys.get(), nullptr, &key),
                           tcrypto_pubkey_from_privkey(nullptr, secret.get(), &key),
                           tcrypto_generate_key(keys.get(), 8, nullptr),
                           tcrypto_privkey_to_mem(nullptr, out, &length, 3),
                           tcrypto_privkey_to_mem(secret.get(), out, nullptr, 3),
                           tcrypto_privkey_to_file(secret.get(), nullptr, 3),
                           tcrypto_privkey_to_file(nullptr, "", 3),
                           tcrypto_signature_init(nullptr, secret.get(), &params),
                           tcrypto_signature_init(ctx.get(), secret.get(), nullptr),
                           tcrypto_signature_update(nullptr, "", 0)};
    EXPECT_THAT(answers, testing::Each(testing::Ne(0)));
    EXPECT_EQ(tcrypto_digestsize(nullptr) + tcrypto_digestsize(random.get()), 0u);
    EXPECT_EQ(tcrypto_rng_strength(nullptr) + tcrypto_rng_strength(digest.get()), 0u);
    EXPECT_EQ(tcrypto_signature_sigsize(nullptr), 0u);
    EXPECT_EQ(tcrypto_plugin_name(nullptr), nullptr);
    EXPECT_EQ(tcrypto_get_algorithm(plugin, TCRYPTO_DIGEST, "md5", nullptr), 0);
    EXPECT_FALSE(tcrypto_key_is_private(nullptr));
    tcrypto_release_ctx(nullptr);
    tcrypto_release_key(nullptr);
    // Each of these ends what the initialisation before it began.
    const std::function<int()> calls[] = {
        [&] { return tcrypto_signature_update(ctx.get(), nullptr, 1); },
        [&] { return tcrypto_signature_sign(ctx.get(), nullptr, &length); },
        [&] { return tcrypto_signature_sign(ctx.get(), out, nullptr); },
        [&] { return tcrypto_signature_sign_oneshot(ctx.get(), nullptr, 1, out, &length); },
        [&] { return tcrypto_signature_sign_oneshot(ctx.get(), "", 0, nullptr, &length); },
        [&] { return tcrypto_signature_sign_oneshot(ctx.get(), "", 0, out, nullptr); },
        [&] { return tcrypto_signature_sign_without_digest(ctx.get(), nullptr, 1, out, &length); },
        [&] { return tcrypto_signature_sign_without_digest(ctx.get(), "", 0, nullptr, &length); },
        [&] { return tcrypto_signature_sign_without_digest(ctx.get(), "", 0, out, nullptr); },
        [&] { return tcrypto_signature_verify(ctx.get(), nullptr, 0, &result); },
        [&] { return tcrypto_signature_verify(ctx.get(), out, 1, nullptr); },
        [&] { return tcrypto_signature_verify_oneshot(ctx.get(), nullptr, 1, out, 1, &result); },
        [&] { return tcrypto_signature_verify_oneshot(ctx.get(), "", 0, nullptr, 1, &result); },
        [&] { return tcrypto_signature_verify_without_digest(ctx.get(), nullptr, 1, out, 1, &result); },
        [&] { return tcrypto_signature_verify_without_digest(ctx.get(), "", 0, nullptr, 1, &result); },
    };
    for (const auto &call : calls) {
        ASSERT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &params), 0);
        EXPECT_EQ(call(), TCRYPTO_E_PARAMETERS) << &call - calls;
    }
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
