// Signing through a command of the user's, so that the private key never comes
// near this program.
#pragma once

#include <cstdint>

struct ttd_superblock;

// Writes what is to be signed into a temporary file, runs `command` (which holds
// the tokens "<hashfile>" and "<sigfile>") through the shell, and reads the
// signature from a second temporary file into the superblock.  RSA and ECDSA sign
// the SHA-256 digest of the first 260 bytes, EdDSA the bytes themselves.
//
// A command that exits with a status other than 0 without a system error leaves an
// empty signature and counts as success.  A command ended by SIGINT or SIGQUIT ends
// this process by the same signal.  Both files are removed on every path.  EINVAL:
// names or command too long, a temporary folder whose name the shell would act on,
// an empty or too large signature; ENOENT, ENXIO: no digest; else the system's
// error.  Logs.
[[nodiscard]] int ttd_custom_sign_superblock(std::uint32_t sigtype, const char *command,
                                             ttd_superblock *superblock);

// Finds what is wrong with the temporary folder before there is anything to sign, with
// the error and message that the signing would end with.
[[nodiscard]] int ttd_check_custom_sign();
