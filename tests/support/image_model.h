// What a signed superblock proves of its image, without the engine: the root hash is computed
// from the data up, and every hash on the way must stand in the tree.
#pragma once

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdint>
#include <span>
#include <vector>

#include "support/require.h"
#include "tcrypto/tcrypto.h"
#include "ttd/format.h"

using image_bytes = std::vector<std::uint8_t>;

class image_model {
public:
    image_model(image_bytes &image, const ttd_superblock &superblock) : image_(image), sb_(superblock) {
        constexpr const char *digests[] = {"sha1",       "sha256",     "sha512",     "sha512-256",
                                           "blake2s256", "blake2b256", "blake2b512", "blake3"};
        if (sb_.hashtype - 1 < std::size(digests))
            require(tcrypto_digest_request(digests[sb_.hashtype - 1], nullptr, 0, th_out(digest_)) == 0);
        hash_size_ = digest_ ? tcrypto_digestsize(digest_.get()) : 0;
        valid_ = is_sane() && lay_out();
        well_formed_ = valid_ && sb_.fssize <= image_.size() && blocks_ <= covered_ / sb_.blksize + 1;
    }

    // What verification answers: EINVAL for numbers outside the format, EIO for an inner
    // image that is not proven, be it for want of bytes.
    [[nodiscard]] int status() { return !valid_ ? EINVAL : proves() ? 0 : EIO; }

    // A format that is kept, and all of the inner image there.  The index just behind the
    // last block is walked like any other.
    [[nodiscard]] bool is_well_formed() const { return well_formed_; }

    // Whether every block of the inner image is proven.
    [[nodiscard]] bool proves() {
        if (!well_formed_ || blocks_ > items_.back())
            return false;
        consistent_ = true;
        return blocks_ == 0 ||
               (root() == image_bytes(sb_.roothash, sb_.roothash + hash_size_) && consistent_);
    }

    // Makes the tree true.  What lies on top of it may get lost.
    void repair(ttd_superblock &superblock) {
        if (!well_formed_)
            return;
        repairing_ = true;
        std::ranges::copy(root(), superblock.roothash);
        repairing_ = false;
    }

private:
    static bool is_block_size(std::uint32_t size) {
        return std::has_single_bit(size) && size >= 512 && size <= 32768;
    }

    [[nodiscard]] bool is_sane() {
        covered_ = sb_.flags & 1 ? sb_.totalsize : sb_.fssize;  // a partition, or the inner image alone
        return sb_.magic == TTD_MAGIC && sb_.version == TTD_VERSION && hash_size_ > 0 &&
               sb_.saltsize >= hash_size_ && sb_.saltsize <= sizeof sb_.salt && is_block_size(sb_.blksize) &&
               is_block_size(sb_.hblksize) && covered_ > 0;
    }

    // The levels' places: the highest lies first.
    [[nodiscard]] bool lay_out() {
        per_block_ = sb_.hblksize / hash_size_;
        blocks_ = sb_.fssize / sb_.blksize + (sb_.fssize % sb_.blksize != 0);
        std::vector<std::uint64_t> counts;
        std::uint64_t count = covered_ / sb_.blksize;
        do {
            count = (count + per_block_ - 1) / per_block_;
            counts.push_back(count);
        } while (count > 1);
        std::uint64_t place = sb_.offset, total = 0;
        for (const std::uint64_t blocks : counts)
            total += blocks;
        items_.assign(1, 1);
        starts_.assign(counts.size(), 0);
        for (std::size_t level = counts.size(); level-- > 0; place += counts[level] * sb_.hblksize) {
            starts_[level] = place;
            items_.push_back(items_.back() * per_block_);
        }
        return counts.size() <= TTD_MAX_LEVELS && place >= sb_.offset &&
               total * std::max<std::uint64_t>(sb_.hblksize, per_block_) <= UINT32_MAX;
    }

    [[nodiscard]] image_bytes root() { return hash_of(starts_.size(), 0); }

    // Level 0 is the data; an item of level n is a hash block over items_[n] data blocks.
    [[nodiscard]] image_bytes hash_of(std::size_t level, std::uint64_t index) {
        const std::uint64_t size = level == 0 ? sb_.blksize : sb_.hblksize;
        const std::uint64_t place = level == 0 ? index * size : starts_[level - 1] + index * size;
        image_bytes result(hash_size_);
        if (place > image_.size() || size > image_.size() - place) {
            consistent_ = false;
            return result;
        }
        for (std::uint64_t slot = 0; level > 0 && slot < per_block_; ++slot) {
            const std::uint64_t child = index * per_block_ + slot;
            if (child * items_[level - 1] >= blocks_)
                break;
            const image_bytes hash = hash_of(level - 1, child);
            const auto there = image_.begin() + static_cast<std::ptrdiff_t>(place + slot * hash_size_);
            if (repairing_)
                std::ranges::copy(hash, there);
            consistent_ = consistent_ && std::ranges::equal(hash, std::span(there, hash_size_));
        }
        require(tcrypto_digest_init(digest_.get()) == 0 &&
                tcrypto_digest_update(digest_.get(), sb_.salt, sb_.saltsize) == 0 &&
                tcrypto_digest_update(digest_.get(), image_.data() + place, size) == 0 &&
                tcrypto_digest_final(digest_.get(), result.data(), nullptr) == 0);
        return result;
    }

    image_bytes &image_;
    const ttd_superblock &sb_;
    tcrypto_ctx_ptr digest_;
    std::size_t hash_size_ = 0;
    std::uint64_t covered_ = 0, per_block_ = 0;
    std::uint64_t blocks_ = 0;           // of the inner image, the last one maybe in part
    std::vector<std::uint64_t> items_;   // data blocks under one item of a level
    std::vector<std::uint64_t> starts_;  // where the hash blocks of level n + 1 begin
    bool consistent_ = true, repairing_ = false, valid_ = false, well_formed_ = false;
};
