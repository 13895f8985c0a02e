#include "ttd/caches.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>

#include "talg/lru_cache.h"
#include "th/str.h"
#include "ttd/engine_log.h"

// `links` must stay the last member: the LRU list node, then the table node.
struct ttd_cache_entry {
    std::uint32_t key = 0;
    std::uint8_t *buffer = nullptr;
    talg_slab *slab = nullptr;
    std::atomic<std::uint32_t> holders{1};  // the cache itself and every pin
    std::atomic<bool> proven{false};
    talg_lru_entry links;
};

// The lock covers a lookup together with its pin; the table below needs none.
struct ttd_lru_cache {
    std::mutex lock;
    talg_lru_cache *table = nullptr;
    std::size_t slots = 0;
    std::uint64_t hits = 0;
};

namespace {

// Up to this many hash blocks the default cache is a fixed number of slots.
constexpr std::uint32_t SMALL_IMAGE = 400;
constexpr std::uint32_t SMALL_IMAGE_SLOTS = 20;
constexpr std::uint32_t DEFAULT_PERCENT = 5;

ttd_cache_entry *entry_of(const talg_hash_node *node) {
    return TALG_RECORD_OF(const_cast<talg_hash_node *>(node), ttd_cache_entry, links.hash_node);
}

std::uint32_t bucket_of(unsigned order, const void *key) {
    const std::uint64_t mask = (std::uint64_t{1} << order) - 1;
    return static_cast<std::uint32_t>(*static_cast<const std::uint32_t *>(key) & mask);
}

int compare_key(const talg_hash_node *node, const void *key) {
    return entry_of(node)->key == *static_cast<const std::uint32_t *>(key) ? 0 : 1;
}

void drop_entry(talg_hash_node *node, void *) {
    ttd_cache_unpin(entry_of(node));
}

// Buckets for about ten entries each.
unsigned table_order(std::size_t slots) {
    return slots < 10 ? 0 : static_cast<unsigned>(std::bit_width(slots / 10));
}

std::uint32_t percent_of(std::uint64_t percent, std::uint32_t total) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(percent * total / 100, total));
}

// A number, alone or followed by "%".
int parse_cache_size(const char *text, std::uint32_t total, std::size_t *out_slots) {
    std::uint64_t number = 0;
    std::size_t used = 0;
    if (const int err = th_str_to_uint64(text, 10, &number, &used); err != 0)
        return err;
    const char *rest = text + used;
    if (*rest == '\0') {
        *out_slots = std::min<std::uint64_t>(number, total);
        return 0;
    }
    if (std::strcmp(rest, "%") != 0 || number > 100)
        return EINVAL;
    *out_slots = percent_of(number, total);
    return 0;
}

// What the blocks that are present can need: `slots` comes from a superblock, which may
// claim a tree that is not there.
std::size_t justified(const ttd_ctx &ctx, std::size_t slots) {
    const std::size_t parents = ctx.info.present_blocks / std::max(ctx.info.hashes_per_block, 1U);
    return std::min(slots, 2 * parents + TTD_MAX_LEVELS);
}

}  // namespace

void *ttd_slab_alloc(talg_slab *slab) {
    return talg_slab_alloc(slab);
}

void ttd_slab_free(talg_slab *slab, void *buffer) {
    talg_slab_free(slab, buffer);
}

int ttd_create_slabs(ttd_ctx *ctx, std::size_t slots) {
    ttd_log(TTD_LOG_PLAIN, "creating hash slab with '%zu' initial slots\n", slots);
    if (const int err = talg_slab_create(&ctx->hash_slab, ctx->info.hash_size, justified(*ctx, slots), 0);
        err != 0)
        return TTD_FAIL(err, "failed to create hash slab");
    // One slab serves data and hash blocks, whichever are larger.
    const std::size_t block = std::max(ctx->info.block_size, ctx->info.hash_block_size);
    ttd_log(TTD_LOG_PLAIN, "creating block slab with '%zu' initial slots\n", slots);
    if (const int err = talg_slab_create(&ctx->block_slab, block, justified(*ctx, slots), 0); err != 0) {
        talg_slab_destroy(ctx->hash_slab);
        ctx->hash_slab = nullptr;
        return TTD_FAIL(err, "failed to create block slab");
    }
    return 0;
}

void ttd_free_slabs(ttd_ctx *ctx) {
    talg_slab_destroy(ctx->hash_slab);
    talg_slab_destroy(ctx->block_slab);
    ctx->hash_slab = nullptr;
    ctx->block_slab = nullptr;
}

