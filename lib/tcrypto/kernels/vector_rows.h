// The kernels of one vector width (see vectors.h), for the one source that is made for it.
#pragma once

#include "tcrypto/kernels/blake2.h"
#include "tcrypto/kernels/rows.h"
#include "tcrypto/kernels/sha2.h"
#include "tcrypto/kernels/sha2_constants.h"

namespace VECTORS {

namespace {

using namespace sha2_constants;

#if VECTOR_BITS == 512
constexpr const instruction_set &NEEDED = cpu_avx512;
#else
constexpr const instruction_set &NEEDED = cpu_avx2;
#endif

struct sha256 : words32 {
    static constexpr const word (&CONSTANTS)[64] = ROUNDS_256.words;
    static constexpr std::size_t LENGTH_FIELD = 8;
    static constexpr sha2::sigma BIG_SIGMA_0 = {2, 13, 22};
    static constexpr sha2::sigma BIG_SIGMA_1 = {6, 11, 25};
    static constexpr sha2::sigma SMALL_SIGMA_0 = {7, 18, 3};
    static constexpr sha2::sigma SMALL_SIGMA_1 = {17, 19, 10};
};

struct sha512 : words64 {
    static constexpr const word (&CONSTANTS)[80] = ROUNDS_512;
    static constexpr std::size_t LENGTH_FIELD = 16;
    static constexpr sha2::sigma BIG_SIGMA_0 = {28, 34, 39};
    static constexpr sha2::sigma BIG_SIGMA_1 = {14, 18, 41};
    static constexpr sha2::sigma SMALL_SIGMA_0 = {1, 8, 7};
    static constexpr sha2::sigma SMALL_SIGMA_1 = {19, 61, 6};
};

struct blake2b : words64 {
    static constexpr std::size_t ROUNDS = 12;
    static constexpr const word (&START)[8] = START_512;
    static constexpr int R1 = 32, R2 = 24, R3 = 16, R4 = 63;
};

struct blake2s : words32 {
    static constexpr std::size_t ROUNDS = 10;
    static constexpr const word (&START)[8] = START_256.words;
    static constexpr int R1 = 16, R2 = 12, R3 = 8, R4 = 7;
};

template <class FLAVOUR, std::size_t SIZE, const auto &START>
constexpr digest_kernel sha2_row(const char *digest) {
    return {digest, &NEEDED, SIZE, FLAVOUR::LANES, sha2::hash<FLAVOUR, SIZE, START>};
}

template <class FLAVOUR, std::size_t SIZE>
constexpr digest_kernel blake2_row(const char *digest) {
    return {digest, &NEEDED, SIZE, FLAVOUR::LANES, blake2::hash<FLAVOUR, SIZE>};
}

constexpr digest_kernel ROWS[] = {
    sha2_row<sha256, 28, START_224>("sha224"),
    sha2_row<sha256, 32, START_256>("sha256"),
    sha2_row<sha512, 48, START_384>("sha384"),
    sha2_row<sha512, 64, START_512>("sha512"),
    sha2_row<sha512, 32, START_512_256>("sha512-256"),
    blake2_row<blake2b, 32>("blake2b256"),
    blake2_row<blake2b, 64>("blake2b512"),
    blake2_row<blake2s, 32>("blake2s256"),
};

}  // namespace

}  // namespace VECTORS
