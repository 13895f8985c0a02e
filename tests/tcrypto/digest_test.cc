#include "support/test.h"
#include "tcrypto/context.h"
#include "tcrypto/kernels/kernel.h"
#include "tcrypto/provider.h"
#include "tcrypto/tcrypto.h"
#include <openssl/evp.h>

namespace {

using bytes = std::vector<std::uint8_t>;
using sizes = std::vector<std::size_t>;

constexpr const char *DIGESTS[] = {
    "md5",        "sha1",       "sha224",     "sha256",     "sha384",     "sha512",     "sha512-224",
    "sha512-256", "sha3-224",   "sha3-256",   "sha3-384",   "sha3-512",   "blake2s128", "blake2s160",
    "blake2s224", "blake2s256", "blake2b160", "blake2b256", "blake2b384", "blake2b512", "blake3",
};

bytes pattern(std::size_t size) {
    bytes out(size);
    for (std::size_t i = 0; i < size; ++i)
        out[i] = static_cast<std::uint8_t>(i % 251);
    return out;
}

class Digest : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(tcrypto_init(0, nullptr), 0); }
    void TearDown() override { EXPECT_EQ(tcrypto_uninit(), 0); }

    static tcrypto_ctx_ptr request(const char *name) {
        tcrypto_ctx_ptr ctx;
        EXPECT_EQ(tcrypto_digest_request(name, nullptr, 0, th_out(ctx)), 0) << name;
        return ctx;
    }
    static bytes digest_of(tcrypto_ctx *ctx, std::string_view message) {
        bytes out(tcrypto_digestsize(ctx));
        std::size_t length = 0;
        EXPECT_EQ(tcrypto_digest(ctx, message.data(), message.size(), out.data(), &length), 0);
        EXPECT_EQ(length, out.size());
        return out;
    }
    static bytes final_of(tcrypto_ctx *ctx) {
        bytes out(tcrypto_digestsize(ctx));
        EXPECT_EQ(tcrypto_digest_final(ctx, out.data(), nullptr), 0);
        return out;
    }
};

TEST_F(Digest, OperationsKeepTheStateOrder) {
    for (const char *name : {"sha256", "blake3"}) {
        const tcrypto_ctx_ptr ctx = request(name);
        bytes out(32);
        tcrypto_ctx *copy = ctx.get();
        for (int round = 0; round < 2; ++round) {
            EXPECT_EQ(tcrypto_digest_update(ctx.get(), "a", 1), TCRYPTO_E_STATE);
            EXPECT_EQ(tcrypto_digest_final(ctx.get(), out.data(), nullptr), TCRYPTO_E_STATE);
            EXPECT_EQ(tcrypto_digest_copy(ctx.get(), &copy), TCRYPTO_E_STATE);
            EXPECT_EQ(tcrypto_digest_init(ctx.get()), 0);
            EXPECT_EQ(tcrypto_digest_update(ctx.get(), nullptr, 0), 0);
            EXPECT_EQ(tcrypto_digest_final(ctx.get(), out.data(), nullptr), 0);
        }
        const auto restart = [&] { EXPECT_EQ(tcrypto_digest_init(ctx.get()), 0); };
        const std::set<int> missing[] = {
            with_each_null(tcrypto_digest_init, ctx.get()),
            with_each_null(restart, tcrypto_digest_update, ctx.get(), "a", 1),
            with_each_null(restart, tcrypto_digest_final, ctx.get(), out.data(), nullptr),
            with_each_null(restart, tcrypto_digest_copy, ctx.get(), &copy),
            {tcrypto_digest_blocks(ctx.get(), {}, {"abcd", 2, 2}, nullptr)},
        };
        EXPECT_THAT(missing, testing::Each(std::set{int{TCRYPTO_E_PARAMETERS}}));
        EXPECT_EQ(tcrypto_digest_update(ctx.get(), "a", 1), TCRYPTO_E_STATE);
        EXPECT_EQ(tcrypto_rng_generate(ctx.get(), out.data(), 1), TCRYPTO_E_ALGORITHM_TYPE);
    }
}

TEST_F(Digest, ACopyGoesOnOnItsOwn) {
    for (const char *name : DIGESTS) {
        SCOPED_TRACE(name);
        const tcrypto_ctx_ptr ctx = request(name);
        const EVP_MD *const known = EVP_get_digestbyname(name);
        const int block_size = known ? EVP_MD_get_block_size(known) : name[6] == 'b' ? 128 : 64;
        EXPECT_EQ(ctx->algorithm->digest.block_size, static_cast<std::uint32_t>(block_size));
        const bool is_blake2 = std::string_view(name).starts_with("blake2");  // whose length is in its name
        EXPECT_EQ(8 * tcrypto_digestsize(ctx.get()),
                  is_blake2 ? std::stoul(name + 7) : 8 * digest_of(ctx.get(), "").size());
        ASSERT_EQ(tcrypto_digest_init(ctx.get()), 0);
        ASSERT_EQ(tcrypto_digest_update(ctx.get(), "one", 3), 0);
        tcrypto_ctx_ptr copy;
        ASSERT_EQ(tcrypto_digest_copy(ctx.get(), th_out(copy)), 0);
        ASSERT_EQ(tcrypto_digest_update(copy.get(), "two", 3), 0);
        EXPECT_STREQ(tcrypto_plugin_name(copy.get()), "openssl");
        EXPECT_EQ(final_of(copy.get()), digest_of(request(name).get(), "onetwo"));
        EXPECT_EQ(final_of(ctx.get()), digest_of(request(name).get(), "one"));
    }
}

