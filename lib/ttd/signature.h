// The superblock's signature, made and checked with a key file through the
// crypto library.  ttd_tcrypto_init must have started it.
#pragma once

#include "ttd/format.h"

// Signs the first 260 bytes with the PEM private key file and fills sigsize and
// sig.  ENOENT: an algorithm is not to be had; EINVAL: the key does not load or is
// of another type; ENXIO: signing failed.  sigsize is 0 on failure.  Logs.
[[nodiscard]] int ttd_sign_superblock(ttd_superblock *superblock, const char *key_path);

// Checks the signature with the PEM public key file.  EINVAL: bad signature length,
// a key that does not load, or a signature that does not match (the last without a
// message of its own); ENOENT; ENXIO: the check itself failed.  Logs.
[[nodiscard]] int ttd_verify_superblock(const ttd_superblock *superblock, const char *key_path);
