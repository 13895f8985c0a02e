// BLAKE3 (the BLAKE3 paper, sections 2.1 to 2.5) of eight blocks at once.
//
// A message is cut into chunks of 1024 bytes, whose chaining values are joined
// in pairs to a binary tree.  The reference library's many-inputs kernel is made
// for the chunks of one long message; here its inputs are the same chunk of eight
// messages, so that blocks of less than eight chunks fill the vectors, too.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__) && defined(BLAKE3_HAS_HASH_MANY)

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstring>
#include <immintrin.h>

#include "tcrypto/kernels/groups.h"

extern "C" {
#include <blake3_impl.h>
}

namespace {

constexpr std::size_t LANES = 8;
constexpr std::size_t CV_SIZE = BLAKE3_OUT_LEN;  // of a chaining value, and of the digest

// The tree's stack holds one value for each set bit of the number of chunks, and
// that number takes at most 54 bits.
constexpr std::size_t STACK_DEPTH = 54;

// One value a lane, packed.
using lane_values = std::uint8_t[LANES * CV_SIZE];

// Compresses `blocks` input blocks of every lane into copies of `cv`.
void hash_many(const std::uint8_t *const *lanes, std::size_t blocks, const std::uint32_t *cv,
               std::uint64_t counter, int flags, int first_flags, int last_flags, std::uint8_t *out) {
    blake3_hash_many(lanes, LANES, blocks, cv, counter, false, static_cast<std::uint8_t>(flags),
                     static_cast<std::uint8_t>(first_flags), static_cast<std::uint8_t>(last_flags), out);
}

void compress(std::uint32_t (&cv)[8], const std::uint8_t *block, std::size_t size, std::uint64_t counter,
              int flags) {
    blake3_compress_in_place(cv, block, static_cast<std::uint8_t>(size), counter,
                             static_cast<std::uint8_t>(flags));
}

// What a chunk still has to be compressed, in every lane.
struct chunk {
    std::uint64_t number = 0;
    std::size_t size = 0;  // bytes at each of the pointers
    const std::uint8_t *lanes[LANES] = {};
    const std::uint32_t *cv = IV;  // what came before
    int first_flags = CHUNK_START;
    int last_flags = CHUNK_END;
};

// The many-inputs kernel takes whole input blocks only: the last one, when it is
// not full, goes lane by lane.  `values`: before and after.
void finish_partial(const chunk &c, std::size_t whole, std::uint8_t *values) {
    const std::size_t rest = c.size - whole;
    const int flags = c.last_flags | (whole == 0 ? c.first_flags : 0);
    for (std::size_t lane = 0; lane < LANES; ++lane, values += CV_SIZE) {
        std::uint8_t block[BLAKE3_BLOCK_LEN] = {};
        std::uint32_t cv[8];
        if (rest != 0)
            std::memcpy(block, c.lanes[lane] + whole, rest);
        std::memcpy(cv, values, CV_SIZE);
        compress(cv, block, rest, c.number, flags);
        std::memcpy(values, cv, CV_SIZE);
    }
}

void hash_chunk(const chunk &c, std::uint8_t *values) {
    const std::size_t blocks = c.size / BLAKE3_BLOCK_LEN;
    const std::size_t whole = blocks * BLAKE3_BLOCK_LEN;
    const bool partial = whole != c.size || c.size == 0;
    for (std::size_t lane = 0; blocks == 0 && lane < LANES; ++lane)
        std::memcpy(values + lane * CV_SIZE, c.cv, CV_SIZE);
    if (blocks != 0)
        hash_many(c.lanes, blocks, c.cv, c.number, 0, c.first_flags, partial ? 0 : c.last_flags, values);
    if (partial)
        finish_partial(c, whole, values);
}

// The lanes' trees as they grow from left to right: the values of the complete
// subtrees that wait for a right neighbour.
class tree_stack {
public:
    // Joins what `chunks` chunks complete.  Only to be called when another chunk
    // follows, for none of the joined can then be the root.
    void settle(std::uint64_t chunks) {
        while (depth_ > static_cast<std::size_t>(std::popcount(chunks)))
            join();
    }

    void push(const std::uint8_t *values) {
        for (std::size_t lane = 0; lane < LANES; ++lane)
            std::memcpy(waiting_[lane][depth_], values + lane * CV_SIZE, CV_SIZE);
        ++depth_;
    }

