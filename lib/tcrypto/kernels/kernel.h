// Digests of many equally long blocks at once: out[i] = digest(salt || block i).
//
// A kernel hashes as many blocks side by side as it has lanes, by instructions
// that the processor may lack.  Whoever wants a digest asks for a kernel by the
// digest's name and takes his ordinary code when there is none, as for blocks
// that are left over when a count is no multiple of the lanes.
//
// Kernels are static records without state: they allocate nothing, call no other
// library than the BLAKE3 reference and serve any number of threads.
//
// TCRYPTO_KERNELS=off in the environment (looked at once, at the first request)
// withholds every kernel from digest_kernel_for, to compare with the ordinary
// code or to rule the kernels out as the cause of a fault.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct digest_kernel {
    const char *digest = nullptr;  // as in a digest request: "sha256", "blake2b512" ...
    const char *name = nullptr;    // how it computes, for reports
    std::size_t lanes = 0;         // blocks hashed side by side

    // Whether this processor and operating system have the instructions.
    bool (*usable)() = nullptr;

    // Hashes `count` blocks, a multiple of `lanes` (what exceeds one is left
    // out), of `length` bytes each, one after the other at `data`.  The results
    // are packed at `out`, digest size each; `out` must not overlap the inputs.
    // Any length and salt length, 0 included (the pointer may then be null); no
    // alignment is asked of anything.  Only to be called if usable().
    void (*hash)(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data,
                 std::size_t length, std::size_t count, std::uint8_t *out) = nullptr;
};

// The first usable kernel for the digest; null when there is none.
[[nodiscard]] const digest_kernel *digest_kernel_for(const char *digest);

// Every kernel of this architecture, usable here or not.
[[nodiscard]] std::span<const digest_kernel *const> digest_kernels();