void expect_blocks(tcrypto_ctx *ctx, std::size_t salt_length, std::size_t length, std::size_t count) {
    SCOPED_TRACE("salt " + std::to_string(salt_length) + ", " + std::to_string(count) + " blocks of " +
                 std::to_string(length));
    const std::size_t size = tcrypto_digestsize(ctx);
    const bytes salt = pattern(salt_length), data = pattern(length * count + 1);  // read from an odd address
    bytes expected(size * count), out(size * count);
    ASSERT_EQ(tcrypto_digest_blocks(ctx, {salt.data(), salt_length}, {&data[1], length, count}, &out[0]), 0);
    for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(tcrypto_digest_init(ctx), 0);
        ASSERT_EQ(tcrypto_digest_update(ctx, salt.data(), salt.size()), 0);
        ASSERT_EQ(tcrypto_digest_update(ctx, &data[1 + i * length], length), 0);
        ASSERT_EQ(tcrypto_digest_final(ctx, &expected[i * size], nullptr), 0);
    }
    EXPECT_EQ(out, expected);
}

TEST_F(Digest, BlocksEqualTheOneByOneResult) {
    for (const std::string name : DIGESTS) {
        for (const std::string kernels : {"off", "avx2", "avx512bw", "sha_ni", ""}) {
            SCOPED_TRACE(name + " allowed: " + kernels);
            setenv("TCRYPTO_KERNELS", kernels.c_str(), 1);
            const tcrypto_ctx_ptr ctx = request(name.c_str());
            for (const std::size_t salt : sizes{0, 1, 33, 64, 127, 128, 201, 1024, 1025})
                for (const std::size_t length : sizes{0, 1, 512, 4099})
                    for (const std::size_t count : sizes{1, 3, 21})
                        expect_blocks(ctx.get(), salt, length, count);
            for (std::size_t length = 0; length <= 260; ++length)
                for (const std::size_t salt : {length * 5 % 129, std::size_t{32}})
                    expect_blocks(ctx.get(), salt, length, 1 + length % 17);
            expect_blocks(ctx.get(), 100, 70000, 1);
            expect_blocks(ctx.get(), 70000, 100, 1);
            EXPECT_EQ(tcrypto_digest_blocks(ctx.get(), {}, {nullptr, 1, 0}, nullptr), 0);
        }
    }
    unsetenv("TCRYPTO_KERNELS");
}

TEST(Kernels, AreUsedWhereTheProcessorHasThemAndTheyAreAllowed) {
    const std::map<std::string, std::string> kernels = {{"sha1", "sha_ni "},
                                                        {"sha256", "sha_ni avx512bw avx2 "},
                                                        {"blake2b256", "avx512bw avx2 "},
                                                        {"sha3-256", ""}};
    const std::pair<const char *, std::set<std::string>> cases[] = {
        {"", {"avx512bw", "avx2", "sha_ni"}},
        {"x,,avx512bw,sha_ni", {"avx512bw", "sha_ni"}},
        {"avx2", {"avx2"}},
        {"off", {}},
        {"avx,avx22,sha_ni ", {}}};
    std::ifstream cpuinfo("/proc/cpuinfo");
    const std::set<std::string> flags(std::istream_iterator<std::string>(cpuinfo), {});
    for (const auto &[value, allowed] : cases) {
        setenv("TCRYPTO_KERNELS", value, 1);
        for (const auto &[digest, sets] : kernels) {
            std::string expected, found;
            std::istringstream words(sets);
            for (std::string set; words >> set;)
                expected += flags.contains(set) && allowed.contains(set) ? set + ' ' : "";
            for (const digest_kernel *kernel : digest_kernels_for(digest.c_str()).fastest_first)
                if (kernel && !found.ends_with(kernel->needs->name + std::string(" ")))
                    found += kernel->needs->name + std::string(" ");
            EXPECT_EQ(found, expected) << digest << " allowed: " << value;
        }
    }
    unsetenv("TCRYPTO_KERNELS");
}

TEST_F(Digest, GeneratorsWorkOnlyWhenInstantiated) {
    for (const std::uint32_t strength : {128U, 192U, 256U}) {
        tcrypto_ctx_ptr ctx;
        ASSERT_EQ(
            tcrypto_rng_request(("drbg-ctr-" + std::to_string(strength)).c_str(), nullptr, 0, th_out(ctx)),
            0);
        bytes out(100000);
        EXPECT_EQ(tcrypto_rng_strength(ctx.get()), strength);
        EXPECT_EQ(tcrypto_rng_generate(ctx.get(), out.data(), out.size()), TCRYPTO_E_STATE);
        EXPECT_EQ(tcrypto_rng_reseed(ctx.get(), nullptr, 0), TCRYPTO_E_STATE);
        EXPECT_EQ(tcrypto_rng_instantiate(ctx.get(), "me", 2), 0);
        EXPECT_EQ(tcrypto_rng_generate(ctx.get(), out.data(), out.size()), 0);
        EXPECT_NE(bytes(out.end() - 32, out.end()), bytes(32)) << "filled to its end";
        for (const auto &codes : {with_each_null(tcrypto_rng_instantiate, ctx.get(), "me", 2),
                                  with_each_null(tcrypto_rng_reseed, ctx.get(), "me", 2),
                                  with_each_null(tcrypto_rng_generate, ctx.get(), out.data(), 1)})
            EXPECT_EQ(codes, std::set{int{TCRYPTO_E_PARAMETERS}});
    }
    bytes out(48);
    EXPECT_EQ(tcrypto_uninit() + tcrypto_random_bytes(out.data(), out.size()), 0) << "needs no library";
    EXPECT_NE(out, bytes(48));
    EXPECT_EQ(tcrypto_random_bytes(nullptr, 1), TCRYPTO_E_PARAMETERS);
}

}  // namespace
