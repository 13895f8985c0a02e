#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <functional>

#include "key_fixture.h"
#include "tcrypto/provider.h"

namespace {

constexpr auto PUBLIC = TCRYPTO_KEY_PUBLIC;
constexpr auto PRIVATE = TCRYPTO_KEY_PRIVATE;
constexpr auto SYMMETRIC = TCRYPTO_KEY_SYMMETRIC;
constexpr auto RAW = TCRYPTO_FORMAT_RAW;
constexpr auto DER = TCRYPTO_FORMAT_DER;
constexpr auto PEM = TCRYPTO_FORMAT_PEM;

// What a key of either half exports in a format.
std::string exported(const tcrypto_key *key, std::uint32_t format) {
    const auto to_mem = tcrypto_key_is_public(key) ? tcrypto_pubkey_to_mem : tcrypto_privkey_to_mem;
    std::size_t length = 0;
    EXPECT_EQ(to_mem(key, nullptr, &length, format), 0);
    std::string bytes(length, '\0');
    EXPECT_EQ(to_mem(key, bytes.data(), &length, format), 0);
    EXPECT_EQ(length, bytes.size());
    return bytes;
}

// The logged text of a call.
std::string logged_by(const std::function<void()> &call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

TEST_F(key_test, KeepsOneEncodingOfEveryFormThatItReads) {
    const std::string pem = read_file(key_file("rsa.pem"));
    const std::string public_pem = read_file(key_file("rsa.pub.pem"));
    std::string crlf;
    for (const char c : pem)
        crlf += c == '\n' ? "\r\n" : std::string(1, c);
    folder().file("rsa.crlf.pem", crlf);
    folder().file("rsa.both.pem", "a comment\n" + pem + public_pem);
    ASSERT_TRUE(run("openssl ecparam -name prime256v1 > parameters.pem"));
    folder().file("ec.parameters.pem",
                  read_file(folder() / "parameters.pem") + read_file(key_file("ec.sec1.pem")));

    const struct {
        const char *keygen, *file;
        std::uint32_t type, format;
    } rows[] = {
        {"rsa", "rsa.pem", PRIVATE, PEM},         {"rsa", "rsa.der", PRIVATE, DER},
        {"rsa", "rsa.pkcs1.pem", PRIVATE, PEM},   {"rsa", "rsa.pkcs1.der", PRIVATE, DER},
        {"rsa", "rsa.crlf.pem", PRIVATE, PEM},    {"rsa", "rsa.both.pem", PRIVATE, PEM},
        {"rsa", "rsa.both.pem", PUBLIC, PEM},     {"rsa", "rsa.pub.pem", PUBLIC, PEM},
        {"rsa", "rsa.pub.der", PUBLIC, DER},      {"dsa", "dsa.pem", PRIVATE, PEM},
        {"dh", "dh.pem", PRIVATE, PEM},           {"ec", "ec.pem", PRIVATE, PEM},
        {"ec", "ec.sec1.der", PRIVATE, DER},      {"ec", "ec.parameters.pem", PRIVATE, PEM},
        {"ec", "explicit.pem", PRIVATE, PEM},     {"ec", "explicit.pub.pem", PUBLIC, PEM},
        {"ed25519", "ed25519.pem", PRIVATE, PEM}, {"ed448", "ed448.pem", PRIVATE, PEM},
        {"ed448", "ed448.pub.der", PUBLIC, DER},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.file) + " as " + (row.type == PUBLIC ? "public" : "private"));
        const std::string stem = std::string(row.file).substr(0, std::string(row.file).find('.'));
        const tcrypto_ctx_ptr generator = keygen(row.keygen);
        tcrypto_key_ptr key;
        ASSERT_EQ(tcrypto_load_key_from_file(generator.get(), th_out(key), key_file(row.file).c_str(),
                                             row.type, row.format),
                  0);
        EXPECT_EQ(tcrypto_key_is_public(key.get()), row.type == PUBLIC);
        EXPECT_EQ(tcrypto_key_is_private(key.get()), row.type == PRIVATE);
        if (row.type == PRIVATE) {
            EXPECT_TRUE(exported(key.get(), DER) == read_file(key_file(stem + ".der")));
            EXPECT_TRUE(exported(key.get(), PEM) == read_file(key_file(stem + ".pem")));
            tcrypto_key_ptr half;
            ASSERT_EQ(tcrypto_pubkey_from_privkey(generator.get(), key.get(), th_out(half)), 0);
            key = std::move(half);
        }
        EXPECT_TRUE(exported(key.get(), DER) == read_file(key_file(stem + ".pub.der")));
        EXPECT_TRUE(exported(key.get(), PEM) == read_file(key_file(stem + ".pub.pem")));
    }
}

