// Every call of OpenSSL and libb2 and every allocation fails once: what was asked for
// then fails as well, and the library goes on afterwards.
#include "key_fixture.h"
#include "support/failing_openssl.h"
#include "support/test.h"
#include "tcrypto/context.h"

static thread_local std::multiset<std::size_t> wiped;  // bytes

// What the next `left` calls of `call` answer.
static struct {
    std::string call;
    int left, answer, error;
} trouble;

static bool waits;  // whether the last read was one that waits

static bool in_trouble(const char *call) {
    errno = trouble.call == call && trouble.left != 0 ? trouble.error : errno;
    return trouble.call == call && trouble.left-- > 0;
}

// clang-format off
FAILING_IF(in_trouble("fstat64"), int, fstat64, trouble.answer, (int a, struct stat64 *b), a, b)
FAILING_IF(in_trouble("fchmod"), int, fchmod, trouble.answer, (int a, mode_t b), a, b)
FAILING_IF((waits = (fcntl(a, F_GETFL) & O_NONBLOCK) == 0, in_trouble("read")), ssize_t, read, trouble.answer, (int a, void *b, size_t c), a, b, c)
FAILING_IF(in_trouble("write"), ssize_t, write, trouble.answer, (int a, const void *b, size_t c), a, b, c)
FAILING_IF(in_trouble("close"), int, close, (__real_close(a), trouble.answer), (int a), a)
FAILING_IF((wiped.insert(b), false), void, explicit_bzero, static_cast<void>(0), (void *a, size_t b), a, b)
// clang-format on

