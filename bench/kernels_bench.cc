// Speed of the many-block kernels beside the ordinary way of the libraries (a
// context that is reset and given salt and block, one block after the other), in
// bytes of block data a second.
//
// Single figures change with the machine's other work: compare a kernel with its
// neighbour "library" in interleaved repetitions, as in
//
//   kernels_bench --benchmark_filter='sha256.*/4096' --benchmark_repetitions=9
//       --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <blake2.h>
#include <blake3.h>
#include <cstring>
#include <openssl/evp.h>
#include <random>
#include <string>
#include <vector>

#include "tcrypto/kernels/kernel.h"

namespace {

constexpr std::size_t BUFFER_SIZE = std::size_t{16} << 20;  // bytes hashed in one iteration
constexpr std::size_t BLOCK_SIZES[] = {512, 4096, 32768};

struct blocks {
    const std::uint8_t *salt;
    std::size_t salt_length;
    const std::uint8_t *data;
    std::size_t length;
    std::size_t count;
    std::uint8_t *out;
};

const std::uint8_t *random_buffer() {
    static const std::vector<std::uint8_t> buffer = [] {
        std::vector<std::uint8_t> bytes(BUFFER_SIZE);
        std::mt19937 source(1);
        for (std::uint8_t &byte : bytes)
            byte = static_cast<std::uint8_t>(source());
        return bytes;
    }();
    return buffer.data();
}

void library_openssl(const char *digest, const blocks &b) {
    EVP_MD *md = EVP_MD_fetch(nullptr, digest, nullptr);
    EVP_MD_CTX *context = EVP_MD_CTX_new();
    EVP_DigestInit_ex2(context, md, nullptr);
    for (std::size_t i = 0; i < b.count; ++i) {
        EVP_DigestInit_ex2(context, nullptr, nullptr);
        EVP_DigestUpdate(context, b.salt, b.salt_length);
        EVP_DigestUpdate(context, b.data + i * b.length, b.length);
        EVP_DigestFinal_ex(context, b.out, nullptr);
    }
    EVP_MD_CTX_free(context);
    EVP_MD_free(md);
}

void library_blake2b256(const char *, const blocks &b) {
    for (std::size_t i = 0; i < b.count; ++i) {
        blake2b_state state;
        blake2b_init(&state, 32);
        blake2b_update(&state, b.salt, b.salt_length);
        blake2b_update(&state, b.data + i * b.length, b.length);
        blake2b_final(&state, b.out, 32);
    }
}

void library_blake3(const char *, const blocks &b) {
    for (std::size_t i = 0; i < b.count; ++i) {
        blake3_hasher hasher;
        blake3_hasher_init(&hasher);
        blake3_hasher_update(&hasher, b.salt, b.salt_length);
        blake3_hasher_update(&hasher, b.data + i * b.length, b.length);
        blake3_hasher_finalize(&hasher, b.out, 32);
    }
}

auto library_for(const std::string &digest) {
    return digest == "blake3"       ? library_blake3
           : digest == "blake2b256" ? library_blake2b256
                                    : library_openssl;
}

// The salt that images get by default is twice the digest's size.
std::size_t salt_length_for(const std::string &digest) {
    return digest == "sha1" ? 40 : digest == "sha512" || digest == "blake2b512" ? 128 : 64;
}

template <class HASH>
void run(benchmark::State &state, const digest_kernel &kernel, std::size_t length, HASH hash) {
    std::vector<std::uint8_t> out(BUFFER_SIZE / length * 64);
    const std::uint8_t *data = random_buffer();
    const std::size_t count = BUFFER_SIZE / length;
    const std::vector<std::uint8_t> salt(salt_length_for(kernel.digest), 0x5a);
    for (auto _ : state) {
        hash(blocks{salt.data(), salt.size(), data, length, count, out.data()});
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t{BUFFER_SIZE});
}

void add(const digest_kernel &kernel, std::size_t length) {
    const auto name = [&](const std::string &way) {
        return std::string(kernel.digest) + "/" + way + "/" + std::to_string(length);
    };
    const std::string way = kernel.needs->name + (" x" + std::to_string(kernel.lanes));
    const auto library = library_for(kernel.digest);
    benchmark::RegisterBenchmark(
        name("library").c_str(), [&kernel, length, library](benchmark::State &state) {
            run(state, kernel, length, [&](const blocks &b) { library(kernel.digest, b); });
        });
    benchmark::RegisterBenchmark(name(way).c_str(), [&kernel, length](benchmark::State &state) {
        run(state, kernel, length,
            [&](const blocks &b) { kernel.hash(b.salt, b.salt_length, b.data, b.length, b.count, b.out); });
    });
}

}  // namespace

int main(int argc, char **argv) {
    for (const auto *kernels : digest_kernels())
        for (const digest_kernel &kernel : *kernels)
            for (const std::size_t length : BLOCK_SIZES)
                if (kernel.needs->present())
                    add(kernel, length);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
