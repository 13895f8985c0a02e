// A bitmap of fixed size.  Complete interface of such bitmaps; mktfs uses create, set,
// unset, isset, capacity and destroy.
//
// Threads: set, unset and toggle are atomic on their 64-bit word, and isset is
// an atomic load, so bits may be changed and read from several threads at once.
// They order nothing but the bit itself.  The functions that work on the whole
// word array are not synchronised with anything.
//
// No function but create and destroy accepts a null bitmap.
#pragma once

#include <cstddef>
#include <cstdint>

struct talg_bitmap;

// Makes a bitmap of `bits` cleared bits.
// EINVAL: null `out`; ENOMEM.  `*out` is set on success only.
[[nodiscard]] int talg_bitmap_create(talg_bitmap **out, std::uint64_t bits);

// Frees the words, then the record.  Null is allowed.
void talg_bitmap_destroy(talg_bitmap *bitmap) noexcept;

// ERANGE: `index` is not below the capacity.
int talg_bitmap_set(talg_bitmap *bitmap, std::uint64_t index);
int talg_bitmap_unset(talg_bitmap *bitmap, std::uint64_t index);
int talg_bitmap_toggle(talg_bitmap *bitmap, std::uint64_t index);

// Does not check `index`, which must lie within the word array: from the
// capacity to the next multiple of 64 it reads a padding bit.
[[nodiscard]] bool talg_bitmap_isset(const talg_bitmap *bitmap, std::uint64_t index);

void talg_bitmap_clear(talg_bitmap *bitmap);
// Sets the padding bits of the last word too.
void talg_bitmap_set_all(talg_bitmap *bitmap);

// Bytes of the word array: a multiple of 8.
[[nodiscard]] std::size_t talg_bitmap_size(const talg_bitmap *bitmap);
// Bits.
[[nodiscard]] std::uint64_t talg_bitmap_capacity(const talg_bitmap *bitmap);

// Copy the word array out or in: talg_bitmap_size bytes of the caller's.
void talg_bitmap_read(const talg_bitmap *bitmap, void *destination);
void talg_bitmap_write(talg_bitmap *bitmap, const void *source);
