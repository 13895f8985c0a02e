#include "key_fixture.h"
#include "support/test.h"
#include "tcrypto/provider.h"

namespace {

constexpr auto PUBLIC = TCRYPTO_KEY_PUBLIC;
constexpr auto PRIVATE = TCRYPTO_KEY_PRIVATE;
constexpr auto RAW = TCRYPTO_FORMAT_RAW;
constexpr auto DER = TCRYPTO_FORMAT_DER;
constexpr auto PEM = TCRYPTO_FORMAT_PEM;

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
    const struct {
        const char *keygen, *file;
        std::uint32_t type, format;
    } rows[] = {
        {"rsa", "rsa.der", PRIVATE, DER},        {"rsa", "rsa.pkcs1.pem", PRIVATE, PEM},
        {"rsa", "rsa.crlf.pem", PRIVATE, PEM},   {"rsa", "rsa.pkcs1.der", PRIVATE, DER},
        {"rsa", "rsa.both.pem", PRIVATE, PEM},   {"rsa", "rsa.both.pem", PUBLIC, PEM},
        {"rsa", "rsa.pub.der", PUBLIC, DER},     {"dsa", "dsa.pem", PRIVATE, PEM},
        {"ec", "ec.sec1.der", PRIVATE, DER},     {"ec", "ec.parameters.pem", PRIVATE, PEM},
        {"ec", "explicit.pub.pem", PUBLIC, PEM}, {"ec", "explicit.pem", PRIVATE, PEM},
        {"dh", "dh.pem", PRIVATE, PEM},          {"ed25519", "ed25519.pem", PRIVATE, PEM},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.file) + (row.type == PUBLIC ? " as public" : " as private"));
        const std::string stem = std::string(row.file).substr(0, std::string(row.file).find('.'));
        const tcrypto_ctx_ptr generator = keygen(row.keygen);
        const bool is_private = row.type == PRIVATE;
        const std::string path = key_file(row.file), bytes = read_file(path);
        const auto from_file = is_private ? tcrypto_privkey_from_file : tcrypto_pubkey_from_file;
        const auto from_mem = is_private ? tcrypto_privkey_from_mem : tcrypto_pubkey_from_mem;
        tcrypto_key_ptr key, again;
        ASSERT_EQ(from_file(generator.get(), th_out(key), path.c_str(), row.format), 0);
        ASSERT_EQ(from_mem(generator.get(), th_out(again), bytes.data(), bytes.size(), row.format), 0);
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

