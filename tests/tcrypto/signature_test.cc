#include <functional>
#include <limits>

#include "key_fixture.h"

namespace {

constexpr tcrypto_signature_params SIGN = {.operation = TCRYPTO_SIGN};
constexpr tcrypto_signature_params VERIFY = {.operation = TCRYPTO_VERIFY};

// What a verification answered: its code, and its result.
struct answer {
    int code = 0;
    int result = 0;
    bool operator==(const answer &) const = default;
};
std::ostream &operator<<(std::ostream &out, const answer &value) {
    return out << "code " << value.code << ", result " << value.result;
}
constexpr answer MATCHES = {0, 1};
constexpr answer DIFFERS = {0, 0};
constexpr answer UNREADABLE = {TCRYPTO_E_INTERNAL, 0};

class signature_test : public key_test {
protected:
    static tcrypto_ctx_ptr request(const std::string &name) {
        tcrypto_ctx_ptr ctx;
        EXPECT_EQ(tcrypto_signature_request(name.c_str(), nullptr, 0, th_out(ctx)), 0) << name;
        return ctx;
    }
    static tcrypto_ctx_ptr started(const std::string &name, const tcrypto_key_ptr &key,
                                   const tcrypto_signature_params &params) {
        tcrypto_ctx_ptr ctx = request(name);
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), key.get(), &params), 0) << name;
        return ctx;
    }
    static byte_vector sign(tcrypto_ctx *ctx, const byte_vector &data) {
        byte_vector signature(tcrypto_signature_sigsize(ctx));
        std::size_t length = signature.size();
        EXPECT_EQ(tcrypto_signature_sign_oneshot(ctx, data.data(), data.size(), signature.data(), &length),
                  0);
        EXPECT_LE(length, signature.size());
        signature.resize(length);
        return signature;
    }
    static answer verify(tcrypto_ctx *ctx, const byte_vector &data, const byte_vector &signature) {
        answer got{.code = 0, .result = 7};
        got.code = tcrypto_signature_verify_oneshot(ctx, data.data(), data.size(), signature.data(),
                                                    signature.size(), &got.result);
        return got;
    }

    const byte_vector message_ = to_bytes("the first 260 bytes of a superblock, or so");
};

byte_vector flipped(byte_vector bytes, std::size_t index) {
    bytes[index] ^= 1;
    return bytes;
}

byte_vector resized(byte_vector bytes, std::ptrdiff_t change) {
    bytes.resize(static_cast<std::size_t>(static_cast<std::ptrdiff_t>(bytes.size()) + change));
    return bytes;
}

struct algorithm_row {
    const char *family, *keygen, *stem;
    std::vector<std::string> digests;
    std::size_t size;  // bytes; 0: not fixed by the kind of key
};

const std::vector<algorithm_row> ALGORITHMS = {
    {"rsa",
     "rsa",
     "rsa",
     {"sha1", "sha224", "sha256", "sha384", "sha512", "sha3-224", "sha3-256", "sha3-384", "sha3-512"},
     256},
    {"dsa", "dsa", "dsa", {"sha1", "sha224", "sha256"}, 0},
    {"ecdsa", "ec", "ec", {"sha1", "sha224", "sha256", "sha384", "sha512"}, 72},
    {"ecdsa", "ec", "explicit", {"sha256"}, 72},
    {"ecdsa", "ec", "p521", {"sha512"}, 139},
};

