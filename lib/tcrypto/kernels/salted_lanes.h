// The frame around the compression functions of the SHA and BLAKE2 families:
// cuts salt || block into input blocks for several lanes and pads the end.
//
// Every lane hashes a block of the same length behind the same salt, so all
// lanes are cut alike:
//
//     salt blocks | head | body ... body | tail
//
// Salt blocks are the whole input blocks of the salt, compressed once a call.
// The head joins the rest of the salt with the beginning of the block; there is
// none when the salt ends at an input block.  The body is read straight from the
// caller's data.  The tail is what follows the last whole input block, and
// padding.  Heads and tails are put together in small buffers on the stack.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "tcrypto/kernels/groups.h"

// All in bytes unless said otherwise.
struct message_cut {
    std::size_t salt_blocks = 0;  // input blocks
    std::size_t head_salt = 0;    // both 0: no head
    std::size_t head_data = 0;
    std::size_t body_blocks = 0;  // input blocks
    std::size_t tail_salt = 0;    // only when there is neither head nor body
    std::size_t tail_data = 0;

    // `holds_last`: a last input block that is full belongs to the tail all the
    // same, because the digest marks it as its last.
    constexpr message_cut(std::size_t salt, std::size_t data, std::size_t input_block, bool holds_last) {
        const std::size_t total = salt + data;
        const std::size_t whole = (total - (holds_last && total != 0 ? 1 : 0)) / input_block;
        salt_blocks = std::min(salt / input_block, whole);
        const std::size_t salt_rest = salt - salt_blocks * input_block;
        const bool has_head = salt_rest != 0 && whole > salt_blocks;
        if (has_head) {
            head_salt = salt_rest;
            head_data = input_block - salt_rest;
        }
        body_blocks = whole - salt_blocks - (has_head ? 1 : 0);
        tail_salt = has_head ? 0 : salt_rest;
        tail_data = total - whole * input_block - tail_salt;
    }
};

// Hashes as digest_kernel::hash does.  `ENGINE` is the digest in lanes:
//
//     LANES, INPUT_BLOCK, DIGEST_SIZE (bytes), HOLDS_LAST
//     TAIL_BLOCKS       input blocks that a tail takes at most
//     state             the lanes' chaining values
//     absorb(state &, const std::uint8_t *const *lanes, std::size_t blocks, std::uint64_t before)
//                       compresses `blocks` input blocks from each lane's pointer; `before`
//                       is the number of bytes absorbed so far
//     pad(std::uint8_t *tail, std::size_t used, std::uint64_t total)
//                       completes a tail of which `used` bytes are message, `total` those of
//                       the whole message; gives the number of input blocks
//     finish(state &, const std::uint8_t *const *tails, std::size_t blocks, std::uint64_t total,
//            std::uint8_t *out)
//                       absorbs the padded tails and writes LANES digests
template <class ENGINE>
class salted_lanes {
    static constexpr std::size_t LANES = ENGINE::LANES;
    static constexpr std::size_t INPUT_BLOCK = ENGINE::INPUT_BLOCK;
    using state = typename ENGINE::state;

public:
    salted_lanes(const state &start, const std::uint8_t *salt, std::size_t salt_length, std::size_t length)
        : cut_(salt_length, length, INPUT_BLOCK, ENGINE::HOLDS_LAST), length_(length),
          total_(salt_length + length), salted_(start) {
        const std::uint8_t *lanes[LANES];
        std::fill_n(lanes, LANES, salt);
        if (cut_.salt_blocks != 0)
            ENGINE::absorb(salted_, lanes, cut_.salt_blocks, 0);
        const std::uint8_t *salt_rest = salt + cut_.salt_blocks * INPUT_BLOCK;
        for (std::size_t lane = 0; lane < LANES; ++lane) {
            copy(head_[lane], salt_rest, cut_.head_salt);
            copy(tail_[lane], salt_rest, cut_.tail_salt);
            tail_blocks_ = ENGINE::pad(tail_[lane], cut_.tail_salt + cut_.tail_data, total_);
        }
    }

    // The digests of LANES blocks at `data`.
    void hash(const std::uint8_t *data, std::uint8_t *out) {
        state running = salted_;
        const std::uint8_t *lanes[LANES];
        std::uint64_t before = cut_.salt_blocks * INPUT_BLOCK;
        if (cut_.head_salt != 0) {
            fill_heads(data, lanes);
            ENGINE::absorb(running, lanes, 1, before);
            before += INPUT_BLOCK;
        }
        for (std::size_t lane = 0; lane < LANES; ++lane)
            lanes[lane] = data + lane * length_ + cut_.head_data;
        if (cut_.body_blocks != 0)
            ENGINE::absorb(running, lanes, cut_.body_blocks, before);
        fill_tails(data, lanes);
        ENGINE::finish(running, lanes, tail_blocks_, total_, out);
    }

private:
    // memcpy may not be given null, which an empty salt may be.
    static void copy(std::uint8_t *to, const std::uint8_t *from, std::size_t size) {
        if (size != 0)
            std::memcpy(to, from, size);
    }

    void fill_heads(const std::uint8_t *data, const std::uint8_t **lanes) {
        for (std::size_t lane = 0; lane < LANES; ++lane) {
            copy(head_[lane] + cut_.head_salt, data + lane * length_, cut_.head_data);
            lanes[lane] = head_[lane];
        }
    }

    void fill_tails(const std::uint8_t *data, const std::uint8_t **lanes) {
        for (std::size_t lane = 0; lane < LANES; ++lane) {
            const std::uint8_t *end = data + (lane + 1) * length_;
            copy(tail_[lane] + cut_.tail_salt, end - cut_.tail_data, cut_.tail_data);
            lanes[lane] = tail_[lane];
        }
    }

    const message_cut cut_;
    const std::size_t length_;
    const std::uint64_t total_;
    std::size_t tail_blocks_ = 0;
    state salted_;  // after the salt blocks
    std::uint8_t head_[LANES][INPUT_BLOCK];
    std::uint8_t tail_[LANES][ENGINE::TAIL_BLOCKS * INPUT_BLOCK];
};

template <class ENGINE>
void hash_salted(const typename ENGINE::state &start, const std::uint8_t *salt, std::size_t salt_length,
                 const std::uint8_t *data, std::size_t length, std::size_t count, std::uint8_t *out) {
    salted_lanes<ENGINE> lanes(start, salt, salt_length, length);
    hash_groups<ENGINE::LANES, ENGINE::DIGEST_SIZE>(lanes, data, length, count, out);
}
