// Superblocks that are signed with the right key and do not tell the truth.  A model
// of the format, written here in 128-bit arithmetic and with its own walk through the
// tree, says which of those images are still proven; the type has to agree.
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

#include "ttd/engine/format.h"
#include "ttd/engine/signature.h"
#include "ttd/type_run.h"

namespace {

__extension__ using wide = unsigned __int128;

constexpr std::size_t SUPERBLOCK = 4096;
constexpr std::size_t HASH = 32;
constexpr std::size_t SIGNATURE = 64;
constexpr std::uint64_t SHA256 = 2;
constexpr std::uint64_t ED25519 = 3;

struct field {
    const char *name;
    std::size_t offset;
    std::size_t width;
};

constexpr field MAGIC = {"magic", 0, 4}, VERSION = {"version", 4, 4}, FLAGS = {"flags", 8, 4},
                BLKSIZE = {"blksize", 12, 4}, HBLKSIZE = {"hblksize", 16, 4}, HASHTYPE = {"hashtype", 20, 4},
                FSSIZE = {"fssize", 24, 8}, TOTALSIZE = {"totalsize", 32, 8}, OFFSET = {"offset", 40, 8},
                SIGTYPE = {"sigtype", 48, 4}, SALTSIZE = {"saltsize", 52, 4}, SALT = {"salt", 56, 8},
                SALT_TAIL = {"end of salt", 176, 8}, ROLLBACK = {"rollback", 184, 8},
                RESERVED = {"reserved", 192, 4}, ROOTHASH = {"roothash", 196, 8},
                ROOTHASH_TAIL = {"end of roothash", 252, 8}, SIGSIZE = {"sigsize", 260, 4};

constexpr field fields[] = {BLKSIZE,   HBLKSIZE, FSSIZE,   TOTALSIZE, OFFSET,        FLAGS,
                            MAGIC,     VERSION,  HASHTYPE, SIGTYPE,   SALTSIZE,      SALT,
                            SALT_TAIL, ROLLBACK, RESERVED, ROOTHASH,  ROOTHASH_TAIL, SIGSIZE};
constexpr std::size_t PLACING_FIELDS = 6;  // the first ones, which say where things are

constexpr std::uint64_t extremes[] = {0,           1,           2,
                                      3,           4,           5,
                                      8,           9,           16,
                                      31,          32,          33,
                                      64,          65,          127,
                                      128,         129,         255,
                                      256,         511,         512,
                                      513,         1024,        2048,
                                      4095,        4096,        4097,
                                      8192,        16384,       32767,
                                      32768,       32769,       65536,
                                      0x7fffffff,  0x80000000,  0xfffff000,
                                      0xffffffff,  0x100000000, 0x100001000,
                                      1ull << 40,  1ull << 44,  (1ull << 44) + 4096,
                                      INT64_MAX,   1ull << 63,  0ull - 65536,
                                      0ull - 4096, 0ull - 512,  UINT64_MAX};

std::uint8_t *superblock_of(image_bytes &image) {
    return image.data() + image.size() - SUPERBLOCK;
}

std::uint64_t get(const image_bytes &image, const field &what) {
    std::uint64_t value = 0;
    std::memcpy(&value, image.data() + image.size() - SUPERBLOCK + what.offset, what.width);
    return value;
}

// The extremes, and what lies around the places of this image.
std::vector<std::uint64_t> values_for(const image_bytes &image) {
    std::vector<std::uint64_t> values(std::begin(extremes), std::end(extremes));
    const std::uint64_t block = get(image, BLKSIZE);
    for (const std::uint64_t place : {image.size(), image.size() - SUPERBLOCK, get(image, FSSIZE),
                                      get(image, OFFSET), get(image, TOTALSIZE)})
        for (const std::uint64_t distance :
             std::initializer_list<std::uint64_t>{0 - block, UINT64_MAX, 0, 1, block})
            values.push_back(place + distance);
    std::ranges::sort(values);
    values.erase(std::unique(values.begin(), values.end()), values.end());
    return values;
}

// What the format says of an image whose signature is good.
class model {
public:
    explicit model(const image_bytes &image) : image_(image) {
        EXPECT_EQ(tcrypto_digest_request("sha256", nullptr, 0, th_out(digest_)), TCRYPTO_OK);
    }