TEST_F(signature_test, VerifiesWhatItSignsInEveryForm) {
    for (const algorithm_row &row : ALGORITHMS) {
        const tcrypto_key_ptr secret = private_key(row.keygen, row.stem);
        const tcrypto_key_ptr open_half = public_key(row.keygen, row.stem);
        for (const std::string &digest_name : row.digests) {
            const std::string name = std::string(row.family) + "-with-" + digest_name;
            SCOPED_TRACE(name + ", " + row.stem);
            const tcrypto_ctx_ptr signer = started(name, secret, SIGN);
            EXPECT_TRUE(row.size == 0 || tcrypto_signature_sigsize(signer.get()) == row.size);
            const byte_vector signature = sign(signer.get(), message_);
            const tcrypto_ctx_ptr verifier = started(name, open_half, VERIFY);
            EXPECT_EQ(verify(verifier.get(), message_, signature), MATCHES);

            // In pieces.
            ASSERT_EQ(tcrypto_signature_init(verifier.get(), open_half.get(), &VERIFY), 0);
            ASSERT_EQ(tcrypto_signature_update(verifier.get(), message_.data(), 5), 0);
            ASSERT_EQ(tcrypto_signature_update(verifier.get(), nullptr, 0), 0);
            ASSERT_EQ(tcrypto_signature_update(verifier.get(), message_.data() + 5, message_.size() - 5), 0);
            int result = 0;
            EXPECT_EQ(tcrypto_signature_verify(verifier.get(), signature.data(), signature.size(), &result),
                      0);
            EXPECT_EQ(result, 1);

            // Over a ready digest.
            tcrypto_ctx_ptr digest;
            ASSERT_EQ(tcrypto_digest_request(digest_name.c_str(), nullptr, 0, th_out(digest)), 0);
            byte_vector value(tcrypto_digestsize(digest.get()));
            ASSERT_EQ(tcrypto_digest(digest.get(), message_.data(), message_.size(), value.data(), nullptr),
                      0);
            ASSERT_EQ(tcrypto_signature_init(signer.get(), secret.get(), &SIGN), 0);
            byte_vector other(tcrypto_signature_sigsize(signer.get()));
            std::size_t length = other.size();
            ASSERT_EQ(tcrypto_signature_sign_without_digest(signer.get(), value.data(), value.size(),
                                                            other.data(), &length),
                      0);
            ASSERT_EQ(tcrypto_signature_init(verifier.get(), open_half.get(), &VERIFY), 0);
            EXPECT_EQ(verify(verifier.get(), message_,
                             resized(other, static_cast<std::ptrdiff_t>(length) -
                                                static_cast<std::ptrdiff_t>(other.size()))),
                      MATCHES);
            ASSERT_EQ(tcrypto_signature_init(verifier.get(), open_half.get(), &VERIFY), 0);
            EXPECT_EQ(tcrypto_signature_verify_without_digest(verifier.get(), value.data(), value.size(),
                                                              signature.data(), signature.size(), &result),
                      0);
            EXPECT_EQ(result, 1);
        }
    }
}

TEST_F(signature_test, TakesEdwardsKeysOfBothSizesInTurn) {
    const tcrypto_ctx_ptr signer = request("eddsa-pure");
    const tcrypto_ctx_ptr verifier = request("eddsa-pure");
    for (const auto &[name, size] :
         {std::pair{"ed25519", 64}, std::pair{"ed448", 114}, std::pair{"ed25519", 64}}) {
        SCOPED_TRACE(name);
        for (const byte_vector &data : {message_, byte_vector{}}) {
            ASSERT_EQ(tcrypto_signature_init(signer.get(), private_key(name, name).get(), &SIGN), 0);
            const byte_vector signature = sign(signer.get(), data);
            EXPECT_EQ(signature.size(), static_cast<std::size_t>(size));
            ASSERT_EQ(tcrypto_signature_init(verifier.get(), public_key(name, name).get(), &VERIFY), 0);
            EXPECT_EQ(verify(verifier.get(), data, signature), MATCHES);
        }
    }
}

TEST_F(signature_test, TellsWrongSignaturesFromUnreadableOnes) {
    using change = std::function<byte_vector(byte_vector)>;
    const change last = [](byte_vector s) { return flipped(s, s.size() - 1); };
    const change first = [](byte_vector s) { return flipped(s, 0); };
    const change shorter = [](byte_vector s) { return resized(s, -1); };
    const change longer = [](byte_vector s) { return resized(s, 1); };
    const change one = [](byte_vector) { return byte_vector(1); };
    const struct {
        const char *name, *keygen;
        std::vector<std::pair<const char *, change>> changes;
        answer expected;
    } rows[] = {
        {"rsa-with-sha256",
         "rsa",
         {{"first", first}, {"last", last}, {"shorter", shorter}, {"longer", longer}, {"one", one}},
         DIFFERS},
        {"ecdsa-with-sha256", "ec", {{"last", last}}, DIFFERS},
        {"ecdsa-with-sha256",
         "ec",
         {{"first", first}, {"shorter", shorter}, {"longer", longer}, {"one", one}},
         UNREADABLE},
        {"eddsa-pure",
         "ed25519",
         {{"first", first}, {"last", last}, {"shorter", shorter}, {"longer", longer}, {"one", one}},
         DIFFERS},
        {"eddsa-pure", "ed448", {{"first", first}, {"shorter", shorter}, {"longer", longer}}, DIFFERS},
    };
    for (const auto &row : rows) {
        const byte_vector signature =
            sign(started(row.name, private_key(row.keygen, row.keygen), SIGN).get(), message_);
        const tcrypto_key_ptr key = public_key(row.keygen, row.keygen);
        EXPECT_EQ(verify(started(row.name, key, VERIFY).get(), flipped(message_, 3), signature), DIFFERS);
        for (const auto &[name, apply] : row.changes) {
            SCOPED_TRACE(std::string(row.name) + ", " + name);
            const tcrypto_ctx_ptr verifier = started(row.name, key, VERIFY);
            testing::internal::CaptureStderr();
            EXPECT_EQ(verify(verifier.get(), message_, apply(signature)), row.expected);
            const std::string log = testing::internal::GetCapturedStderr();
            EXPECT_TRUE(row.expected == DIFFERS ? log.empty()
                                                : log.starts_with("tc_openssl: failed to verify digest ["))
                << log;
        }
    }
}

