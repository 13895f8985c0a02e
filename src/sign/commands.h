// What ttdsign does to images.  Each function prints what it did on standard output, why
// it refused on standard error, and returns 0 or an error number.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

struct ttdsign_settings {
    std::span<char *const> images;  // paths; one, but for resign
    const char *key = nullptr;      // PEM: join the public key, resign the private one
    bool dry_run = false;           // join, resign: change nothing
    bool json = false;              // join, resign
    // message
    const char *output = nullptr;  // file, null: standard output
    bool digest = false;           // the SHA-256 digest of the bytes
    // join
    const char *signature = nullptr;  // file with the bytes of a signature
    // resign
    std::uint32_t sigtype = 0;              // new signature code
    const char *old_key = nullptr;          // PEM public key; null with unchecked
    bool unchecked = false;                 // the old signature is not checked
    std::optional<std::uint64_t> rollback;  // new anti-rollback version
};

// Writes the 260 bytes that are to be signed, or their digest, which is what RSA and
// ECDSA sign.  EINVAL when a digest is asked for another signature.
[[nodiscard]] int ttdsign_message(const ttdsign_settings &with);

// Puts a signature that was made elsewhere into the image, if the public key proves it.
[[nodiscard]] int ttdsign_join(const ttdsign_settings &with);

// Signs images again.  Every image is read, checked and signed in memory before the first
// one is changed: a refusal leaves all of them unchanged.  An image that is already as
// wanted, because an earlier run was stopped, is left alone.
[[nodiscard]] int ttdsign_resign(const ttdsign_settings &with);
