// The superblock's signature, made and checked with keys in PEM files through the
// crypto library.  ttd_tcrypto_init must have started it, or tcrypto_init itself.
#pragma once

#include "tcrypto/tcrypto.h"
#include "ttd/format.h"

// A key that was loaded for one signature code; empty before.
struct ttd_key {
    tcrypto_ctx_ptr keygen;
    tcrypto_key_ptr key;  // released first
};

// Load the PEM private or public key file for a signature code.  EINVAL: an unknown code
// (no message), or a key that does not load or is of another type; ENOENT: no provider has
// the key algorithm.  Log.
[[nodiscard]] int ttd_load_private_key(std::uint32_t sigtype, const char *path, ttd_key *out);
[[nodiscard]] int ttd_load_public_key(std::uint32_t sigtype, const char *path, ttd_key *out);
// The public half of a private key.  EINVAL (logs).
[[nodiscard]] int ttd_public_key_of(const ttd_key &private_key, ttd_key *out);

// Signs the first 260 bytes and fills sigsize and sig; the key is a private one of the
// superblock's signature code.  ENOENT: no provider has the algorithm; ENXIO: signing
// failed.  sigsize is 0 on failure.  Logs.
[[nodiscard]] int ttd_sign_with_key(ttd_superblock *superblock, const ttd_key &key);

// Checks the signature with a public key of the superblock's signature code.  EINVAL: an
// impossible signature length (logs), or a signature that does not match (no message);
// ENOENT; ENXIO: the check itself failed.
[[nodiscard]] int ttd_verify_with_key(const ttd_superblock *superblock, const ttd_key &key);

// The SHA-256 digest of the signed bytes, which is what RSA and ECDSA sign.  ENOENT: no
// provider has the digest; ENXIO: hashing failed.  Does not log.
inline constexpr std::size_t TTD_SIGNED_DIGEST_SIZE = 32;
[[nodiscard]] int ttd_signed_digest(const ttd_superblock &superblock,
                                    std::span<std::uint8_t, TTD_SIGNED_DIGEST_SIZE> out);

// The same with a key file.  An impossible signature length is found before the file is
// opened.
[[nodiscard]] int ttd_sign_superblock(ttd_superblock *superblock, const char *key_path);
[[nodiscard]] int ttd_verify_superblock(const ttd_superblock *superblock, const char *key_path);
