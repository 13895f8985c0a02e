// The kernels in vectors of 512 bits.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

// g++ 12 warns of the operands that its own intrinsics leave undefined on purpose.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define VECTOR_BITS 512
#include "tcrypto/kernels/vector_rows.h"

constinit const std::span<const digest_kernel> avx512_kernels = avx512::ROWS;

#endif
