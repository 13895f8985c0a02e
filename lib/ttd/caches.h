// The verifier's buffers: two slabs (hashes, blocks) and two LRU caches keyed by
// the global index of a hash block, one of hash blocks and one of their digests.
//
// Threads: everything here may be called from several threads.  A cached buffer
// may be evicted by another thread at any time, so a lookup hands out a pinned
// entry, whose buffer stays valid until the pin is given back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "th/handle.h"
#include "ttd/engine.h"

struct ttd_lru_cache;
struct ttd_cache_entry;

// Makes both slabs with room for `slots` elements.  On failure neither exists; the
// slab allocator's error; logs.
[[nodiscard]] int ttd_create_slabs(ttd_ctx *ctx, std::size_t slots);
void ttd_free_slabs(ttd_ctx *ctx);  // after the caches, which give buffers back
[[nodiscard]] void *ttd_slab_alloc(talg_slab *slab);
void ttd_slab_free(talg_slab *slab, void *buffer);

// Makes both caches of `slots` entries; 0 slots: none, the engine works without.
// On failure neither exists; logs.
[[nodiscard]] int ttd_create_caches(ttd_ctx *ctx, std::size_t slots);
void ttd_free_caches(ttd_ctx *ctx);

[[nodiscard]] int ttd_lru_cache_create(ttd_lru_cache **out, std::size_t slots);
void ttd_lru_cache_destroy(ttd_lru_cache *cache);
// Entries that fit; 0 for null.
[[nodiscard]] std::size_t ttd_lru_cache_slots(const ttd_lru_cache *cache);
// The cache takes over `buffer`, which came from `slab`; `pinned` receives the
// entry.  ENOMEM or the cache's error: the buffer stays the caller's.
[[nodiscard]] int ttd_lru_cache_add(ttd_lru_cache *cache, std::uint32_t key, std::uint8_t *buffer,
                                    talg_slab *slab, ttd_cache_entry **pinned);
// ENOENT on a miss (`pinned` is then null); a hit becomes the most recently used.
[[nodiscard]] int ttd_lru_cache_get(ttd_lru_cache *cache, std::uint32_t key, ttd_cache_entry **pinned);
void ttd_cache_unpin(ttd_cache_entry *entry);  // null-safe
[[nodiscard]] std::uint8_t *ttd_cache_buffer(ttd_cache_entry *entry);
// Whether somebody said of a hash block that its path up to the root hash proves, which
// stays so as long as the entry lives: nobody writes to its buffer.
void ttd_cache_set_proven(ttd_cache_entry *entry);
[[nodiscard]] bool ttd_cache_is_proven(const ttd_cache_entry *entry);
// Lookups that found their entry; 0 for null.
[[nodiscard]] std::uint64_t ttd_lru_cache_hits(ttd_lru_cache *cache);

using ttd_cache_pin = th_handle<ttd_cache_entry, ttd_cache_unpin>;

// Cache size in slots for an option text, relative to the image's hash blocks:
// "max", a count, a percentage such as "5%", or null for the default (5%, at least
// min(all, 20) for small images).  EINVAL or the number parser's error.  Does not log.
[[nodiscard]] int ttd_cache_option(const ttd_ctx *ctx, const char *text, std::size_t *out_slots);
