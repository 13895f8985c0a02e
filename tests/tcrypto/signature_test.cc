#include "key_fixture.h"
#include "support/test.h"

namespace {

constexpr tcrypto_signature_params SIGN = {.operation = TCRYPTO_SIGN}, VERIFY = {.operation = TCRYPTO_VERIFY};
constexpr int MATCHES = 1, DIFFERS = 0, UNREADABLE = -403;

using bytes = std::basic_string<std::uint8_t>;
const bytes MESSAGE(260, 'm');
const std::string PEM = ".pem", PUB = ".pub.pem";

bytes flipped(bytes text, std::size_t index) {
    text[index] ^= 1;
    return text;
}

class signature_test : public key_test {
protected:
    static tcrypto_ctx_ptr request(const std::string &name) {
        return key_test::request(TCRYPTO_SIGNATURE, name);
    }
    static void start(const tcrypto_ctx_ptr &ctx, const tcrypto_key_ptr &key,
                      const tcrypto_signature_params &params) {
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), key.get(), &params), 0);
    }
    static bytes sign(const tcrypto_ctx_ptr &ctx, const tcrypto_key_ptr &key, const bytes &data,
                      const tcrypto_signature_params &params = SIGN) {
        start(ctx, key, params);
        bytes room(tcrypto_signature_sigsize(ctx.get()), 0);
        std::size_t size = room.size();
        EXPECT_EQ(tcrypto_signature_sign_oneshot(ctx.get(), data.data(), data.size(), room.data(), &size), 0);
        return room.substr(0, size);
    }
    static int verify(const tcrypto_ctx_ptr &ctx, const tcrypto_key_ptr &key, const bytes &data,
                      const bytes &signature, const tcrypto_signature_params &params = VERIFY) {
        start(ctx, key, params);
        int result = 7;
        const int rc = tcrypto_signature_verify_oneshot(ctx.get(), data.data(), data.size(), signature.data(),
                                                        signature.size(), &result);
        EXPECT_TRUE(rc == 0 || result == 0);
        return rc != 0 ? rc : result;
    }
};

TEST_F(signature_test, TellsWrongSignaturesFromUnreadableOnes) {
    // The bytes of a signature at most, and the answer when its first byte or its length is changed.
    const std::tuple<const char *, const char *, std::size_t, int> rows[] = {
        {"rsa-with-sha256", "rsa", 256, DIFFERS},
        {"ecdsa-with-sha256", "ec", 72, UNREADABLE},
        {"eddsa-pure", "ed448", 114, DIFFERS},
        {"eddsa-pure", "ed25519", 64, DIFFERS},
    };
    for (const auto &[name, keys, size, answer] : rows) {
        SCOPED_TRACE(name);
        const tcrypto_ctx_ptr ctx = request(name);
        const bytes good = sign(ctx, load(keys, keys + PEM), MESSAGE);
        const tcrypto_key_ptr key = load(keys, keys + PUB);
        EXPECT_EQ(tcrypto_signature_sigsize(ctx.get()), size);
        EXPECT_EQ(verify(ctx, key, MESSAGE, good), MATCHES);
        EXPECT_EQ(verify(ctx, key, flipped(MESSAGE, 3), good), DIFFERS);
        EXPECT_EQ(verify(ctx, key, MESSAGE, flipped(good, good.size() - 1)), DIFFERS);
        for (const bytes &changed : {flipped(good, 0), good.substr(1), good.substr(0, good.size() - 1),
                                     good + bytes(1, 0), bytes{1}}) {
            testing::internal::CaptureStderr();
            EXPECT_EQ(verify(ctx, key, MESSAGE, changed), answer);
            const std::string log = testing::internal::GetCapturedStderr();
            EXPECT_EQ(log.substr(0, 36), answer == DIFFERS ? "" : "tc_openssl: failed to verify digest ");
        }
    }
}

