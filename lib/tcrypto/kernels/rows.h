// What the kernels share with the table that lists them.
#pragma once

#include "tcrypto/kernels/kernel.h"

extern const instruction_set cpu_sha;  // for SHA-1 and SHA-256; with AVX
extern const instruction_set cpu_avx2;
extern const instruction_set cpu_avx512;  // AVX-512F and BW

// Clears the upper halves of the vector registers.  The SHA instructions have
// only the old encoding, which processors can run many times slower while an
// upper half is in use, and compilers may leave one in use around a call.
void cpu_clear_upper_halves();

extern const std::span<const digest_kernel> sha_ni_kernels;
extern const std::span<const digest_kernel> avx512_kernels;
extern const std::span<const digest_kernel> avx2_kernels;
extern const std::span<const digest_kernel> blake3_kernels;
