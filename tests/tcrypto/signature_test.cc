#include "key_fixture.h"
#include "support/test.h"

namespace {

constexpr tcrypto_signature_params SIGN = {.operation = TCRYPTO_SIGN};
constexpr tcrypto_signature_params VERIFY = {.operation = TCRYPTO_VERIFY};
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
    const struct {
        const char *name, *keygen;
        std::size_t size;         // bytes of a signature at most
        int first, last, length;  // the answer when that is changed
    } rows[] = {
        {"rsa-with-sha256", "rsa", 256, DIFFERS, DIFFERS, DIFFERS},
        {"ecdsa-with-sha256", "ec", 72, UNREADABLE, DIFFERS, UNREADABLE},
        {"eddsa-pure", "ed448", 114, DIFFERS, DIFFERS, DIFFERS},
        {"eddsa-pure", "ed25519", 64, DIFFERS, DIFFERS, DIFFERS},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const tcrypto_ctx_ptr ctx = request(row.name);
        const bytes good = sign(ctx, load(row.keygen, row.keygen + PEM), MESSAGE);
        const tcrypto_key_ptr key = load(row.keygen, row.keygen + PUB);
        EXPECT_EQ(tcrypto_signature_sigsize(ctx.get()), row.size);
        EXPECT_EQ(verify(ctx, key, MESSAGE, good), MATCHES);
        EXPECT_EQ(verify(ctx, key, flipped(MESSAGE, 3), good), DIFFERS);
        const std::pair<bytes, int> changes[] = {
            {flipped(good, 0), row.first},        {flipped(good, good.size() - 1), row.last},
            {good.substr(1), row.length},         {good.substr(0, good.size() - 1), row.length},
            {good + std::uint8_t{0}, row.length}, {{1}, row.length},
        };
        for (const auto &[signature, expected] : changes) {
            testing::internal::CaptureStderr();
            EXPECT_EQ(verify(ctx, key, MESSAGE, signature), expected);
            const std::string log = testing::internal::GetCapturedStderr();
            EXPECT_EQ(log.substr(0, 36), expected == DIFFERS ? "" : "tc_openssl: failed to verify digest ");
        }
    }
}

// By the value of the digest and of the data in parts.
TEST_F(signature_test, SignsAndVerifiesInEveryForm) {
    const std::pair<const char *, const char *> rows[] = {
        {"rsa-with-sha3-512", "rsa"}, {"dsa-with-sha256", "dsa"}, {"ecdsa-with-sha384", "ec"}};
    for (const auto &[name, keys] : rows) {
        SCOPED_TRACE(name);
        const tcrypto_ctx_ptr ctx = request(name);
        const tcrypto_ctx_ptr digest = key_test::request(TCRYPTO_DIGEST, std::strstr(name, "-with-") + 6);
        const tcrypto_key_ptr secret = load(keys, keys + PEM), open_half = load(keys, keys + PUB);
        std::uint8_t value[64], signed_value[256], signed_parts[256];
        std::size_t size = 0, lengths[] = {256, 256};
        int results[] = {0, 0};
        EXPECT_EQ(tcrypto_digest(digest.get(), MESSAGE.data(), MESSAGE.size(), value, &size), 0);
        const auto start_parts = [&](const tcrypto_key_ptr &key, const tcrypto_signature_params &params) {
            start(ctx, key, params);
            EXPECT_EQ(tcrypto_signature_update(ctx.get(), MESSAGE.data(), 5), 0);
            EXPECT_EQ(tcrypto_signature_update(ctx.get(), MESSAGE.data() + 5, MESSAGE.size() - 5), 0);
        };
        start(ctx, secret, SIGN);
        EXPECT_EQ(tcrypto_signature_sign_without_digest(ctx.get(), value, size, signed_value, &lengths[0]),
                  0);
        start_parts(secret, SIGN);
        EXPECT_EQ(tcrypto_signature_sign(ctx.get(), signed_parts, &lengths[1]), 0);
        start_parts(open_half, VERIFY);
        EXPECT_EQ(tcrypto_signature_verify(ctx.get(), signed_value, lengths[0], &results[0]), 0);
        start(ctx, open_half, VERIFY);
        EXPECT_EQ(tcrypto_signature_verify_without_digest(ctx.get(), value, size, signed_parts, lengths[1],
                                                          &results[1]),
                  0);
        EXPECT_EQ(results[0] + results[1], 2);
    }
}

