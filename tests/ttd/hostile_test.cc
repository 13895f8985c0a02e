// Superblocks that are signed with the right key and do not tell the truth.  The model
// of the fuzz targets says which of those images are still proven; the type has to agree.
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "support/image_model.h"
#include "ttd/format.h"
#include "ttd/signature.h"
#include "ttd/type_run.h"

namespace {

constexpr std::size_t SUPERBLOCK = 4096;
constexpr std::size_t HASH = 32;
constexpr std::size_t SIGNATURE = 64;
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

constexpr std::uint64_t small_values[] = {0,    1,    2,    3,    4,    5,     8,     9,     31,   32,
                                          33,   64,   65,   128,  129,  256,   511,   512,   513,  1024,
                                          2048, 4095, 4096, 4097, 8192, 32767, 32768, 32769, 65536};
constexpr std::uint64_t large_values[] = {
    INT32_MAX,           1ull << 31,        UINT32_MAX - 4095,   UINT32_MAX, 1ull << 32,
    (1ull << 32) + 4096, 1ull << 44,        (1ull << 44) + 4096, INT64_MAX,  1ull << 63,
    UINT64_MAX - 65535,  UINT64_MAX - 4095, UINT64_MAX - 511,    UINT64_MAX};

std::uint8_t *superblock_of(image_bytes &image) {
    return image.data() + image.size() - SUPERBLOCK;
}

std::uint64_t get(const image_bytes &image, const field &what) {
    std::uint64_t value = 0;
    std::memcpy(&value, image.data() + image.size() - SUPERBLOCK + what.offset, what.width);
    return value;
}

// The values above, and what lies around the places of this image.
std::vector<std::uint64_t> values_for(const image_bytes &image) {
    std::vector<std::uint64_t> values(std::begin(small_values), std::end(small_values));
    values.insert(values.end(), std::begin(large_values), std::end(large_values));
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

using hash = std::array<std::uint8_t, HASH>;

// Of the image's salt and the bytes at a place within the image.
hash hash_at(const image_bytes &image, std::uint64_t place, std::uint64_t size) {
    const auto salt_size = static_cast<std::ptrdiff_t>(get(image, SALTSIZE));
    const auto salt = image.end() - static_cast<std::ptrdiff_t>(SUPERBLOCK - SALT.offset);
    const auto begin = image.begin() + static_cast<std::ptrdiff_t>(place);
    image_bytes message(salt, salt + salt_size);
    message.insert(message.end(), begin, begin + static_cast<std::ptrdiff_t>(size));
    hash result;
    tcrypto_ctx_ptr digest;
    EXPECT_EQ(tcrypto_digest_request("sha256", nullptr, 0, th_out(digest)), TCRYPTO_OK);
    EXPECT_EQ(tcrypto_digest(digest.get(), message.data(), message.size(), result.data(), nullptr),
              TCRYPTO_OK);
    return result;
}

// What the format says of an image whose signature is good, if the key is.
bool is_proven(image_bytes image) {
    ttd_superblock superblock;
    std::memcpy(&superblock, superblock_of(image), sizeof superblock);
    return superblock.sigtype == ED25519 && superblock.sigsize == SIGNATURE &&
           image_model(image, superblock).proves();
}

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
        option_list partition = options();
        partition.emplace_back('P', "65536");
        for (const image_bytes &image : {build(12288, options()), build(5000, partition)}) {
            images_.push_back(image);
            images_.push_back(larger(image));
        }
        set_options({{'K', test_key("ed25519.pub.pem")}});
    }
    ~hostile() override { setrlimit(RLIMIT_AS, &limit_); }

    static option_list options() {
        return {{'B', "512"},
                {'H', "sha256"},
                {'S', "eddsa-25519"},
                {'A', std::string(64, '5')},
                {'K', test_key("ed25519.pem")}};
    }
    static image_bytes larger(image_bytes image) {
        image.insert(image.end() - SUPERBLOCK, 65536, 0);
        return image;
    }

    static void sign(image_bytes &image) {
        constexpr const char *private_keys[] = {"rsa.pem", "ec.pem", "ed25519.pem", "ed448.pem"};
        ttd_superblock superblock;
        std::memcpy(&superblock, superblock_of(image), sizeof superblock);
        const std::uint32_t key = superblock.sigtype - 1;
        if (key < std::size(private_keys)) {
            EXPECT_EQ(ttd_sign_superblock(&superblock, test_key(private_keys[key]).c_str()), 0);
        }
        std::memcpy(superblock_of(image), &superblock, sizeof superblock);
    }

    static void apply(image_bytes &image, std::span<const change> changes) {
        for (const auto &[what, value] : changes)
            std::memcpy(superblock_of(image) + what->offset, &value, what->width);
    }

    static image_bytes signed_with(image_bytes image, std::span<const change> changes) {
        apply(image, changes);
        sign(image);
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
        EXPECT_EQ(err == 0, is_proven(image)) << told << "error " << err;
    }

    // In the larger images only what says where things are makes a difference.
    static std::span<const field> fields_of(std::size_t image) {
        return std::span(fields).first(image % 2 == 0 ? std::size(fields) : PLACING_FIELDS);
    }

