// An allocator of equally sized objects ("elements").  Complete interface of the allocator;
// mktfs uses create, alloc, free and destroy.
//
// Elements live in slabs: power-of-two-sized and equally aligned pieces of
// memory, each a 48-byte header followed by at most 63 elements, so that the
// slab of an element is found by masking its address.  Slabs are cut from
// allocation blocks of one or more pages, which are kept until the allocator is
// destroyed.  Elements are aligned to 16 bytes at most and never cleared: they
// are buffers of bytes.
//
// Threads: alloc, free and print hold the allocator's mutex, unless it was
// created with TALG_SLAB_NO_LOCK.  A mutex that fails is reported on standard
// error and aborts.
#pragma once

#include "talg/list.h"

#include <cstddef>
#include <cstdint>

struct talg_slab;
struct talg_slab_block;

// The head of every slab.
struct talg_slab_header {
    talg_list_node node;               // on one of the allocator's three lists
    std::uint64_t free_mask = 0;       // bit i set: element i is free
    talg_slab_block *block = nullptr;  // the memory that the slab was cut from
    talg_slab *owner = nullptr;
    std::uint64_t reserved = 0;
};
static_assert(sizeof(talg_slab_header) == 48);

inline constexpr unsigned TALG_SLAB_NO_LOCK = 0x1;
inline constexpr std::size_t TALG_SLAB_MAX_ELEMENT_SIZE = (std::size_t{1} << 57) - 1;

// A nonzero result ends the walk.
using talg_slab_function = int (*)(talg_slab_header *slab);

// Makes an allocator of elements of `element_size` bytes, with memory for at
// least one allocation unit; an `initial_count` that needs more gets as many
// units as it fills.
// EINVAL: null `out` or size 0; EOVERFLOW: size above 2^57 - 1; ENOMEM, after a
// line on standard error when it was the slab memory; the mutex's error.  `*out`
// is set on success only.
[[nodiscard]] int talg_slab_create(talg_slab **out, std::size_t element_size, std::size_t initial_count,
                                   unsigned flags);

// Returns a free element, the caller's until talg_slab_free, or null with errno
// ENOMEM and a line on standard error.
[[nodiscard]] void *talg_slab_alloc(talg_slab *slab);

// Takes an element of this allocator back; null is allowed.  What is not an
// element in use is reported on standard error and aborts; a pointer whose
// masked address is no memory at all cannot be told and faults.
void talg_slab_free(talg_slab *slab, void *element);

// Bytes.
[[nodiscard]] std::size_t talg_slab_elemsize(const talg_slab *slab);

// The lists of a slab allocator, for iterate.  A list is only stable while no
// other thread uses the allocator.
struct talg_slab_lists {
    talg_list empty;    // no element in use
    talg_list partial;  // some in use
    talg_list full;     // all in use
};
[[nodiscard]] const talg_slab_lists *talg_slab_get_lists(const talg_slab *slab);

// Calls `function` for every slab of a list; it may take that slab off the list
// or release it.  Returns the first nonzero result, else 0.  Takes no lock.
int talg_slab_iterate(const talg_list *list, talg_slab_function function);

// Lists sizes and slabs on standard output.
void talg_slab_print(talg_slab *slab);

// Unmaps all memory, elements in use included, and frees the allocator.  Null is
// allowed.
void talg_slab_destroy(talg_slab *slab) noexcept;
