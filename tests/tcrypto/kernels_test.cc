#include <algorithm>
#include <blake2.h>
#include <blake3.h>
#include <cstdlib>
#include <gtest/gtest.h>
#include <numeric>
#include <openssl/evp.h>
#include <random>
#include <string>
#include <vector>

#include "tcrypto/kernels/kernel.h"

namespace {

using bytes = std::vector<std::uint8_t>;
using sizes = std::vector<std::size_t>;

constexpr std::size_t POOL_SIZE = std::size_t{2} << 20;

// At most POOL_SIZE bytes, others from call to call.
bytes random_bytes(std::size_t size) {
    static const bytes pool = [] {
        std::mt19937 source(1);
        bytes out(2 * POOL_SIZE);
        std::generate(out.begin(), out.end(), [&] { return static_cast<std::uint8_t>(source()); });
        return out;
    }();
    static std::size_t position = 0;
    position = (position + size + 1) % POOL_SIZE;
    const std::uint8_t *begin = pool.data() + position;
    return bytes(begin, begin + size);
}

bytes reference(const std::string &digest, const bytes &message) {
    bytes out(64);
    unsigned size = 32;
    if (digest == "blake2b256") {
        EXPECT_EQ(blake2b(out.data(), message.data(), nullptr, 32, message.size(), 0), 0);
    } else if (digest == "blake3") {
        blake3_hasher hasher;
        blake3_hasher_init(&hasher);
        blake3_hasher_update(&hasher, message.data(), message.size());
        blake3_hasher_finalize(&hasher, out.data(), size);
    } else {
        EVP_MD *md = EVP_MD_fetch(nullptr, digest.c_str(), nullptr);
        EXPECT_EQ(EVP_Digest(message.data(), message.size(), out.data(), &size, md, nullptr), 1);
        EVP_MD_free(md);
    }
    out.resize(size);
    return out;
}

// Compares every digest with the library's.  The kernel gets copies of just the
// right size, so that a sanitizer sees a read beyond them, at odd addresses.
void expect_digests(const digest_kernel &kernel, std::size_t salt_size, std::size_t length,
                    std::size_t count) {
    SCOPED_TRACE(std::string(kernel.digest) + ": salt " + std::to_string(salt_size) + ", " +
                 std::to_string(count) + " blocks of " + std::to_string(length));
    const std::size_t shift = (salt_size + length) % 32;
    const bytes salt = random_bytes(shift + salt_size);
    const bytes data = random_bytes(shift + length * count);
    bytes expected(shift, 0xee);
    for (std::size_t i = 0; i < count - count % kernel.lanes; ++i) {
        bytes message(salt.begin() + static_cast<std::ptrdiff_t>(shift), salt.end());
        const std::uint8_t *block = data.data() + shift + i * length;
        message.insert(message.end(), block, block + length);
        const bytes digest = reference(kernel.digest, message);
        expected.insert(expected.end(), digest.begin(), digest.end());
    }
    expected.insert(expected.end(), 64, 0xee);  // what must be left alone
    bytes out(expected.size(), 0xee);
    kernel.hash(salt.data() + shift, salt_size, data.data() + shift, length, count, out.data() + shift);
    ASSERT_EQ(out, expected);
}

std::vector<const digest_kernel *> usable_kernels() {
    std::vector<const digest_kernel *> usable;
    for (const digest_kernel *kernel : digest_kernels())
        if (kernel->usable())
            usable.push_back(kernel);
    return usable;
}

TEST(Kernels, EverySaltSize) {
    sizes salts(129);
    std::iota(salts.begin(), salts.end(), 0);
    for (const std::size_t odd : sizes{129, 191, 256, 960, 1023, 1024, 1025, 2048, 3000})
        salts.push_back(odd);
    for (const digest_kernel *kernel : usable_kernels())
        for (const std::size_t salt : salts)
            for (const std::size_t length : sizes{0, 1, 64, 128, 512, 1100})
                ASSERT_NO_FATAL_FAILURE(
                    expect_digests(*kernel, salt, length, kernel->lanes * (1 + salt % 5)));
}

TEST(Kernels, EveryBlockLength) {
    for (const digest_kernel *kernel : usable_kernels())
        for (const std::size_t salt : sizes{0, 20, 32, 64, 128})
            for (std::size_t length = 0; length <= 260; ++length)
                ASSERT_NO_FATAL_FAILURE(expect_digests(*kernel, salt, length, kernel->lanes));
}

TEST(Kernels, BlockSizesOfImages) {
    for (const digest_kernel *kernel : usable_kernels())
        for (const std::size_t salt : sizes{32, 40, 64, 100, 128})
            for (const std::size_t length : sizes{512, 1024, 2048, 4096, 8192, 16384, 32768, 65536})
                ASSERT_NO_FATAL_FAILURE(expect_digests(*kernel, salt, length, kernel->lanes * 2));
}

TEST(Kernels, RandomLengths) {
    std::mt19937 source(1);
    for (const digest_kernel *kernel : usable_kernels())
        for (int i = 0; i < 100; ++i)
            ASSERT_NO_FATAL_FAILURE(expect_digests(*kernel, source() % 129, source() % 20000,
                                                   kernel->lanes * (1 + source() % 5)));
}

TEST(Kernels, LeaveOutBlocksThatFillNoLanes) {
    for (const digest_kernel *kernel : usable_kernels())
        for (std::size_t count = 0; count < 2 * kernel->lanes; ++count)
            ASSERT_NO_FATAL_FAILURE(expect_digests(*kernel, 64, 512, count));
}

TEST(Kernels, TakeNullForAnEmptySalt) {
    for (const digest_kernel *kernel : usable_kernels()) {
        const bytes data = random_bytes(512 * kernel->lanes);
        bytes out(64 * kernel->lanes);
        kernel->hash(nullptr, 0, data.data(), 512, kernel->lanes, out.data());
        const bytes expected = reference(kernel->digest, bytes(data.begin(), data.begin() + 512));
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), out.begin())) << kernel->digest;
    }
}

TEST(Kernels, AreFoundByTheDigestsName) {
    if (std::getenv("TCRYPTO_KERNELS"))
        GTEST_SKIP() << "TCRYPTO_KERNELS is set";
    for (const digest_kernel *kernel : usable_kernels())
        EXPECT_EQ(digest_kernel_for(kernel->digest), kernel);
    EXPECT_EQ(digest_kernel_for("sha384"), nullptr);
}

TEST(KernelsDeathTest, AreWithheldWhenSwitchedOff) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    setenv("TCRYPTO_KERNELS", "off", 1);
    const auto count_found = [] {
        return std::ranges::count_if(digest_kernels(),
                                     [](auto *kernel) { return digest_kernel_for(kernel->digest); });
    };
    EXPECT_EXIT(std::exit(static_cast<int>(count_found())), testing::ExitedWithCode(0), "");
    unsetenv("TCRYPTO_KERNELS");
}

}  // namespace