// By the value of the digest and of the data in parts.
TEST_F(signature_test, SignsAndVerifiesInEveryForm) {
    const std::pair<const char *, const char *> rows[] = {
        {"rsa-with-sha3-512", "rsa"}, {"dsa-with-sha256", "dsa"}, {"ecdsa-with-sha384", "ec"}};
    for (const auto &[name, keys] : rows) {
        SCOPED_TRACE(name);
        const tcrypto_ctx_ptr owner = request(name);
        tcrypto_ctx *const ctx = owner.get();
        const tcrypto_ctx_ptr digest = key_test::request(TCRYPTO_DIGEST, std::strstr(name, "-with-") + 6);
        const tcrypto_key_ptr secret = load(keys, keys + PEM), open_half = load(keys, keys + PUB);
        std::uint8_t value[64], signed_value[256], signed_parts[256];
        std::size_t size = 0, lengths[] = {256, 256};
        int results[] = {0, 0};
        EXPECT_EQ(tcrypto_digest(digest.get(), MESSAGE.data(), MESSAGE.size(), value, &size), 0);
        start(owner, secret, SIGN);
        EXPECT_EQ(tcrypto_signature_sign_without_digest(ctx, value, size, signed_value, &lengths[0]), 0);
        for (const auto &[key, params] : {std::pair{secret.get(), &SIGN}, {open_half.get(), &VERIFY}}) {
            EXPECT_EQ(tcrypto_signature_init(ctx, key, params), 0);
            EXPECT_EQ(tcrypto_signature_update(ctx, MESSAGE.data(), 5), 0);
            EXPECT_EQ(tcrypto_signature_update(ctx, MESSAGE.data() + 5, MESSAGE.size() - 5), 0);
            EXPECT_EQ(params == &SIGN ? tcrypto_signature_sign(ctx, signed_parts, &lengths[1])
                                      : tcrypto_signature_verify(ctx, signed_value, lengths[0], &results[0]),
                      0);
        }
        start(owner, open_half, VERIFY);
        EXPECT_EQ(
            tcrypto_signature_verify_without_digest(ctx, value, size, signed_parts, lengths[1], &results[1]),
            0);
        EXPECT_EQ(results[0] + results[1], 2);
    }
}

TEST_F(signature_test, RefusesWhatIsMissing) {
    const tcrypto_ctx_ptr owner = request("rsa-with-sha1");
    tcrypto_ctx *const ctx = owner.get();
    const tcrypto_key_ptr key = load("rsa", "rsa.pem"), open_half = load("rsa", "rsa.pub.pem");
    std::uint8_t out[256];
    std::size_t length = sizeof(out);
    int result = 1;
    EXPECT_EQ(with_each_null(tcrypto_signature_init, ctx, key.get(), &SIGN), (std::set{-1, -300}));
    const auto signing = [&] { start(owner, key, SIGN); };
    const auto verifying = [&] { start(owner, open_half, VERIFY); };
    const std::set<int> results[] = {
        with_each_null(signing, tcrypto_signature_update, ctx, "m", 1),
        with_each_null(signing, tcrypto_signature_sign, ctx, out, &length),
        with_each_null(signing, tcrypto_signature_sign_oneshot, ctx, "m", 1, out, &length),
        with_each_null(signing, tcrypto_signature_sign_without_digest, ctx, "m", 20, out, &length),
        with_each_null(verifying, tcrypto_signature_verify, ctx, out, 256, &result),
        with_each_null(verifying, tcrypto_signature_verify_oneshot, ctx, "m", 1, out, 256, &result),
        with_each_null(verifying, tcrypto_signature_verify_without_digest, ctx, "m", 20, out, 256, &result),
    };
    EXPECT_THAT(results, testing::Each(std::set{-1}));
    EXPECT_EQ(tcrypto_signature_update(ctx, "m", 1), -412) << "the last one concluded";
    EXPECT_EQ(tcrypto_signature_sigsize(nullptr) + tcrypto_signature_sigsize(keygen("rsa").get()), 0U);
}