namespace {

class failing_calls : public key_test {
protected:
    static bool digests(const char *name) {
        const tcrypto_ctx_ptr ctx = request(TCRYPTO_DIGEST, name);
        tcrypto_ctx_ptr copy;
        std::uint8_t out[128];
        const bool copied = ctx && tcrypto_digest_init(ctx.get()) == 0 &&
                            tcrypto_digest_update(ctx.get(), "a", 1) == 0 &&
                            tcrypto_digest_copy(ctx.get(), th_out(copy)) == 0;
        return copied && tcrypto_digest_final(copy.get(), out, nullptr) == 0 &&
               tcrypto_digest(ctx.get(), "a", 1, out, nullptr) == 0 &&
               tcrypto_digest_blocks(ctx.get(), {"s", 1}, {"ab", 1, 2}, out) == 0;
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
        tcrypto_key_ptr key;
        return ctx && tcrypto_generate_key(ctx.get(), 128, th_out(key)) == 0 &&
               tcrypto_key_from_mem(ctx.get(), th_out(key), "key", 3) == 0;
    }
    static bool signs(const std::string &name, const char *signature, tcrypto_signature_params params) {
        const tcrypto_ctx_ptr keys = request(TCRYPTO_KEYGEN, name);
        const tcrypto_key_ptr secret = keys ? load(name, name + ".pem") : nullptr;
        const tcrypto_key_ptr open_half = secret ? load(name, name + ".pub.pem") : nullptr;
        const tcrypto_ctx_ptr ctx = open_half ? request(TCRYPTO_SIGNATURE, signature) : nullptr;
        std::uint8_t out[512];
        std::size_t length = sizeof out;
        int matches = 0;
        tcrypto_key_ptr half;
        const auto start = [&](const tcrypto_key_ptr &key, std::uint32_t operation) {
            params.operation = operation;
            const int rc = tcrypto_signature_init(ctx.get(), key.get(), &params);
            EXPECT_TRUE(rc == 0 || ctx->algorithm->signature.signature_size(ctx->private_state) == 0);
            return rc;
        };
        return ctx && tcrypto_pubkey_from_privkey(keys.get(), secret.get(), th_out(half)) == 0 &&
               tcrypto_privkey_to_file(secret.get(), (folder() / "out").c_str(), TCRYPTO_FORMAT_PEM) == 0 &&
               start(secret, TCRYPTO_SIGN) == 0 &&
               tcrypto_signature_sign_oneshot(ctx.get(), "m", 1, out, &length) == 0 &&
               start(open_half, TCRYPTO_VERIFY) == 0 &&
               tcrypto_signature_verify_oneshot(ctx.get(), "m", 1, out, length, &matches) == 0 &&
               matches == 1;
    }
    static bool all_work() {
        const bool worked = tcrypto_init(2, nullptr) == 0 && digests("md5") && digests("blake2s128") &&
                            draws() && keeps_symmetric_keys() &&
                            signs("rsa", "rsa-with-sha256", {.padding = TCRYPTO_PADDING_PSS}) &&
                            signs("ed448", "eddsa-pure", {});
        tcrypto_uninit();
        EXPECT_EQ(ERR_peek_error(), 0U);
        return worked;
    }
};

TEST_F(failing_calls, FailWhatNeedsThem) {
    tcrypto_uninit();  // so that every round binds the provider again
    ASSERT_TRUE(all_work());
    stderr_of([] { EXPECT_GT(fail_each_call(all_work), 100); });
    EXPECT_TRUE(all_work());
}

TEST_F(failing_calls, OfFilesFailOrGoOn) {
    const std::tuple<const char *, int, int, int, int, int> rows[] = {
        {"fstat64", 1, -1, EIO, -7, -5}, {"fchmod", 1, -1, EPERM, 0, -5}, {"read", 1, -1, EIO, -5, 0},
        {"read", 3, -1, EINTR, 0, 0},    {"read", 1, 0, 0, -5, 0},        {"write", 1, -1, EIO, 0, -5},
        {"write", 3, -1, EINTR, 0, 0},   {"write", 1, 0, 0, 0, -5},       {"close", 1, -1, EIO, 0, -5},
    };
    const tcrypto_key_ptr good = load("rsa", "rsa.pem");
    const std::string path = key_file("rsa.pem"), out = folder() / "out";
    for (const auto &[call, times, answer, error, load_code, write_code] : rows) {
        SCOPED_TRACE(std::string(call) + ", error " + std::to_string(error));
        tcrypto_key_ptr key;
        int loaded = 0, written = 0;
        const std::string log = stderr_of([&, set = decltype(trouble){call, times, answer, error}] {
            const tcrypto_ctx_ptr rsa = keygen("rsa");
            trouble = set;
            loaded = tcrypto_privkey_from_file(rsa.get(), th_out(key), path.c_str(), TCRYPTO_FORMAT_PEM);
            trouble = set;
            written = tcrypto_privkey_to_file(good.get(), out.c_str(), TCRYPTO_FORMAT_PEM);
            trouble = {};
        });
        EXPECT_EQ(std::pair(loaded, written), std::pair(load_code, write_code));
        EXPECT_EQ(log.find(path) != log.npos, load_code != 0);
        EXPECT_EQ(log.find(out) != log.npos, write_code != 0);
        EXPECT_TRUE(write_code != 0 || read_file(out) == read_file(path));
    }
}

TEST_F(failing_calls, FillAPipeAndReadItToItsEnd) {
    int ends[2];
    const tcrypto_key_ptr key = load("rsa", "rsa.pem");
    struct stat info {};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC) + fchmod(ends[1], 0644), 0);
    const auto path = [&](int end) { return "/dev/fd/" + std::to_string(end); };
    EXPECT_EQ(tcrypto_privkey_to_file(key.get(), path(ends[1]).c_str(), TCRYPTO_FORMAT_PEM), 0);
    ASSERT_EQ(fstat(ends[1], &info) + close(ends[1]), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0644U) << "kept by what is no regular file";
    trouble = {"read", 1, -1, EINTR};
    folder().link("pipe.end", path(ends[0]));
    EXPECT_NE(load("rsa", "pipe.end"), nullptr);
    EXPECT_TRUE(waits) << "for whoever writes";
    close(ends[0]);
}

TEST_F(failing_calls, WipeWhatIsSecret) {
    wiped.clear();
    tcrypto_key_ptr key = load("rsa", "rsa.pem");
    const std::size_t text = read_file(key_file("rsa.pem")).size(), bytes = key->record.length;
    EXPECT_EQ(wiped.count(text), 1U) << "what was read";
    wiped.clear();
    key = nullptr;
    EXPECT_EQ(wiped, (std::multiset<std::size_t>{bytes, sizeof(tcrypto_key)}));
    wiped.clear();
    request(TCRYPTO_DIGEST, "blake2s128");
    EXPECT_EQ(wiped.size(), 2U) << "context and state";
}

}  // namespace
