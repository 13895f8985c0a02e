// The on-disk format of a ttd image: the superblock's bytes and the tables of
// digest and signature codes.  The writer and every reader use these and nothing
// else.
//
// An image is the inner filesystem image (zero-padded in partition mode), the
// hash tree, and the superblock in the last 4096 bytes.  The tree lies top level
// first; every hash in it is digest(salt || block).  Integers are little-endian.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

inline constexpr std::uint32_t TTD_MAGIC = 0xC5C6C7C8;
inline constexpr std::uint32_t TTD_VERSION = 1;
inline constexpr std::uint32_t TTD_FLAG_PARTITION = 0x1;

inline constexpr std::size_t TTD_SUPERBLOCK_SIZE = 4096;
inline constexpr std::size_t TTD_SIGNED_SIZE = 260;  // bytes 0..259 are signed
inline constexpr std::size_t TTD_MAX_SIGNATURE = 3832;
inline constexpr std::size_t TTD_MAX_SALT = 128;
inline constexpr std::size_t TTD_MAX_ROOT_HASH = 64;
inline constexpr std::uint32_t TTD_MIN_BLOCK = 512;
inline constexpr std::uint32_t TTD_MAX_BLOCK = 32768;
inline constexpr unsigned TTD_MAX_LEVELS = 10;

struct ttd_superblock {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t flags;      // TTD_FLAG_PARTITION
    std::uint32_t blksize;    // data block, bytes
    std::uint32_t hblksize;   // hash block, bytes
    std::uint32_t hashtype;   // digest code
    std::uint64_t fssize;     // inner image, bytes
    std::uint64_t totalsize;  // whole image, bytes
    std::uint64_t offset;     // of the hash tree in the image, bytes
    std::uint32_t sigtype;    // signature code
    std::uint32_t saltsize;   // bytes
    std::uint8_t salt[TTD_MAX_SALT];
    std::uint64_t rollback;  // anti-rollback version
    std::uint32_t reserved;  // zero, never read
    std::uint8_t roothash[TTD_MAX_ROOT_HASH];
    std::uint32_t sigsize;  // bytes; the signed part ends before this field
    std::uint8_t sig[TTD_MAX_SIGNATURE];
};

static_assert(std::endian::native == std::endian::little, "superblock fields are read and written in place");
static_assert(std::is_trivially_copyable_v<ttd_superblock> && std::is_standard_layout_v<ttd_superblock>);
static_assert(offsetof(ttd_superblock, magic) == 0);
static_assert(offsetof(ttd_superblock, version) == 4);
static_assert(offsetof(ttd_superblock, flags) == 8);
static_assert(offsetof(ttd_superblock, blksize) == 12);
static_assert(offsetof(ttd_superblock, hblksize) == 16);
static_assert(offsetof(ttd_superblock, hashtype) == 20);
static_assert(offsetof(ttd_superblock, fssize) == 24);
static_assert(offsetof(ttd_superblock, totalsize) == 32);
static_assert(offsetof(ttd_superblock, offset) == 40);
static_assert(offsetof(ttd_superblock, sigtype) == 48);
static_assert(offsetof(ttd_superblock, saltsize) == 52);
static_assert(offsetof(ttd_superblock, salt) == 56);
static_assert(offsetof(ttd_superblock, rollback) == 184);
static_assert(offsetof(ttd_superblock, reserved) == 192);
static_assert(offsetof(ttd_superblock, roothash) == 196);
static_assert(offsetof(ttd_superblock, sigsize) == TTD_SIGNED_SIZE);
static_assert(offsetof(ttd_superblock, sig) == 264);
static_assert(sizeof(ttd_superblock) == TTD_SUPERBLOCK_SIZE);

// What a signature code stands for: the option value, and the algorithms that the
// crypto library is asked for.
struct ttd_signature_row {
    const char *option;
    const char *signature;
    const char *key;
    bool pure;  // signs the message itself, not a SHA-256 digest of it
};

// The digest code 1..8 of a name (exact comparison), or 0.
[[nodiscard]] std::uint32_t ttd_hash_type(const char *name);
// The name of a digest code, or null.
[[nodiscard]] const char *ttd_hash_name(std::uint32_t code);
// The signature code 1..4 of an option value, or 0.
[[nodiscard]] std::uint32_t ttd_sig_type(const char *name);
// The row of a signature code, or null.
[[nodiscard]] const ttd_signature_row *ttd_sig_row(std::uint32_t code);
// The `pure` column of a code's row; false for a code without one.
[[nodiscard]] bool ttd_sig_is_pure(std::uint32_t code);

// A power of two from 512 to 32768.
[[nodiscard]] constexpr bool ttd_is_block_size(std::uint64_t size) {
    return std::has_single_bit(size) && size >= TTD_MIN_BLOCK && size <= TTD_MAX_BLOCK;
}

// The bytes that a superblock's signature covers.
[[nodiscard]] inline std::span<const std::uint8_t> ttd_signed_bytes(const ttd_superblock &superblock) {
    return {reinterpret_cast<const std::uint8_t *>(&superblock), TTD_SIGNED_SIZE};
}
