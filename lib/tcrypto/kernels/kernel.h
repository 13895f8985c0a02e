// Digests of equally long blocks: out[i] = digest(salt || block i).
//
// A kernel hashes as many blocks side by side as it has lanes, by instructions
// that the processor may lack.  Whoever wants a digest asks for its kernels by
// name, and hashes by other means what they leave over.
//
// Kernels are static records without state: they allocate nothing, call no other
// library than the BLAKE3 reference and serve any number of threads.
//
// The environment variable TCRYPTO_KERNELS (looked at in every request)
// says which instruction sets digest_kernels_for may choose from, to compare or to
// rule kernels out as the cause of a fault: a list of names, separated by commas.
// What it does not name is withheld, so that any other word, such as "off",
// withholds every kernel.  Unset or empty, it allows all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

// Instructions that a processor may lack.
struct instruction_set {
    const char *name = nullptr;  // as the system lists the processor's flags

    // Whether this processor and operating system have them.
    bool (*present)() = nullptr;
};

struct digest_kernel {
    const char *digest = nullptr;            // as in a digest request: "sha256", "blake2b512" ...
    const instruction_set *needs = nullptr;  // never null in a kernel
    std::size_t digest_size = 0;
    std::size_t lanes = 0;  // blocks hashed side by side

    // Hashes `count` blocks, a multiple of `lanes` (what exceeds one is left
    // out), of `length` bytes each, one after the other at `data`.  The results
    // are packed at `out`, digest size each; `out` must not overlap the inputs.
    // Any length and salt length, 0 included (the pointer may then be null); no
    // alignment is asked of anything.  Only to be called where the
    // instructions are present.
    void (*hash)(const std::uint8_t *salt, std::size_t salt_length, const std::uint8_t *data,
                 std::size_t length, std::size_t count, std::uint8_t *out) = nullptr;
};

// The kernels for one digest, the fastest first: what one leaves over may be enough for
// the next.
struct kernel_choice {
    std::array<const digest_kernel *, 5> fastest_first = {};  // null behind the last

    // Hashes as many of `count` blocks as it can, from the first on, and returns their number.
    std::size_t hash(const void *salt, std::size_t salt_length, const void *data, std::size_t length,
                     std::size_t count, std::uint8_t *out) const;
};

// The allowed kernels that this processor has for the digest.
[[nodiscard]] kernel_choice digest_kernels_for(const char *digest);

// Every kernel of this architecture, its instructions present or not, in groups.
[[nodiscard]] std::span<const std::span<const digest_kernel> *const> digest_kernels();
