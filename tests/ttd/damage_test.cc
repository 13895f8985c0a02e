// Damaged images: whatever the signature or the tree protects cannot be changed,
// and no length of an image is taken for another.
#include <algorithm>
#include <cerrno>

#include "ttd/engine/format.h"
#include "ttd/type_run.h"

namespace {

// Bytes before the superblock's signature end, counted from the superblock's start,
// for a key with this signature length.
constexpr std::size_t SIGNATURE_OFFSET = 264;
constexpr std::size_t RSA_2048_SIGNATURE = 256;

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
        significant_ = image_.size() - TTD_SUPERBLOCK_SIZE + SIGNATURE_OFFSET + RSA_2048_SIGNATURE;
        ASSERT_EQ(verify(image_), 0);
    }

    [[nodiscard]] int verify_changed(std::size_t at, std::uint8_t change) {
        image_[at] ^= change;
        const int err = verify(image_);
        image_[at] ^= change;
        return err;
    }

    // Every step-th byte with all its bits changed, and with one.
    void expect_changes_found(std::size_t step) {
        for (std::size_t at = 0; at < image_.size(); at += step) {
            const auto one_bit = static_cast<std::uint8_t>(1u << (at / 8 + at) % 8);
            for (const std::uint8_t change : {std::uint8_t{0xff}, one_bit}) {
                const int err = verify_changed(at, change);
                const bool refused = err == EINVAL || err == EIO;
                ASSERT_TRUE(at < significant_ ? refused : err == 0) << "byte " << at << " error " << err;
            }
        }
    }

    image_bytes image_;
    std::size_t significant_ = 0;  // bytes from the start that the signature or the tree protects
};

TEST_F(damage, EveryChangedByteOfASmallImageIsFound) {
    build_rsa(8192, "4096");
    ASSERT_EQ(image_.size(), 16384u);
    ASSERT_EQ(significant_, 12808u);
    expect_changes_found(sampled(1, 11));
}

TEST_F(damage, ChangedBytesOfATreeWithTwoLevelsAreFound) {
    build_rsa(65536, "512");
    ASSERT_EQ(significant_, 70664u);
    ASSERT_EQ(image_.size() - significant_, 3576u);
    expect_changes_found(sampled(23, 251));
}

TEST_F(damage, NoTruncatedImageIsAccepted) {
    build_rsa(8192, "4096");
    image_bytes inner;
    for (std::size_t length = 0; length < image_.size(); length += sampled(1, 3)) {
        image_bytes cut(image_.begin(), image_.begin() + static_cast<std::ptrdiff_t>(length));
        const int err = verify(cut);
        ASSERT_TRUE(err == EINVAL || err == EIO) << length << " error " << err;
        ASSERT_EQ(extract(cut, inner), EINVAL) << length;
    }
}

// The superblock is still good, so only the sizes in it tell that bytes are missing.
TEST_F(damage, NoImageWithBytesMissingBeforeTheSuperblockIsAccepted) {
    build_rsa(8192, "4096");
    image_bytes inner;
    ASSERT_EQ(extract(image_, inner), 0);
    const image_bytes whole(image_.begin(), image_.begin() + 8192);
    ASSERT_EQ(inner, whole);
    const std::size_t body = image_.size() - TTD_SUPERBLOCK_SIZE;
    for (std::size_t length = 0; length < body; length += sampled(7, 61)) {
        image_bytes cut(image_.begin(), image_.begin() + static_cast<std::ptrdiff_t>(length));
        cut.insert(cut.end(), image_.end() - TTD_SUPERBLOCK_SIZE, image_.end());
        ASSERT_EQ(verify(cut), EINVAL) << length;
        ASSERT_EQ(extract(cut, inner), 0) << length;
        ASSERT_EQ(inner.size(), std::min<std::size_t>(cut.size(), 8192)) << length;
    }
}

}  // namespace