TEST_F(key_test, RefusesEverythingElse) {
    constexpr int PARSE = TCRYPTO_E_INTERNAL;
    const char *const NOT_PARSED = "tc_openssl: failed to convert raw key into EVP_PKEY [";
    const std::string pem = read_file(key_file("rsa.pem"));
    folder().file("truncated.pem", pem.substr(0, pem.size() / 2));
    folder().file("truncated.der", read_file(key_file("rsa.der")).substr(0, 300));
    folder().file("junk", std::string(5000, '\xa5') + std::string(10, '\0'));
    const struct {
        const char *keygen, *file;
        std::uint32_t type, format;
        int code;
        const char *message;
    } rows[] = {
        {"rsa", "ec.pem", PRIVATE, PEM, -300, "extracted key type '408' is not the expected type '6'! ["},
        {"rsa", "rsapss.pub.pem", PUBLIC, PEM, -300,
         "extracted key type '912' is not the expected type '6'! ["},
        {"ec", "rsa.pub.der", PUBLIC, DER, -300, "extracted key type '6' is not the expected type '408'! ["},
        {"ec", "sm2.pem", PRIVATE, PEM, -300, "is not the expected type '408'! ["},
        {"ed25519", "ed448.pem", PRIVATE, PEM, -300,
         "extracted key type '1088' is not the expected type '1087'! ["},
        {"rsa", "rsa.pem", PUBLIC, PEM, PARSE, NOT_PARSED},
        {"rsa", "rsa.der", PUBLIC, DER, PARSE, NOT_PARSED},
        {"rsa", "rsa.pub.pem", PRIVATE, PEM, PARSE, NOT_PARSED},
        {"rsa", "rsa.pub.der", PRIVATE, DER, PARSE, NOT_PARSED},
        {"rsa", "rsa.pem", PRIVATE, DER, PARSE, NOT_PARSED},
        {"rsa", "rsa.der", PRIVATE, PEM, PARSE, NOT_PARSED},
        {"rsa", "rsa.pkcs1.pub.pem", PUBLIC, PEM, PARSE, NOT_PARSED},
        {"rsa", "rsa.cert.pem", PUBLIC, PEM, PARSE, NOT_PARSED},
        {"rsa", "rsa.locked8.der", PRIVATE, DER, PARSE, NOT_PARSED},
        {"rsa", "truncated.pem", PRIVATE, PEM, PARSE, NOT_PARSED},
        {"rsa", "truncated.der", PRIVATE, DER, PARSE, NOT_PARSED},
        {"rsa", "junk", PRIVATE, PEM, PARSE, NOT_PARSED},
        {"rsa", "junk", PUBLIC, DER, PARSE, NOT_PARSED},
        {"rsa", "rsa.pem", SYMMETRIC, RAW, -304, "tc_openssl: invalid key type ["},
        {"rsa", "rsa.pem", 9, PEM, -304, "tc_openssl: invalid key type ["},
        {"rsa", "rsa.pem", PRIVATE, RAW, -303, "tc_openssl: invalid key format ["},
        {"rsa", "rsa.pem", PRIVATE, 4, -303, "tc_openssl: invalid key format ["},
        {"symmetric", "junk", PRIVATE, RAW, -304, "tc_openssl: invalid key type ["},
        {"symmetric", "junk", SYMMETRIC, DER, -303, "tc_openssl: invalid key format ["},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.file) + " for " + row.keygen);
        const std::string path = key_file(row.file);
        auto *key = reinterpret_cast<tcrypto_key *>(this);
        int rc = 0;
        const std::string log = logged_by([&] {
            rc = tcrypto_load_key_from_file(keygen(row.keygen).get(), &key, path.c_str(), row.type,
                                            row.format);
        });
        EXPECT_EQ(rc, row.code);
        EXPECT_EQ(key, nullptr);
        EXPECT_NE(log.find(row.message), log.npos) << log;
    }
}

