#include "key_fixture.h"
#include "support/test.h"
#include "tcrypto/provider.h"
#include <openssl/err.h>

namespace {

constexpr auto PUBLIC = TCRYPTO_KEY_PUBLIC, PRIVATE = TCRYPTO_KEY_PRIVATE;
constexpr auto RAW = TCRYPTO_FORMAT_RAW, DER = TCRYPTO_FORMAT_DER, PEM = TCRYPTO_FORMAT_PEM;

std::string exported(const tcrypto_key *key, std::uint32_t format) {
    const auto to_mem = tcrypto_key_is_public(key) ? tcrypto_pubkey_to_mem : tcrypto_privkey_to_mem;
    std::size_t length = 0;
    EXPECT_EQ(to_mem(key, nullptr, &length, format), 0);
    std::string bytes(length, '\0');
    EXPECT_EQ(to_mem(key, bytes.data(), &length, format), 0);
    return bytes;
}

TEST_F(key_test, KeepsOneEncodingOfEveryFormThatItReads) {
    const std::string pem = read_file(key_file("rsa.pem"));
    folder().file("rsa.both.pem", "a comment\n" + pem + read_file(key_file("rsa.pub.pem")));
    ASSERT_TRUE(run("sed 's/$/\\r/' rsa.pem > rsa.crlf.pem"));
    const std::tuple<const char *, std::string, std::uint32_t, std::uint32_t> rows[] = {
        {"rsa", "rsa.pkcs1.pem", PRIVATE, PEM},  {"rsa", "rsa.crlf.pem", PRIVATE, PEM},
        {"rsa", "rsa.pkcs1.der", PRIVATE, DER},  {"rsa", "rsa.both.pem", PRIVATE, PEM},
        {"rsa", "rsa.both.pem", PUBLIC, PEM},    {"rsa", "rsa.pub.der", PUBLIC, DER},
        {"dsa", "dsa.pem", PRIVATE, PEM},        {"dh", "dh.pem", PRIVATE, PEM},
        {"ec", "ec.sec1.der", PRIVATE, DER},     {"ec", "ec.parameters.pem", PRIVATE, PEM},
        {"ec", "explicit.pub.pem", PUBLIC, PEM}, {"ec", "explicit.pem", PRIVATE, PEM},
    };
    for (const auto &[keys, file, type, format] : rows) {
        SCOPED_TRACE(file + (type == PUBLIC ? " as public" : " as private"));
        const std::string stem = file.substr(0, file.find('.'));
        const tcrypto_ctx_ptr generator = keygen(keys);
        const bool is_private = type == PRIVATE;
        const std::string path = key_file(file), bytes = read_file(path);
        const auto from_file = is_private ? tcrypto_privkey_from_file : tcrypto_pubkey_from_file;
        const auto from_mem = is_private ? tcrypto_privkey_from_mem : tcrypto_pubkey_from_mem;
        tcrypto_key_ptr key, again;
        ASSERT_EQ(from_file(generator.get(), th_out(key), path.c_str(), format), 0);
        ASSERT_EQ(from_mem(generator.get(), th_out(again), bytes.data(), bytes.size(), format), 0);
        EXPECT_EQ(exported(key.get(), DER), exported(again.get(), DER));
        EXPECT_EQ(tcrypto_key_is_private(key.get()), is_private);
        EXPECT_NE(tcrypto_key_is_public(key.get()), is_private);
        EXPECT_FALSE(tcrypto_key_is_symmetric(key.get()));
        if (is_private) {
            EXPECT_TRUE(exported(key.get(), DER) == read_file(key_file(stem + ".der")));
            EXPECT_TRUE(exported(key.get(), PEM) == read_file(key_file(stem + ".pem")));
            tcrypto_key_ptr half;
            ASSERT_EQ(tcrypto_pubkey_from_privkey(generator.get(), key.get(), th_out(half)), 0);
            key = std::move(half);
        }
        EXPECT_TRUE(exported(key.get(), DER) == read_file(key_file(stem + ".pub.der")));
        ASSERT_EQ(tcrypto_pubkey_to_file(key.get(), (folder() / "out").c_str(), PEM), 0);
        EXPECT_TRUE(read_file(folder() / "out") == read_file(key_file(stem + ".pub.pem")));
    }
}

// At once: nobody writes to the pipe.  OpenSSL's reason comes first, but none from before.
TEST_F(key_test, RefusesEverythingElseAtOnce) {
    EXPECT_TRUE(run("rm -f pipe && mkfifo pipe && mkdir -p directory && truncate -s 1048577 large"));
    const std::string no_key = "tc_openssl: failed to convert raw key into EVP_PKEY [keygen.cc(";
    const std::string empty = "tcrypto_static: key file empty [key.cc(", large = "' (File too large) [";
    const std::tuple<std::string, std::uint32_t, std::uint32_t, int, std::string> rows[] = {
        {"rsa.pem", PUBLIC, PEM, -403, no_key},
        {"rsa.cert.pem", PUBLIC, PEM, -403, no_key},
        {"pipe", PRIVATE, PEM, -5, empty},
        {"/dev/null", PRIVATE, PEM, -5, empty},
        {"/dev/zero", PRIVATE, PEM, -5, large},
        {"large", PRIVATE, PEM, -5, large},
        {"directory", PRIVATE, PEM, -5, "' (Is a directory) ["},
        {"rsa.pem", PRIVATE, RAW, -303, "tc_openssl: invalid key format ["},
        {"rsa.pem", TCRYPTO_KEY_SYMMETRIC, RAW, -304, "tc_openssl: invalid key type ["},
    };
    for (const auto &[file, type, format, code, message] : rows) {
        const std::string path = file[0] == '/' ? file : key_file(file);
        auto *key = reinterpret_cast<tcrypto_key *>(this);
        testing::internal::CaptureStderr();
        ERR_raise(ERR_LIB_USER, 7);
        EXPECT_EQ(tcrypto_load_key_from_file(keygen("rsa").get(), &key, path.c_str(), type, format), code);
        EXPECT_EQ(key, nullptr);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_THAT(log, testing::HasSubstr(message)) << file;
        EXPECT_EQ(log.starts_with("tc_openssl: error:0480006C:PEM routines:"), code == -403) << log;
        EXPECT_EQ(log.find("error:40"), log.npos) << log;
        EXPECT_TRUE(code == -5 || ERR_peek_error() == 0U) << file;
    }
}

TEST_F(key_test, ExportsTheMatchingTypeOnly) {
    const auto secret = load("ed25519", "ed25519.pem"), open_half = load("ed25519", "ed25519.pub.pem");
    char room[200];
    std::size_t length = 47;
    EXPECT_EQ(tcrypto_privkey_to_mem(secret.get(), room, &length, DER), -305);
    EXPECT_EQ(length, 48U);
    EXPECT_EQ(tcrypto_pubkey_to_mem(secret.get(), room, &length, DER), -304);
    EXPECT_EQ(tcrypto_privkey_to_mem(open_half.get(), room, &length, DER), -304);
    EXPECT_EQ(tcrypto_key_to_mem(secret.get(), room, &length), -304);
    EXPECT_EQ(tcrypto_privkey_to_mem(secret.get(), room, &length, RAW), -303);
    tcrypto_key_ptr half;
    EXPECT_EQ(tcrypto_pubkey_from_privkey(keygen("ed448").get(), secret.get(), th_out(half)), -303);
    EXPECT_EQ(tcrypto_pubkey_from_privkey(keygen("ed25519").get(), open_half.get(), th_out(half)), -304);

    const std::string path = folder().file("written", std::string(10000, 'x'));
    struct stat info {};
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    ASSERT_EQ(tcrypto_privkey_to_file(secret.get(), path.c_str(), PEM), 0);
    EXPECT_TRUE(read_file(path) == read_file(key_file("ed25519.pem")));
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
    EXPECT_EQ(tcrypto_privkey_to_file(secret.get(), "/dev/full", PEM), -5);
    EXPECT_EQ(tcrypto_privkey_to_file(secret.get(), folder().path().c_str(), PEM), -7);
}

TEST_F(key_test, RefusesWhatIsMissing) {
    const tcrypto_ctx_ptr generator = keygen("rsa"), symmetric = keygen("symmetric");
    const tcrypto_key_ptr good = load("rsa", "rsa.pem");
    const std::string path = key_file("rsa.pem");
    tcrypto_key *key = nullptr;
    std::size_t length = 0;
    const std::set<int> results[] = {
        with_each_null(tcrypto_load_key_from_file, generator.get(), &key, path.c_str(), PRIVATE, PEM),
        with_each_null(tcrypto_load_key_from_mem, generator.get(), &key, "x", 1, PRIVATE, PEM),
        with_each_null(tcrypto_generate_key, symmetric.get(), 8, &key),
    };
    EXPECT_THAT(results, testing::Each(std::set{-1}));
    const std::set<int> key_results[] = {
        with_each_null(tcrypto_pubkey_from_privkey, generator.get(), good.get(), &key),
        with_each_null(tcrypto_privkey_to_mem, good.get(), nullptr, &length, PEM),
        with_each_null(tcrypto_privkey_to_file, good.get(), (folder() / "out").c_str(), PEM),
    };
    EXPECT_THAT(key_results, testing::Each(std::set{-300, -1}));
    EXPECT_TRUE(!tcrypto_key_is_private(nullptr) && !tcrypto_key_is_public(nullptr));
    // Keys of nobody, and of one who can do nothing.
    static constexpr tcrypto_algorithm none = {};
    for (const auto *owner : {static_cast<const tcrypto_algorithm *>(nullptr), &none}) {
        const tcrypto_key lost = {.keygen = owner, .record = {.type = PRIVATE}};
        EXPECT_EQ(tcrypto_privkey_to_mem(&lost, nullptr, &length, PEM), -402);
        const std::string log = stderr_of([&] { tcrypto_release_key(new tcrypto_key(lost)); });
        EXPECT_EQ(log.find("not associated with a valid algorithm") != log.npos, !owner);
    }
}

TEST_F(key_test, TakesSymmetricKeysAsTheyAre) {
    const tcrypto_ctx_ptr generator = keygen("symmetric");
    const std::string path = folder().file("raw", std::string("\0\x01key", 5));
    tcrypto_key_ptr key;
    ASSERT_EQ(tcrypto_key_from_file(generator.get(), th_out(key), path.c_str()), 0);
    EXPECT_TRUE(tcrypto_key_is_symmetric(key.get()) && !tcrypto_key_is_private(key.get()));
    ASSERT_EQ(tcrypto_key_to_file(key.get(), (path + ".out").c_str()), 0);
    EXPECT_EQ(read_file(path + ".out"), read_file(path));
    ASSERT_EQ(tcrypto_generate_key(generator.get(), 256, th_out(key)), 0);
    EXPECT_EQ(key->record.length, 32U);
    EXPECT_EQ(tcrypto_generate_key(generator.get(), 1 << 20, th_out(key)), 0);
    for (const std::size_t bits : {std::size_t{0}, std::size_t{7}, std::size_t{(1 << 20) + 8}, SIZE_MAX - 7})
        EXPECT_EQ(tcrypto_generate_key(generator.get(), bits, th_out(key)), -302) << bits;
    EXPECT_EQ(tcrypto_generate_key(keygen("rsa").get(), 2048, th_out(key)), -402);
    EXPECT_EQ(tcrypto_key_from_mem(generator.get(), th_out(key), "", 0), -300);
}

}  // namespace