TEST_F(signature_test, AgreesWithTheOpensslCommand) {
    const struct {
        const char *name, *keygen;
        tcrypto_signature_params params;
        const char *sign, *verify;
    } rows[] = {
        {"rsa-with-sha256",
         "rsa",
         {},
         "dgst -sha256 -sign rsa.pem -out their.sig data",
         "dgst -sha256 -verify rsa.pub.pem -signature our.sig data"},
        {"rsa-with-sha3-512",
         "rsa",
         {.padding = TCRYPTO_PADDING_PSS, .pss_salt_length = TCRYPTO_PSS_SALT_DIGEST},
         "dgst -sha3-512 -sign rsa.pem -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:64 -out "
         "their.sig data",
         "dgst -sha3-512 -verify rsa.pub.pem -sigopt rsa_padding_mode:pss -sigopt rsa_pss_saltlen:64 "
         "-signature our.sig data"},
        {"dsa-with-sha224",
         "dsa",
         {},
         "dgst -sha224 -sign dsa.pem -out their.sig data",
         "dgst -sha224 -verify dsa.pub.pem -signature our.sig data"},
        {"ecdsa-with-sha256",
         "ec",
         {},
         "dgst -sha256 -sign ec.pem -out their.sig data",
         "dgst -sha256 -verify ec.pub.pem -signature our.sig data"},
        {"eddsa-pure",
         "ed448",
         {},
         "pkeyutl -sign -rawin -inkey ed448.pem -in data -out their.sig",
         "pkeyutl -verify -rawin -pubin -inkey ed448.pub.pem -in data -sigfile our.sig"},
    };
    folder().file("data", to_text(message_));
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        tcrypto_signature_params params = row.params;
        const byte_vector ours =
            sign(started(row.name, private_key(row.keygen, row.keygen), params).get(), message_);
        const tcrypto_key_ptr key = public_key(row.keygen, row.keygen);
        folder().file("our.sig", to_text(ours));
        EXPECT_TRUE(run(std::string("openssl ") + row.verify));
        ASSERT_TRUE(run(std::string("openssl ") + row.sign));
        params.operation = TCRYPTO_VERIFY;
        EXPECT_EQ(verify(started(row.name, key, params).get(), message_,
                         to_bytes(read_file(folder() / "their.sig"))),
                  MATCHES);
    }
}

TEST_F(signature_test, ChecksPaddingAndSaltOfRsa) {
    constexpr std::uint32_t PSS = TCRYPTO_PADDING_PSS;
    const tcrypto_key_ptr secret = private_key("rsa", "rsa");
    const tcrypto_key_ptr open_half = public_key("rsa", "rsa");
    const struct {
        std::uint32_t padding;
        std::int32_t salt;
        int code;
    } rows[] = {
        {PSS, TCRYPTO_PSS_SALT_DIGEST, 0},
        {PSS, TCRYPTO_PSS_SALT_MAX, 0},
        {PSS, 0, 0},
        {PSS, 222, 0},
        {PSS, 223, -411},
        {PSS, std::numeric_limits<std::int32_t>::max(), -411},
        {PSS, -9, -403},
        {0, 223, 0},
        {2, 0, -410},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::to_string(row.padding) + ", salt " + std::to_string(row.salt));
        tcrypto_signature_params params = {
            .operation = TCRYPTO_SIGN, .padding = row.padding, .pss_salt_length = row.salt};
        const tcrypto_ctx_ptr ctx = request("rsa-with-sha256");
        ASSERT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &params), row.code);
        EXPECT_EQ(tcrypto_signature_sigsize(ctx.get()), row.code == 0 ? 256U : 0U);
        if (row.code != 0)
            continue;
        const byte_vector signature = sign(ctx.get(), message_);
        params.operation = TCRYPTO_VERIFY;
        EXPECT_EQ(verify(started("rsa-with-sha256", open_half, params).get(), message_, signature), MATCHES);
        params.padding = 1 - params.padding;
        params.pss_salt_length = 0;
        EXPECT_EQ(verify(started("rsa-with-sha256", open_half, params).get(), message_, signature), DIFFERS);
    }
}