TEST_F(key_test, LocksNobodyUpWaitingForAPassPhrase) {
    const int saved = dup(STDIN_FILENO);
    const int words = open(folder().file("words", "word\nword\nword\n").c_str(), O_RDONLY | O_CLOEXEC);
    dup2(words, STDIN_FILENO);
    for (const char *name : {"rsa.locked1.pem", "rsa.locked8.pem"})
        for (const std::uint32_t type : {PRIVATE, PUBLIC}) {
            SCOPED_TRACE(std::string(name) + (type == PUBLIC ? " as public" : " as private"));
            tcrypto_key_ptr key;
            EXPECT_EQ(tcrypto_load_key_from_file(keygen("rsa").get(), th_out(key), key_file(name).c_str(),
                                                 type, PEM),
                      -403);
            EXPECT_EQ(lseek(words, 0, SEEK_CUR), 0);
        }
    dup2(saved, STDIN_FILENO);
    close(saved);
    close(words);
}

TEST_F(key_test, RefusesUnusableFilesAtOnce) {
    folder().folder("directory");
    folder().file("empty", "");
    folder().file("large", "");
    std::filesystem::resize_file(folder() / "large", (1 << 20) + 1);
    ASSERT_EQ(mkfifo((folder() / "pipe").c_str(), 0600), 0);
    const auto refused = [](const char *what, const std::string &name, int error) {
        return std::string("tcrypto_static: unable to ") + what + " '" + (folder() / name) + "' (" +
               std::strerror(error) + ") [key.cc(";
    };
    const struct {
        const char *file;
        int code;
        std::string message;
    } rows[] = {
        {"missing", -7, refused("open key file", "missing", ENOENT)},
        {"empty", -5, "tcrypto_static: key file empty [key.cc("},
        {"pipe", -5, "tcrypto_static: key file empty [key.cc("},
        {"directory", -5, refused("read key from file", "directory", EISDIR)},
        {"large", -5, refused("read key from file", "large", EFBIG)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file);
        tcrypto_key *key = nullptr;
        const std::string log = logged_by([&] {
            EXPECT_EQ(
                tcrypto_privkey_from_file(keygen("rsa").get(), &key, (folder() / row.file).c_str(), PEM),
                row.code);
        });
        EXPECT_EQ(log.substr(0, row.message.size()), row.message);
    }
}

TEST_F(key_test, ExportsTheMatchingTypeOnly) {
    const tcrypto_key_ptr secret = private_key("ed25519", "ed25519");
    const tcrypto_key_ptr open_half = public_key("ed25519", "ed25519");
    char room[200];
    std::size_t length = sizeof(room);
    EXPECT_EQ(tcrypto_pubkey_to_mem(secret.get(), room, &length, DER), -304);
    EXPECT_EQ(tcrypto_privkey_to_mem(open_half.get(), room, &length, DER), -304);
    EXPECT_EQ(tcrypto_key_to_mem(secret.get(), room, &length), -304);
    EXPECT_EQ(tcrypto_privkey_to_mem(secret.get(), room, &length, RAW), -303);
    EXPECT_EQ(tcrypto_privkey_to_mem(nullptr, room, &length, DER), -300);
    length = 47;
    EXPECT_EQ(tcrypto_privkey_to_mem(secret.get(), room, &length, DER), -305);
    EXPECT_EQ(length, 48U);
    tcrypto_key_ptr half;
    EXPECT_EQ(tcrypto_pubkey_from_privkey(keygen("ed448").get(), secret.get(), th_out(half)), -303);
    EXPECT_EQ(tcrypto_pubkey_from_privkey(keygen("ed25519").get(), open_half.get(), th_out(half)), -304);
}