    std::vector<image_bytes> images_;

private:
    rlimit limit_{};
};

TEST_F(hostile, NoFieldMakesAnUnprovenImageAcceptable) {
    for (std::size_t i = 0; i < images_.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_TRUE(is_proven(images_[i]));
        for (const std::uint64_t value : values_for(images_[i]))
            for (const field &what : fields_of(i))
                if (what.width == sizeof value || value <= UINT32_MAX)
                    expect_agreement(images_[i], std::vector<change>{{&what, value}});
    }
}

// Writes a tree of one level and a root hash that prove the image by whatever sizes
// its superblock has.
void forge_tree(image_bytes &image) {
    const std::uint64_t tree = get(image, OFFSET);
    const std::uint64_t block = get(image, BLKSIZE);
    for (std::uint64_t i = 0; i * block < get(image, FSSIZE); ++i)
        std::ranges::copy(hash_at(image, i * block, block), image.data() + tree + i * HASH);
    std::ranges::copy(hash_at(image, tree, get(image, HBLKSIZE)), superblock_of(image) + ROOTHASH.offset);
}

struct forgery {
    const char *name;
    std::vector<change> changes;
    bool accepted;
};

// Here every hash is right, so only the limits of the format stand in the way.
TEST_F(hostile, AProvingTreeDoesNotMakeUpForSizesOutsideTheFormat) {
    const forgery forgeries[] = {
        {"no change", {}, true},
        {"larger hash blocks", {{&HBLKSIZE, 1024}}, true},
        {"largest hash blocks", {{&HBLKSIZE, 32768}}, true},
        {"hash blocks above the largest", {{&HBLKSIZE, 65536}}, false},
        {"hash blocks of no power of two", {{&HBLKSIZE, 520}}, false},
        {"hash blocks below the smallest", {{&HBLKSIZE, 256}}, false},
        {"hash blocks of one hash", {{&HBLKSIZE, 32}, {&FSSIZE, 512}}, false},
        {"hash blocks below a hash", {{&HBLKSIZE, 31}, {&FSSIZE, 512}}, false},
        {"larger data blocks", {{&BLKSIZE, 1024}}, true},
        {"data blocks of no power of two", {{&BLKSIZE, 520}}, false},
        {"data blocks below the smallest", {{&BLKSIZE, 256}}, false},
        {"data blocks above the largest", {{&BLKSIZE, 65536}, {&FSSIZE, 1}}, false},
        {"longest salt", {{&SALTSIZE, 128}}, true},
        {"too long a salt", {{&SALTSIZE, 129}}, false},
        {"too short a salt", {{&SALTSIZE, 31}}, false},
        {"no salt", {{&SALTSIZE, 0}}, false},
        {"all but the last block covered", {{&FLAGS, 1}, {&TOTALSIZE, 512}, {&FSSIZE, 1024}}, true},
        {"a third of the image covered", {{&FLAGS, 1}, {&TOTALSIZE, 512}, {&FSSIZE, 1536}}, false},
        {"no block covered", {{&FLAGS, 1}, {&TOTALSIZE, 511}, {&FSSIZE, 512}}, true},
        {"all covered", {{&FLAGS, 1}, {&TOTALSIZE, 1024}, {&FSSIZE, 1024}}, true},
    };
    const image_bytes good = larger(build(2048, options()));
    set_options({{'K', test_key("ed25519.pub.pem")}});
    for (const auto &[name, changes, accepted] : forgeries) {
        SCOPED_TRACE(name);
        image_bytes image = good;
        apply(image, changes);
        forge_tree(image);
        sign(image);
        const int err = verify(image);
        EXPECT_TRUE(accepted ? err == 0 : err == EINVAL || err == EIO) << err;
    }
}

// A byte of a data block's hash, under a root that proves it, and a byte of that root.
TEST_F(hostile, EveryByteOfAHashCounts) {
    image_bytes good = larger(build(16384, options()));
    set_options({{'K', test_key("ed25519.pub.pem")}});
    apply(good, std::vector<change>{{&HBLKSIZE, 1024}});
    forge_tree(good);
    for (std::size_t byte = 0; byte < HASH; ++byte) {
        image_bytes leaf = good, root = good;
        leaf[16384 + 5 * HASH + byte] ^= 1;
        std::ranges::copy(hash_at(leaf, 16384, 1024), superblock_of(leaf) + ROOTHASH.offset);
        superblock_of(root)[ROOTHASH.offset + byte] ^= 1;
        for (image_bytes *image : {&leaf, &root}) {
            sign(*image);
            EXPECT_EQ(verify(*image), EIO) << byte;
        }
    }
    sign(good);
    EXPECT_EQ(verify(good), 0);
}

TEST_F(hostile, ABlockSizeOfZeroEndsTheProcess) {
    image_bytes image = signed_with(images_[0], std::vector<change>{{&BLKSIZE, 0}});
    EXPECT_EXIT((void)verify(image), testing::ExitedWithCode(255),
                "libdivide.h:[0-9]+: .*\\(\\): Error: divider must be != 0");
}

}  // namespace
