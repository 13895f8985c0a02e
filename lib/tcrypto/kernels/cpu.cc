#include "tcrypto/kernels/rows.h"

#if defined(__x86_64__)

#include <cpuid.h>
#include <immintrin.h>

namespace {

// Leaf 7 of cpuid, register EBX.  Asked for here because the compilers' own
// feature test does not know the name "sha" everywhere.
constexpr unsigned LEAF7_EBX_SHA = 1U << 29;

bool detect_sha() {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & LEAF7_EBX_SHA) != 0 &&
           __builtin_cpu_supports("avx");
}

}  // namespace

constinit const instruction_set cpu_sha = {
    .name = "sha_ni",
    .present =
        [] {
            static const bool sha = detect_sha();
            return sha;
        },
};

constinit const instruction_set cpu_avx2 = {
    .name = "avx2",
    .present = [] { return __builtin_cpu_supports("avx2") != 0; },
};

constinit const instruction_set cpu_avx512 = {
    .name = "avx512bw",
    .present =
        [] { return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0; },
};

__attribute__((target("avx"))) void cpu_clear_upper_halves() {
    _mm256_zeroupper();
}

#endif