TEST_F(key_test, WritesKeyFilesForTheirOwnerOnly) {
    const std::string path = folder().file("written", std::string(10000, 'x'));
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    ASSERT_EQ(tcrypto_privkey_to_file(private_key("ec", "ec").get(), path.c_str(), PEM), 0);
    EXPECT_TRUE(read_file(path) == read_file(key_file("ec.pem")));
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U);
    const tcrypto_key_ptr key = public_key("ec", "ec");
    EXPECT_EQ(tcrypto_pubkey_to_file(key.get(), (folder() / "no/such").c_str(), DER), -7);
    EXPECT_EQ(tcrypto_pubkey_to_file(key.get(), "/dev/full", DER), -5);
}

TEST_F(key_test, TakesSymmetricKeysAsTheyAre) {
    const tcrypto_ctx_ptr generator = keygen("symmetric");
    const std::string bytes("\0\x01key", 5);
    tcrypto_key_ptr key;
    ASSERT_EQ(tcrypto_key_from_file(generator.get(), th_out(key), folder().file("raw", bytes).c_str()), 0);
    EXPECT_TRUE(tcrypto_key_is_symmetric(key.get()));
    ASSERT_EQ(tcrypto_key_to_file(key.get(), (folder() / "raw.out").c_str()), 0);
    EXPECT_EQ(read_file(folder() / "raw.out"), bytes);

    std::string values[2] = {std::string(32, '\0'), std::string(32, '\0')};
    for (std::string &value : values) {
        ASSERT_EQ(tcrypto_generate_key(generator.get(), 256, th_out(key)), 0);
        std::size_t length = value.size();
        ASSERT_EQ(tcrypto_key_to_mem(key.get(), value.data(), &length), 0);
        EXPECT_EQ(length, 32U);
    }
    EXPECT_NE(values[0], values[1]);
    for (const std::size_t bits : {std::size_t{0}, std::size_t{7}, SIZE_MAX - 7})
        EXPECT_EQ(tcrypto_generate_key(generator.get(), bits, th_out(key)), -302) << bits;
}

TEST_F(key_test, ChecksTheGeneratorBeforeTheKey) {
    tcrypto_ctx_ptr digest;
    ASSERT_EQ(tcrypto_digest_request("sha256", nullptr, 0, th_out(digest)), 0);
    tcrypto_key_ptr key;
    EXPECT_EQ(tcrypto_key_from_mem(keygen("symmetric").get(), th_out(key), "", 0), -300);
    EXPECT_EQ(tcrypto_key_from_mem(digest.get(), th_out(key), "key", 3), -401);
    EXPECT_EQ(tcrypto_key_from_mem(nullptr, th_out(key), "key", 3), -1);
    EXPECT_EQ(tcrypto_generate_key(keygen("rsa").get(), 2048, th_out(key)), -402);
    EXPECT_EQ(tcrypto_pubkey_from_privkey(keygen("symmetric").get(), nullptr, th_out(key)), -402);
    EXPECT_EQ(tcrypto_pubkey_from_privkey(keygen("rsa").get(), nullptr, th_out(key)), -300);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(logged_by([] {
                  tcrypto_release_key(new tcrypto_key{});
              }).find("tcrypto_static: attempting to free a key not associated with a valid algorithm ["),
              0U);
}

}  // namespace