int ttd_create_caches(ttd_ctx *ctx, std::size_t slots) {
    if (slots == 0) {
        ttd_log(TTD_LOG_PLAIN, "hash caches disabled\n");
        return 0;
    }
    ttd_log(TTD_LOG_PLAIN, "creating hash cache with '%zu' initial slots\n", slots);
    if (const int err = ttd_lru_cache_create(&ctx->hash_cache, justified(*ctx, slots)); err != 0)
        return TTD_FAIL(err, "failed to create hash cache (%d:%s)\n", err, strerror(err));
    ttd_log(TTD_LOG_PLAIN, "creating hash block cache with '%zu' initial slots\n", slots);
    if (const int err = ttd_lru_cache_create(&ctx->block_cache, justified(*ctx, slots)); err != 0) {
        ttd_lru_cache_destroy(ctx->hash_cache);
        ctx->hash_cache = nullptr;
        return TTD_FAIL(err, "failed to create hash block cache (%d:%s)\n", err, strerror(err));
    }
    return 0;
}

void ttd_free_caches(ttd_ctx *ctx) {
    ttd_lru_cache_destroy(ctx->hash_cache);
    ttd_lru_cache_destroy(ctx->block_cache);
    ctx->hash_cache = nullptr;
    ctx->block_cache = nullptr;
}

int ttd_lru_cache_create(ttd_lru_cache **out, std::size_t slots) {
    *out = nullptr;
    auto *cache = new (std::nothrow) ttd_lru_cache;
    if (!cache)
        return ENOMEM;
    const int err = talg_lru_cache_create(&cache->table, bucket_of, compare_key, drop_entry,
                                          table_order(slots), slots, TALG_LRU_CACHE_NO_LOCK);
    if (err != 0) {
        delete cache;
        return err;
    }
    cache->slots = slots;
    *out = cache;
    return 0;
}

std::size_t ttd_lru_cache_slots(const ttd_lru_cache *cache) {
    return cache ? cache->slots : 0;
}

void ttd_lru_cache_destroy(ttd_lru_cache *cache) {
    if (!cache)
        return;
    talg_lru_cache_destroy(cache->table);
    delete cache;
}

int ttd_lru_cache_add(ttd_lru_cache *cache, std::uint32_t key, std::uint8_t *buffer, talg_slab *slab,
                      ttd_cache_entry **pinned) {
    *pinned = nullptr;
    auto *entry = new (std::nothrow) ttd_cache_entry;
    if (!entry)
        return ENOMEM;
    entry->key = key;
    entry->buffer = buffer;
    entry->slab = slab;
    entry->holders = 2;
    const std::lock_guard guard(cache->lock);
    if (const int err = talg_lru_cache_set(cache->table, &entry->links, &key); err != 0) {
        delete entry;
        return err;
    }
    *pinned = entry;
    return 0;
}

int ttd_lru_cache_get(ttd_lru_cache *cache, std::uint32_t key, ttd_cache_entry **pinned) {
    *pinned = nullptr;
    const std::lock_guard guard(cache->lock);
    talg_list_node *node = nullptr;
    if (const int err = talg_lru_cache_get(cache->table, &node, &key); err != 0)
        return err;
    ttd_cache_entry *entry = TALG_RECORD_OF(node, ttd_cache_entry, links.node);
    entry->holders.fetch_add(1, std::memory_order_relaxed);
    ++cache->hits;
    *pinned = entry;
    return 0;
}

void ttd_cache_unpin(ttd_cache_entry *entry) {
    if (!entry || entry->holders.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    ttd_slab_free(entry->slab, entry->buffer);
    delete entry;
}

std::uint8_t *ttd_cache_buffer(ttd_cache_entry *entry) {
    return entry->buffer;
}

void ttd_cache_set_proven(ttd_cache_entry *entry) {
    entry->proven.store(true, std::memory_order_relaxed);
}

bool ttd_cache_is_proven(const ttd_cache_entry *entry) {
    return entry->proven.load(std::memory_order_relaxed);
}

std::uint64_t ttd_lru_cache_hits(ttd_lru_cache *cache) {
    if (!cache)
        return 0;
    const std::lock_guard guard(cache->lock);
    return cache->hits;
}

int ttd_cache_option(const ttd_ctx *ctx, const char *text, std::size_t *out_slots) {
    const std::uint32_t total = ctx->info.hash_blocks;
    if (!text) {
        *out_slots =
            total <= SMALL_IMAGE ? std::min(total, SMALL_IMAGE_SLOTS) : percent_of(DEFAULT_PERCENT, total);
        return 0;
    }
    if (std::strcmp(text, "max") == 0) {
        *out_slots = total;
        return 0;
    }
    return parse_cache_size(text, total, out_slots);
}
