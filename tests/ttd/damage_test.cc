// Damaged images: whatever the signature or the tree protects cannot be changed,
// and no length of an image is taken for another.
#include <algorithm>
#include <cerrno>

#include "ttd/format.h"
#include "ttd/type_run.h"

namespace {

constexpr std::size_t SIGNATURE_OFFSET = 264;  // in the superblock
constexpr std::size_t RSA_2048_SIGNATURE = 256;
constexpr std::size_t SIGNED_AND_SIGNATURE = SIGNATURE_OFFSET + RSA_2048_SIGNATURE;

// With sanitizers only every n-th byte or length is tried, for time; n is prime, so
// that all positions within a block and a word come up.
constexpr std::size_t sampled(std::size_t full_step, std::size_t sanitized_step) {
    return SANITIZED ? sanitized_step : full_step;
}

class damage : public type_run {
protected:
    void build_rsa(std::size_t size, const char *block_size) {
        const std::string salt(64, '5');
        image_ = build(size, {{'B', block_size},
                              {'H', "sha256"},
                              {'S', "rsa-sha256"},
                              {'A', salt},
                              {'K', test_key("rsa.pem")}});
        set_options({{'K', test_key("rsa.pub.pem")}});
        significant_ = image_.size() - TTD_SUPERBLOCK_SIZE + SIGNED_AND_SIGNATURE;
        ASSERT_EQ(verify(image_), 0);
    }

    [[nodiscard]] int verify_changed(std::size_t at, std::uint8_t change) {
        image_[at] ^= change;
        const int err = verify(image_);
        image_[at] ^= change;
        return err;
    }

    // Changes every step-th byte of a range on its own; `bits` gives the bits to
    // change from the byte's place.
    void expect_changes_found(std::size_t begin, std::size_t end, std::size_t step,
                              std::uint8_t (*bits)(std::size_t at)) {
        for (std::size_t at = begin; at < end; at += step) {
            const int err = verify_changed(at, bits(at));
            const bool refused = err == EINVAL || err == EIO;
            ASSERT_TRUE(at < significant_ ? refused : err == 0) << "byte " << at << " error " << err;
        }
    }
    static std::uint8_t all_bits(std::size_t) { return 0xff; }
    static std::uint8_t one_bit(std::size_t at) { return static_cast<std::uint8_t>(1u << (at / 8 + at) % 8); }

    image_bytes image_;
    std::size_t significant_ = 0;  // bytes from the start that the signature or the tree protects
};

class damaged_region : public damage, public testing::WithParamInterface<int> {};

// A third of the bytes each, so that they run at once.  Most of the time goes into
// loading the key, once a verification.
TEST_P(damaged_region, EveryChangedByteIsFound) {
    build_rsa(8192, "4096");
    ASSERT_EQ(image_.size(), 16384u);
    ASSERT_EQ(significant_, 12808u);
    const auto first = static_cast<std::size_t>(GetParam());
    expect_changes_found(first, image_.size(), 3 * sampled(1, 11), all_bits);
    expect_changes_found(first, significant_ - SIGNED_AND_SIGNATURE, 3 * sampled(7, 11), one_bit);
    expect_changes_found(significant_ - SIGNED_AND_SIGNATURE + first, significant_, 3 * sampled(1, 11),
                         one_bit);
}

INSTANTIATE_TEST_SUITE_P(all, damaged_region, testing::Range(0, 3));

TEST_F(damage, ChangedBytesOfATreeWithTwoLevelsAreFound) {
    build_rsa(65536, "512");
    ASSERT_EQ(significant_, 70664u);
    ASSERT_EQ(image_.size() - significant_, 3576u);
    expect_changes_found(0, image_.size(), sampled(61, 251), one_bit);
}

// With the superblock behind it, only the sizes in that tell that bytes are missing.
TEST_F(damage, NoImageWithBytesMissingIsAccepted) {
    build_rsa(8192, "4096");
    image_bytes inner;
    ASSERT_EQ(extract(image_, inner), 0);
    ASSERT_EQ(inner, image_bytes(image_.begin(), image_.begin() + 8192));
    for (std::size_t length = 0; length < image_.size(); length += sampled(1, 3)) {
        image_bytes cut(image_.begin(), image_.begin() + static_cast<std::ptrdiff_t>(length));
        const int err = verify(cut);
        ASSERT_TRUE(err == EINVAL || err == EIO) << length << " error " << err;
        ASSERT_EQ(extract(cut, inner), EINVAL) << length;
        if (length % 31 != 0 || length >= image_.size() - TTD_SUPERBLOCK_SIZE)
            continue;
        cut.insert(cut.end(), image_.end() - TTD_SUPERBLOCK_SIZE, image_.end());
        ASSERT_EQ(verify(cut), EIO) << length;
        ASSERT_EQ(extract(cut, inner), 0) << length;
        ASSERT_EQ(inner.size(), std::min<std::size_t>(cut.size(), 8192)) << length;
    }
}

TEST_F(damage, AnInputThatChangesItsSizeIsRefused) {
    const log_capture log;
    for (const std::size_t size : {4096u, 8191u, 12288u})
        build(8192, {{'B', "4096"}, {'H', "sha256"}, {'S', "rsa-sha256"}, {'K', test_key("rsa.pem")}}, size);
    EXPECT_NE(log.text().find("changed its size from '8192' to '4096'"), std::string::npos);
}

}  // namespace