TEST_F(signature_test, RefusesKeysOfOtherKinds) {
    const struct {
        const char *name, *keygen, *stem;
    } rows[] = {
        {"rsa-with-sha256", "ec", "ec"}, {"ecdsa-with-sha256", "rsa", "rsa"}, {"dsa-with-sha256", "ec", "ec"},
        {"eddsa-pure", "ec", "ec"},      {"eddsa-pure", "ed448", "ed448"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.name) + " with " + row.stem);
        const tcrypto_key_ptr secret = private_key(row.keygen, row.stem);
        const tcrypto_key_ptr open_half = public_key(row.keygen, row.stem);
        const tcrypto_ctx_ptr ctx = request(row.name);
        const bool matching = std::string(row.name) == "eddsa-pure" && std::string(row.stem) == "ed448";
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &SIGN), matching ? 0 : -303);
        // The wrong half, and the end of the key that the context had.
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), open_half.get(), &SIGN), -303);
        EXPECT_EQ(tcrypto_signature_sigsize(ctx.get()), 0U);
        EXPECT_EQ(verify(ctx.get(), message_, message_), (answer{-412, 0}));
        EXPECT_EQ(tcrypto_signature_init(ctx.get(), secret.get(), &VERIFY), -303);
    }
}

TEST_F(signature_test, EndsInStateTwoWhateverHappens) {
    std::uint8_t room[600];
    std::size_t length = sizeof(room);
    std::size_t little = 63;
    int result = 1;
    const struct {
        const char *name, *keygen;
        tcrypto_signature_params params;
        std::function<int(tcrypto_ctx *)> last;
        int code;
    } rows[] = {
        {"rsa-with-sha256", "rsa", SIGN, [&](auto *c) { return tcrypto_signature_sign(c, room, &length); },
         0},
        {"rsa-with-sha256", "rsa", SIGN, [&](auto *c) { return tcrypto_signature_sign(c, room, &little); },
         -409},
        {"rsa-with-sha256", "rsa", SIGN, [&](auto *c) { return tcrypto_signature_sign(c, nullptr, &length); },
         -1},
        {"rsa-with-sha256", "rsa", SIGN,
         [&](auto *c) { return tcrypto_signature_sign_without_digest(c, room, 31, room, &length); }, -403},
        {"rsa-with-sha256", "rsa", SIGN,
         [&](auto *c) { return tcrypto_signature_verify(c, room, 256, &result); }, -403},
        {"ecdsa-with-sha256", "ec", VERIFY, [&](auto *c) { return tcrypto_signature_sign(c, room, &length); },
         -403},
        {"ecdsa-with-sha256", "ec", VERIFY,
         [&](auto *c) { return tcrypto_signature_verify(c, room, 2, nullptr); }, -1},
        {"eddsa-pure", "ed25519", SIGN,
         [&](auto *c) { return tcrypto_signature_sign_oneshot(c, "", 0, room, &little); }, -409},
        {"eddsa-pure", "ed25519", SIGN,
         [&](auto *c) { return tcrypto_signature_verify_oneshot(c, "", 0, room, 64, &result); }, -403},
        {"eddsa-pure", "ed25519", VERIFY,
         [&](auto *c) { return tcrypto_signature_sign_oneshot(c, nullptr, 0, room, &length); }, -403},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.name) + ", code " + std::to_string(row.code));
        length = sizeof(room);
        const tcrypto_key_ptr key = row.params.operation == TCRYPTO_SIGN ? private_key(row.keygen, row.keygen)
                                                                         : public_key(row.keygen, row.keygen);
        const tcrypto_ctx_ptr ctx = request(row.name);
        EXPECT_EQ(row.last(ctx.get()), -412);
        ASSERT_EQ(tcrypto_signature_init(ctx.get(), key.get(), &row.params), 0);
        EXPECT_EQ(row.last(ctx.get()), row.code);
        EXPECT_EQ(row.last(ctx.get()), -412);
        EXPECT_NE(tcrypto_signature_sigsize(ctx.get()), 0U);
    }
    EXPECT_EQ(result, 0);
}

TEST_F(signature_test, ChecksTheContextFirst) {
    const tcrypto_ctx_ptr ed = request("eddsa-pure");
    const tcrypto_ctx_ptr rsa = request("rsa-with-sha1");
    const tcrypto_ctx_ptr generator = keygen("rsa");
    const tcrypto_key_ptr key = private_key("ed25519", "ed25519");
    int result = 1;
    EXPECT_EQ(tcrypto_signature_init(ed.get(), nullptr, &SIGN), -300);
    EXPECT_EQ(tcrypto_signature_init(ed.get(), key.get(), nullptr), -1);
    EXPECT_EQ(tcrypto_signature_init(generator.get(), key.get(), &SIGN), -401);
    EXPECT_EQ(tcrypto_signature_update(ed.get(), "", 0), -402);
    EXPECT_EQ(tcrypto_signature_update(rsa.get(), "", 0), -412);
    EXPECT_EQ(tcrypto_signature_verify(ed.get(), message_.data(), 1, &result), -402);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(tcrypto_signature_sigsize(generator.get()), 0U);
    EXPECT_EQ(tcrypto_signature_sigsize(rsa.get()), 0U);
    EXPECT_EQ(tcrypto_signature_sigsize(nullptr), 0U);
}

}  // namespace
