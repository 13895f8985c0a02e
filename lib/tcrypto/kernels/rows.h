// What the kernels share with the table that lists them.
#pragma once

#include "tcrypto/kernels/kernel.h"

extern const instruction_set cpu_sha;  // for SHA-1 and SHA-256; with SSE4.1
extern const instruction_set cpu_avx2;

// Clears the upper halves of the vector registers.  The SHA instructions have
// only the old encoding, which processors can run many times slower while an
// upper half is in use, and compilers may leave one in use around a call.
void cpu_clear_upper_halves();

extern const digest_kernel sha1_sha_x2;
extern const digest_kernel sha224_sha_x2;
extern const digest_kernel sha256_sha_x2;
extern const digest_kernel sha224_avx2_x8;
extern const digest_kernel sha256_avx2_x8;
extern const digest_kernel sha384_avx2_x4;
extern const digest_kernel sha512_avx2_x4;
extern const digest_kernel sha512_256_avx2_x4;
extern const digest_kernel blake2b512_avx2_x4;
extern const digest_kernel blake2b256_avx2_x4;
extern const digest_kernel blake2s256_avx2_x8;
extern const digest_kernel blake3_many_x8;
