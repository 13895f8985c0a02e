// The kernels in vectors of 256 bits.
#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#define VECTOR_BITS 256
#include "tcrypto/kernels/vector_rows.h"

constinit const std::span<const digest_kernel> avx2_kernels = avx2::ROWS;

#endif