    [[nodiscard]] bool accepts() {
        if (!is_sane() || !lay_out())
            return false;
        for (wide block = 0; block * block_ < inner_; ++block)
            if (!proves(block))
                return false;
        return true;
    }

private:
    static bool is_block_size(wide size) { return size >= 512 && size <= 32768 && (size & (size - 1)) == 0; }

    // Another digest or kind of key than the one that the image was made with can
    // only be refused.
    [[nodiscard]] bool is_sane() const {
        const std::uint64_t salt = get(image_, SALTSIZE);
        return get(image_, MAGIC) == 0xC5C6C7C8 && get(image_, VERSION) == 1 &&
               get(image_, HASHTYPE) == SHA256 && get(image_, SIGTYPE) == ED25519 &&
               get(image_, SIGSIZE) == SIGNATURE && salt >= HASH && salt <= 128 && is_block_size(block_) &&
               is_block_size(hash_block_) && covered_ > 0 && inner_ <= covered_ && inner_ <= room_ &&
               (!partition_ || covered_ <= room_ + SUPERBLOCK);
    }

    [[nodiscard]] bool lay_out() {
        wide count = covered_ / block_;
        wide tree_blocks = 0;
        do {
            count = (count + per_block() - 1) / per_block();
            levels_.push_back(count);
            tree_blocks += count;
        } while (count > 1);
        return levels_.size() <= 10 && tree_ + tree_blocks * hash_block_ <= room_;
    }

    [[nodiscard]] wide per_block() const { return hash_block_ / HASH; }

    [[nodiscard]] bool proves(wide block) {
        const std::uint8_t *expected = image_.data() + image_.size() - SUPERBLOCK + ROOTHASH.offset;
        wide level_start = tree_;
        for (std::size_t level = levels_.size(); level-- > 0;) {
            wide entry = block;
            for (std::size_t below = 0; below < level; ++below)
                entry /= per_block();
            const wide place = level_start + entry / per_block() * hash_block_;
            if (!matches(place, hash_block_, expected))
                return false;
            expected = image_.data() + place + entry % per_block() * HASH;
            level_start += levels_[level] * hash_block_;
        }
        return matches(block * block_, block_, expected);
    }

    [[nodiscard]] bool matches(wide place, wide size, const std::uint8_t *expected) {
        if (place + size > image_.size())
            return false;
        std::uint8_t hash[HASH];
        const std::uint8_t *salt = image_.data() + image_.size() - SUPERBLOCK + SALT.offset;
        EXPECT_EQ(tcrypto_digest_init(digest_.get()), TCRYPTO_OK);
        EXPECT_EQ(tcrypto_digest_update(digest_.get(), salt, get(image_, SALTSIZE)), TCRYPTO_OK);
        EXPECT_EQ(tcrypto_digest_update(digest_.get(), image_.data() + place, static_cast<std::size_t>(size)),
                  TCRYPTO_OK);
        EXPECT_EQ(tcrypto_digest_final(digest_.get(), hash, nullptr), TCRYPTO_OK);
        return std::memcmp(hash, expected, HASH) == 0;
    }