// At once: nobody writes to the pipe, and a pass phrase on standard input stays there.
TEST_F(key_test, RefusesEverythingElseAtOnce) {
    const int words = open(folder().file("words", "word\nword\n").c_str(), O_RDONLY | O_CLOEXEC);
    const int standard_input = dup(STDIN_FILENO);
    dup2(words, STDIN_FILENO);
    folder().folder("directory");
    folder().file("empty", "");
    folder().file("large", "");
    folder().file("junk", std::string(5000, '\xa5'));
    std::filesystem::resize_file(folder() / "large", (1 << 20) + 1);
    EXPECT_TRUE(run("rm -f pipe && mkfifo pipe"));

    struct case_row {
        const char *keygen, *file;
        std::uint32_t type, format;
        int code = -403;
        std::string message = "tc_openssl: failed to convert raw key into EVP_PKEY [keygen.cc(";  // '@': path
    };
    const std::string other = "tc_openssl: extracted key type '";
    const case_row rows[] = {
        {"rsa", "rsa.pem", PUBLIC, PEM},
        {"rsa", "rsa.pub.pem", PRIVATE, PEM},
        {"rsa", "rsa.locked8.pem", PRIVATE, PEM},
        {"rsa", "rsa.cert.pem", PUBLIC, PEM},
        {"rsa", "ec.pem", PRIVATE, PEM, -300, other + "408' is not the expected type '6'! ["},
        {"rsa", "rsa.pem", TCRYPTO_KEY_SYMMETRIC, RAW, -304, "tc_openssl: invalid key type ["},
        {"rsa", "rsa.pem", PRIVATE, RAW, -303, "tc_openssl: invalid key format ["},
        {"symmetric", "junk", TCRYPTO_KEY_SYMMETRIC, DER, -303, "tc_openssl: invalid key format ["},
        {"rsa", "empty", PRIVATE, PEM, -5, "tcrypto_static: key file empty [key.cc("},
        {"rsa", "pipe", PRIVATE, PEM, -5, "tcrypto_static: key file empty [key.cc("},
        {"rsa", "directory", PRIVATE, PEM, -5, ": unable to read key from file '@' (Is a directory) ["},
        {"rsa", "/dev/null", PRIVATE, PEM, -5, "tcrypto_static: key file empty [key.cc("},
        {"rsa", "/dev/zero", PRIVATE, PEM, -5, ": unable to read key from file '@' (File too large) ["},
        {"rsa", "large", PRIVATE, PEM, -5, ": unable to read key from file '@' (File too large) ["},
        {"rsa", "junk/x", PRIVATE, PEM, -7, ": unable to open key file '@' (Not a directory) ["},
    };
    for (const case_row &row : rows) {
        SCOPED_TRACE(std::string(row.file) + " for " + row.keygen);
        const std::string path = row.file[0] == '/' ? row.file
                                 : row.code == -7   ? folder() / row.file
                                                    : key_file(row.file);
        std::string message = row.message;
        if (const std::size_t at = message.find('@'); at != message.npos)
            message.replace(at, 1, path);
        const tcrypto_ctx_ptr generator = keygen(row.keygen);
        auto *key = reinterpret_cast<tcrypto_key *>(this);
        testing::internal::CaptureStderr();
        EXPECT_EQ(tcrypto_load_key_from_file(generator.get(), &key, path.c_str(), row.type, row.format),
                  row.code);
        const std::string log = testing::internal::GetCapturedStderr();
        EXPECT_EQ(key, nullptr);
        EXPECT_NE(log.find(message), log.npos) << log;
    }
    EXPECT_EQ(lseek(words, 0, SEEK_CUR), 0);
    dup2(standard_input, STDIN_FILENO);
    close(standard_input);
    close(words);
}

TEST_F(key_test, ExportsTheMatchingTypeOnly) {
    const tcrypto_key_ptr secret = load("ed25519", "ed25519.pem");
    const tcrypto_key_ptr open_half = load("ed25519", "ed25519.pub.pem");
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
    // What is no regular file keeps its mode.
    const std::string pipe_path = folder() / "out.pipe";
    ASSERT_EQ(mkfifo(pipe_path.c_str(), 0640), 0);
    const int pipe_end = open(pipe_path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(fchmod(pipe_end, 0644) + tcrypto_privkey_to_file(secret.get(), pipe_path.c_str(), PEM), 0);
    ASSERT_EQ(fstat(pipe_end, &info) + close(pipe_end), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0644U);
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
    for (const tcrypto_algorithm *owner : {static_cast<const tcrypto_algorithm *>(nullptr), &none}) {
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
    std::size_t length = 0;
    ASSERT_EQ(tcrypto_generate_key(generator.get(), 256, th_out(key)), 0);
    EXPECT_EQ(tcrypto_key_to_mem(key.get(), nullptr, &length), 0);
    EXPECT_EQ(length, 32U);
    EXPECT_EQ(tcrypto_generate_key(generator.get(), 1 << 20, th_out(key)), 0);
    for (const std::size_t bits : {std::size_t{0}, std::size_t{7}, std::size_t{(1 << 20) + 8}, SIZE_MAX - 7})
        EXPECT_EQ(tcrypto_generate_key(generator.get(), bits, th_out(key)), -302) << bits;
    EXPECT_EQ(tcrypto_generate_key(keygen("rsa").get(), 2048, th_out(key)), -402);
    EXPECT_EQ(tcrypto_key_from_mem(generator.get(), th_out(key), "", 0), -300);
}

}  // namespace