    void finish(std::uint8_t *out) {
        while (depth_ > 2)
            join();
        join_top(PARENT | ROOT, out);
    }

private:
    void join() {
        lane_values parents;
        join_top(PARENT, parents);
        depth_ -= 2;
        push(parents);
    }

    // Two values that lie one after the other are the input block of their parent.
    void join_top(int flags, std::uint8_t *out) {
        const std::uint8_t *pairs[LANES];
        for (std::size_t lane = 0; lane < LANES; ++lane)
            pairs[lane] = waiting_[lane][depth_ - 2];
        hash_many(pairs, 1, IV, 0, flags, 0, 0, out);
    }

    std::uint8_t waiting_[LANES][STACK_DEPTH][CV_SIZE];
    std::size_t depth_ = 0;
};

// salt || block for eight blocks of equal length.
class salted_messages {
public:
    salted_messages(const std::uint8_t *salt, std::size_t salt_length, std::size_t length)
        : salt_(salt), salt_length_(salt_length), length_(length), total_(salt_length + length),
          chunks_(total_ == 0 ? 1 : (total_ - 1) / BLAKE3_CHUNK_LEN + 1) {
        compress_salt();
    }

    // The digests of LANES blocks at `data`.
    void hash(const std::uint8_t *data, std::uint8_t *out) {
        tree_stack tree;
        lane_values values;
        for (std::uint64_t number = 0; number < chunks_; ++number) {
            tree.settle(number);
            hash_chunk(make_chunk(data, number), chunks_ == 1 ? out : values);
            if (chunks_ != 1)
                tree.push(values);
        }
        if (chunks_ != 1)
            tree.finish(out);
    }

private:
    // The salt's whole input blocks within the first chunk are the same in every
    // lane.  The chunk's last block stays behind, which ends it.
    void compress_salt() {
        std::memcpy(salt_cv_, IV, sizeof salt_cv_);
        const std::size_t first_chunk = std::min<std::size_t>(total_, BLAKE3_CHUNK_LEN);
        for (; salt_done_ + BLAKE3_BLOCK_LEN <= salt_length_ && salt_done_ + BLAKE3_BLOCK_LEN < first_chunk;
             salt_done_ += BLAKE3_BLOCK_LEN)
            compress(salt_cv_, salt_ + salt_done_, BLAKE3_BLOCK_LEN, 0, salt_done_ == 0 ? CHUNK_START : 0);
    }

    chunk make_chunk(const std::uint8_t *data, std::uint64_t number) {
        chunk c;
        std::size_t begin = number * BLAKE3_CHUNK_LEN;
        c.number = number;
        c.size = std::min<std::size_t>(total_ - begin, BLAKE3_CHUNK_LEN);
        if (number == 0 && salt_done_ != 0) {
            begin = salt_done_;
            c.size -= salt_done_;
            c.cv = salt_cv_;
            c.first_flags = 0;
        }
        if (chunks_ == 1)
            c.last_flags |= ROOT;
        if (begin < salt_length_)
            gather(data, begin, c);
        else
            for (std::size_t lane = 0; lane < LANES; ++lane)
                c.lanes[lane] = data + lane * length_ + (begin - salt_length_);
        return c;
    }

    // Joins the end of the salt and the blocks' beginnings in the buffers.
    void gather(const std::uint8_t *data, std::size_t begin, chunk &c) {
        const std::size_t from_salt = std::min(c.size, salt_length_ - begin);
        for (std::size_t lane = 0; lane < LANES; ++lane) {
            std::memcpy(gathered_[lane], salt_ + begin, from_salt);
            if (c.size != from_salt)
                std::memcpy(gathered_[lane] + from_salt, data + lane * length_, c.size - from_salt);
            c.lanes[lane] = gathered_[lane];
        }
    }

    const std::uint8_t *const salt_;
    const std::size_t salt_length_;
    const std::size_t length_;
    const std::size_t total_;
    const std::uint64_t chunks_;
    std::size_t salt_done_ = 0;  // bytes that are in salt_cv_
    std::uint32_t salt_cv_[8];
    std::uint8_t gathered_[LANES][BLAKE3_CHUNK_LEN];
};

void hash(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data, std::size_t length,
          std::size_t count, std::uint8_t *out) {
    salted_messages messages(salt, salt_length, length);
    hash_groups<LANES, CV_SIZE>(messages, data, length, count, out);
}

constexpr digest_kernel ROWS[] = {{"blake3", &cpu_avx2, CV_SIZE, LANES, hash}};

}  // namespace

constinit const std::span<const digest_kernel> blake3_kernels = ROWS;

#endif