    const image_bytes &image_;
    tcrypto_ctx_ptr digest_;
    const wide room_ = image_.size() - SUPERBLOCK;
    const bool partition_ = (get(image_, FLAGS) & 1) != 0;
    const wide block_ = get(image_, BLKSIZE);
    const wide hash_block_ = get(image_, HBLKSIZE);
    const wide inner_ = get(image_, FSSIZE);
    const wide covered_ = get(image_, partition_ ? TOTALSIZE : FSSIZE);
    const wide tree_ = get(image_, OFFSET);
    std::vector<wide> levels_;  // hash blocks, level 0 first
};

struct change {
    const field *what;
    std::uint64_t value;
};

// Both modes, each as it was built and as a part of something larger: zeros between
// tree and superblock give numbers that are too large a place to point to.
class hostile : public type_run {
protected:
    hostile() {
        // What asks for more memory than any of these images can need gets ENOMEM,
        // which the tests do not take for a refusal.
        getrlimit(RLIMIT_AS, &limit_);
        const rlimit small = {.rlim_cur = 512u << 20, .rlim_max = limit_.rlim_max};
        if (!SANITIZED)
            setrlimit(RLIMIT_AS, &small);
        const option_list options = {{'B', "512"},
                                     {'H', "sha256"},
                                     {'S', "eddsa-25519"},
                                     {'A', std::string(64, '5')},
                                     {'K', test_key("ed25519.pem")}};
        option_list partition = options;
        partition.emplace_back('P', "65536");
        for (image_bytes image : {build(12288, options), build(5000, partition)}) {
            images_.push_back(image);
            image.insert(image.end() - SUPERBLOCK, 65536, 0);
            images_.push_back(image);
        }
        set_options({{'K', test_key("ed25519.pub.pem")}});
    }
    ~hostile() override { setrlimit(RLIMIT_AS, &limit_); }

    static image_bytes signed_with(image_bytes image, std::span<const change> changes) {
        constexpr const char *private_keys[] = {"rsa.pem", "ec.pem", "ed25519.pem", "ed448.pem"};
        apply(image, changes);
        ttd_superblock superblock;
        std::memcpy(&superblock, superblock_of(image), sizeof superblock);
        const std::uint32_t key = superblock.sigtype - 1;
        if (key < std::size(private_keys)) {
            EXPECT_EQ(ttd_sign_superblock(&superblock, test_key(private_keys[key]).c_str()), 0);
        }
        std::memcpy(superblock_of(image), &superblock, sizeof superblock);
        apply(image, changes);  // the signature's length once more
        return image;
    }

    void expect_agreement(const image_bytes &good, std::span<const change> changes) {
        image_bytes image = signed_with(good, changes);
        if (get(image, BLKSIZE) == 0)
            return;  // ends the process
        const int err = verify(image);
        std::string told;
        for (const auto &[what, value] : changes)
            told += std::string(what->name) + " = " + std::to_string(value) + " ";
        EXPECT_TRUE(err == 0 || err == EINVAL || err == EIO) << told << "error " << err;
        EXPECT_EQ(err == 0, model(image).accepts()) << told << "error " << err;
        accepted_ += err == 0;
    }

    std::vector<image_bytes> images_;
    int accepted_ = 0;

private:
    static void apply(image_bytes &image, std::span<const change> changes) {
        for (const auto &[what, value] : changes)
            std::memcpy(superblock_of(image) + what->offset, &value, what->width);
    }

    rlimit limit_{};
};

TEST_F(hostile, NoFieldMakesAnUnprovenImageAcceptable) {
    for (std::size_t i = 0; i < images_.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(model(images_[i]).accepts());
        for (const std::uint64_t value : values_for(images_[i]))
            for (const field &what : fields)
                if (what.width == sizeof value || value <= UINT32_MAX)
                    expect_agreement(images_[i], std::vector<change>{{&what, value}});
    }
    EXPECT_GT(accepted_, 0);
}

TEST_F(hostile, NoPairOfFieldsMakesAnUnprovenImageAcceptable) {
    std::mt19937 random(43);
    for (int round = 0; round < 800; ++round) {
        const std::size_t i = random() % images_.size();
        SCOPED_TRACE(i);
        const std::vector<std::uint64_t> values = values_for(images_[i]);
        std::vector<change> pair(2);
        for (change &one : pair)
            one = {&fields[random() % std::size(fields)], values[random() % values.size()]};
        expect_agreement(images_[i], pair);
    }
}

TEST_F(hostile, ABlockSizeOfZeroEndsTheProcess) {
    image_bytes image = signed_with(images_[0], std::vector<change>{{&BLKSIZE, 0}});
    EXPECT_EXIT((void)verify(image), testing::ExitedWithCode(255),
                "libdivide.h:[0-9]+: .*\\(\\): Error: divider must be != 0");
}

}  // namespace
