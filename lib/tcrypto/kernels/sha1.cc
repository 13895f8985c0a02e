// SHA-1 (FIPS 180-4, section 6.1) of two blocks at once on the processor's SHA
// instructions: four rounds an instruction, each waiting for the one before it,
// so that a second message fills the gaps of the first.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include <immintrin.h>

#include <utility>

#include "tcrypto/kernels/merkle_damgard.h"
#include "tcrypto/kernels/salted_lanes.h"

#define SHA_TARGET __attribute__((target("sha,sse4.1,ssse3")))
#define SHA_INLINE __attribute__((target("sha,sse4.1,ssse3"), always_inline)) inline

namespace {

// The state words in the order in which the instructions take them; of the
// second four only the last, E, counts.
struct chaining {
    alignas(16) std::uint32_t dcba[4];
    alignas(16) std::uint32_t e[4];
};

// Section 5.3.1.
constexpr chaining START = {{0x10325476, 0x98badcfe, 0xefcdab89, 0x67452301}, {0, 0, 0, 0xc3d2e1f0}};

struct lane {
    __m128i dcba;
    __m128i before;  // dcba of four rounds ago, from which the instructions derive E
    __m128i w[4];    // the last sixteen words of the message schedule, each four reversed
};

SHA_INLINE __m128i load(const void *from) { return _mm_loadu_si128(static_cast<const __m128i *>(from)); }

SHA_INLINE void load_words(lane &x, const std::uint8_t *block) {
    const __m128i reverse = _mm_set_epi64x(0x0001020304050607, 0x08090a0b0c0d0e0f);
    for (int i = 0; i < 4; ++i)
        x.w[i] = _mm_shuffle_epi8(load(block + 16 * i), reverse);
}

// Rounds 4 Q to 4 Q + 3, after the four schedule words that they take.  The
// round function and constant change every twenty rounds.
template <std::size_t Q>
SHA_INLINE void four_rounds(lane &x) {
    __m128i &w = x.w[Q % 4];
    if constexpr (Q >= 4) {
        w = _mm_xor_si128(_mm_sha1msg1_epu32(w, x.w[(Q + 1) % 4]), x.w[(Q + 2) % 4]);
        w = _mm_sha1msg2_epu32(w, x.w[(Q + 3) % 4]);
    }
    const __m128i ew = Q == 0 ? _mm_add_epi32(x.before, w) : _mm_sha1nexte_epu32(x.before, w);
    x.before = x.dcba;
    x.dcba = _mm_sha1rnds4_epu32(x.dcba, ew, Q / 5);
}

template <std::size_t... Q>
SHA_INLINE void all_rounds(lane &x, lane &y, std::index_sequence<Q...>) {
    ((four_rounds<Q>(x), four_rounds<Q>(y)), ...);
}

SHA_INLINE void load_state(lane &x, const chaining &from) {
    x.dcba = load(from.dcba);
    x.before = load(from.e);
}

SHA_INLINE void add_state(chaining &to, const lane &x) {
    _mm_store_si128(reinterpret_cast<__m128i *>(to.dcba), _mm_add_epi32(x.dcba, load(to.dcba)));
    _mm_store_si128(reinterpret_cast<__m128i *>(to.e), _mm_sha1nexte_epu32(x.before, load(to.e)));
}

void store_digest(const chaining &x, std::uint8_t *out) {
    for (std::size_t i = 0; i < 4; ++i)
        store_big_endian(out + 4 * i, x.dcba[3 - i]);
    store_big_endian(out + 16, x.e[3]);
}

struct engine : merkle_damgard<64, 8> {
    static constexpr std::size_t LANES = 2;
    static constexpr std::size_t DIGEST_SIZE = 20;
    struct state {
        chaining lanes[LANES];
    };

    SHA_TARGET static void absorb(state &s, const std::uint8_t *const *lanes, std::size_t blocks,
                                  std::uint64_t /*before*/) {
        const std::uint8_t *from_x = lanes[0];
        const std::uint8_t *from_y = lanes[1];
        for (; blocks != 0; --blocks, from_x += INPUT_BLOCK, from_y += INPUT_BLOCK) {
            lane x;
            lane y;
            load_state(x, s.lanes[0]);
            load_state(y, s.lanes[1]);
            load_words(x, from_x);
            load_words(y, from_y);
            all_rounds(x, y, std::make_index_sequence<20>());
            add_state(s.lanes[0], x);
            add_state(s.lanes[1], y);
        }
    }

    static void finish(state &s, const std::uint8_t *const *tails, std::size_t blocks, std::uint64_t total,
                       std::uint8_t *out) {
        absorb(s, tails, blocks, total);
        for (const chaining &x : s.lanes) {
            store_digest(x, out);
            out += DIGEST_SIZE;
        }
    }
};

void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    cpu_clear_upper_halves();
    hash_salted<engine>({{START, START}}, salt, salt_length, data, length, count, out);
}

}  // namespace

constinit const digest_kernel sha1_sha_x2 = {
    .digest = "sha1",
    .name = "SHA instructions x2",
    .lanes = engine::LANES,
    .usable = cpu_has_sha,
    .hash = hash,
};

#endif