TEST_F(signature_test, ChecksPaddingAndSaltOfRsa) {
    constexpr std::uint32_t PSS = TCRYPTO_PADDING_PSS;
    const std::tuple<std::uint32_t, std::int32_t, int> rows[] = {
        {PSS, -3, 0}, {PSS, 222, 0}, {PSS, 223, -411}, {PSS, -9, -403}, {0, 223, 0}, {2, 0, -410},
    };
    const tcrypto_ctx_ptr ctx = request("rsa-with-sha256");
    const tcrypto_key_ptr secret = load("rsa", "rsa.pem"), open_half = load("rsa", "rsa.pub.pem");
    for (const auto &[padding, salt, code] : rows) {
        SCOPED_TRACE(std::to_string(padding) + ", salt " + std::to_string(salt));
        tcrypto_signature_params params = {.padding = padding, .pss_salt_length = salt};
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &params), code);
        const bool keyed = code == 0 || code == -410;  // which leaves all as it was
        EXPECT_EQ(tcrypto_signature_sigsize(ctx.get()), keyed ? 256U : 0U);
        if (code != 0)
            continue;
        const bytes signature = sign(ctx, secret, MESSAGE, params);
        params.operation = TCRYPTO_VERIFY;
        EXPECT_EQ(verify(ctx, open_half, MESSAGE, signature, params), MATCHES);
        params.padding = 1 - params.padding;
        params.pss_salt_length = 0;
        EXPECT_EQ(verify(ctx, open_half, MESSAGE, signature, params), DIFFERS);
        start(ctx, secret, SIGN);
    }
    EXPECT_EQ(tcrypto_signature_update(ctx.get(), "m", 1), 0) << "still started";
}

TEST_F(signature_test, RefusesOtherKeysAndForgetsTheLastOne) {
    for (const auto &[name, good] : {std::pair{"rsa-with-sha1", "rsa"}, {"eddsa-pure", "ed448"}}) {
        SCOPED_TRACE(name);
        const tcrypto_ctx_ptr ctx = request(name);
        const tcrypto_key_ptr secret = load(good, good + PEM);
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), load("ec", "ec.pem").get(), &SIGN), -303);
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), load(good, good + PUB).get(), &SIGN), -303);
        start(ctx, secret, SIGN);
        std::uint8_t out[256];
        std::size_t length = tcrypto_signature_sigsize(ctx.get()) - 1;
        int result = 1;
        for (const int code : {-409, -412})
            EXPECT_EQ(tcrypto_signature_sign_oneshot(ctx.get(), "", 0, out, &length), code);
        start(ctx, secret, SIGN);
        for (const int code : {-403, -412})
            EXPECT_EQ(tcrypto_signature_verify_oneshot(ctx.get(), "", 0, out, length + 1, &result), code);
        EXPECT_EQ(result, 0);
        start(ctx, secret, SIGN);
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &VERIFY), -303);
        EXPECT_EQ(tcrypto_signature_sigsize(ctx.get()), 0U);
    }
    const tcrypto_ctx_ptr ctx = request("eddsa-pure");
    static_cast<void>(sign(ctx, load("ed448", "ed448.pem"), MESSAGE));
    const bytes second = sign(ctx, load("ed448", "other448.pem"), MESSAGE);
    EXPECT_EQ(verify(ctx, load("ed448", "other448.pub.pem"), MESSAGE, second), MATCHES);
    EXPECT_EQ(verify(ctx, load("ed448", "ed448.pub.pem"), MESSAGE, second), DIFFERS);
    EXPECT_EQ(tcrypto_signature_update(request("rsa-with-sha1").get(), "", 0), -412);
    EXPECT_EQ(tcrypto_signature_update(request("eddsa-pure").get(), "", 0), -402);
}

}  // namespace