TEST_F(signature_test, RefusesWhatIsMissing) {
    const tcrypto_ctx_ptr ctx = request("rsa-with-sha1");
    tcrypto_key_ptr key = load("rsa", "rsa.pem");
    bytes room(256, 0);
    std::size_t length = room.size();
    int result = 1;
    EXPECT_EQ(with_each_null(tcrypto_signature_init, ctx.get(), key.get(), &SIGN), (std::set{-1, -300}));
    tcrypto_signature_params params = SIGN;
    const auto restart = [&] { start(ctx, key, params); };
    const auto *in = MESSAGE.data();
    std::uint8_t *out = room.data();
    const std::set<int> signing[] = {
        with_each_null(restart, tcrypto_signature_update, ctx.get(), in, 1),
        with_each_null(restart, tcrypto_signature_sign, ctx.get(), out, &length),
        with_each_null(restart, tcrypto_signature_sign_oneshot, ctx.get(), in, 1, out, &length),
        with_each_null(restart, tcrypto_signature_sign_without_digest, ctx.get(), in, 20, out, &length),
    };
    key = load("rsa", "rsa.pub.pem");
    params = VERIFY;
    const std::set<int> verifying[] = {
        with_each_null(restart, tcrypto_signature_verify, ctx.get(), out, 256, &result),
        with_each_null(restart, tcrypto_signature_verify_oneshot, ctx.get(), in, 1, out, 256, &result),
        with_each_null(restart, tcrypto_signature_verify_without_digest, ctx.get(), in, 20, out, 256,
                       &result),
    };
    EXPECT_THAT(signing, testing::Each(std::set{-1}));
    EXPECT_THAT(verifying, testing::Each(std::set{-1}));
    EXPECT_EQ(tcrypto_signature_update(ctx.get(), in, 1), -412) << "the last one concluded";
    EXPECT_EQ(tcrypto_signature_sigsize(nullptr) + tcrypto_signature_sigsize(keygen("rsa").get()), 0U);
}

TEST_F(signature_test, ChecksPaddingAndSaltOfRsa) {
    constexpr std::uint32_t PSS = TCRYPTO_PADDING_PSS;
    const struct {
        std::uint32_t padding;
        std::int32_t salt;
        int code;
    } rows[] = {
        {PSS, -3, 0}, {PSS, 222, 0}, {PSS, 223, -411}, {PSS, -9, -403}, {0, 223, 0}, {2, 0, -410},
    };
    const tcrypto_ctx_ptr ctx = request("rsa-with-sha256");
    const tcrypto_key_ptr secret = load("rsa", "rsa.pem");
    const tcrypto_key_ptr open_half = load("rsa", "rsa.pub.pem");
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.padding) + ", salt " + std::to_string(row.salt));
        tcrypto_signature_params params = {.padding = row.padding, .pss_salt_length = row.salt};
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &params), row.code);
        const bool keyed = row.code == 0 || row.code == -410;  // which leaves all as it was
        EXPECT_EQ(tcrypto_signature_sigsize(ctx.get()), keyed ? 256U : 0U);
        if (row.code != 0)
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

TEST_F(signature_test, EndsInStateTwoWhateverHappens) {
    const struct {
        const char *name, *keygen;
        bool for_signing, signs;  // what the key is for, and what is tried with it
        std::size_t length;       // of the signature
        int code;
    } rows[] = {
        {"rsa-with-sha1", "rsa", true, true, 255, -409},   {"rsa-with-sha1", "rsa", true, false, 256, -403},
        {"ecdsa-with-sha1", "ec", false, true, 100, -403}, {"eddsa-pure", "ed448", true, true, 113, -409},
        {"eddsa-pure", "ed448", true, false, 114, -403},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.name) + ", code " + std::to_string(row.code));
        const tcrypto_ctx_ptr ctx = request(row.name);
        const tcrypto_key_ptr key = load(row.keygen, row.keygen + (row.for_signing ? PEM : PUB));
        for (const int expected : {-412, row.code, -412}) {
            if (expected == row.code)
                start(ctx, key, row.for_signing ? SIGN : VERIFY);
            bytes room(256, 0);
            std::size_t length = row.length;
            int result = 1;
            const int rc =
                row.signs ? tcrypto_signature_sign_oneshot(ctx.get(), "", 0, room.data(), &length)
                          : tcrypto_signature_verify_oneshot(ctx.get(), "", 0, room.data(), length, &result);
            EXPECT_EQ(rc, expected);
            EXPECT_EQ(result, row.signs ? 1 : 0);
        }
    }
}

TEST_F(signature_test, RefusesOtherKeysAndForgetsTheLastOne) {
    for (const auto &[name, good] : {std::pair{"rsa-with-sha1", "rsa"}, {"eddsa-pure", "ed448"}}) {
        SCOPED_TRACE(name);
        const tcrypto_ctx_ptr ctx = request(name);
        const tcrypto_key_ptr secret = load(good, good + PEM);
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), nullptr, &SIGN), -300);
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), load("ec", "ec.pem").get(), &SIGN), -303);
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), load(good, good + PUB).get(), &SIGN), -303);
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
