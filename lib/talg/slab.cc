#include "talg/slab.h"

#include "talg/memalign.h"
#include "talg/mutex.h"

#include <bit>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>

#include <unistd.h>

namespace {

constexpr std::size_t HEADER_SIZE = sizeof(talg_slab_header);

void abort_lock(const th_mutex &, bool taking, int) {
    std::fprintf(stderr, "slab mutex %s failed\n", taking ? "lock" : "unlock");
    std::abort();
}

}  // namespace

// One aligned piece of memory that slabs were cut from; freed with its last slab.
struct talg_slab_block {
    char *memory = nullptr;
    std::size_t length = 0;  // bytes
    std::size_t slabs = 0;   // slabs not yet released

    ~talg_slab_block() { talg_memalign_free(memory, length); }
};

struct talg_slab {
    talg_mutex mutex{abort_lock};
    std::size_t element_size = 0;
    std::size_t elements = 0;    // of one slab
    std::size_t slab_size = 0;   // bytes, a power of two
    std::size_t unit = 0;        // bytes of one growth, a multiple of slab_size
    std::uint64_t all_free = 0;  // the mask of an unused slab
    std::uint64_t first_taken = 0;
    std::uintptr_t alignment_mask = 0;
    talg_slab_lists lists;
};

namespace {

// `node` is the first member of its header.
talg_slab_header &header_of(talg_list_node *node) {
    return *TALG_RECORD_OF(node, talg_slab_header, node);
}

void move(talg_slab_header &header, talg_list &from, talg_list &to) {
    talg_list_remove(from, header.node);
    talg_list_push_front(to, header.node);
}

void set_geometry(talg_slab &slab, std::size_t element_size) {
    const std::size_t bound = std::bit_floor((element_size * 64) | HEADER_SIZE);
    slab.element_size = element_size;
    slab.elements = (bound - HEADER_SIZE) / element_size;
    slab.slab_size = std::bit_ceil(slab.elements * element_size + HEADER_SIZE);
    const auto page_size = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    slab.unit = slab.slab_size < page_size ? page_size : bound;
    slab.all_free = (std::uint64_t{1} << slab.elements) - 1;
    slab.first_taken = slab.all_free & ~std::uint64_t{1};
    slab.alignment_mask = ~(slab.slab_size - 1);
}

// The units to start with, so that `count` elements fit when they fill at least
// one; 0 when their size overflows.
std::size_t first_units(const talg_slab &slab, std::size_t count) {
    const std::size_t elements = slab.elements * (slab.unit / slab.slab_size);
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, slab.element_size, &bytes))
        return 0;
    if (count <= elements || bytes < slab.unit)
        return 1;
    return count / elements + (count % elements != 0);
}

// Cuts a block into unused slabs on the empty list, the lowest address first.
void cut(talg_slab &slab, talg_slab_block &block) {
    for (char *end = block.memory + block.length; end != block.memory; ++block.slabs) {
        end -= slab.slab_size;
        auto *header = new (end) talg_slab_header{
            .node = {}, .free_mask = slab.all_free, .block = &block, .owner = &slab, .reserved = 0};
        talg_list_push_front(slab.lists.empty, header->node);
    }
}

// Obtains a block of that many units.  Returns 0 or ENOMEM, also in errno, and
// prints.
int grow(talg_slab &slab, std::size_t units) {
    std::size_t length = 0;
    std::unique_ptr<talg_slab_block> block;
    if (units != 0 && !__builtin_mul_overflow(units, slab.unit, &length))
        block.reset(new (std::nothrow) talg_slab_block{});
    if (block)
        block->memory = static_cast<char *>(talg_memalign_alloc(length, slab.slab_size));
    if (!block || !block->memory) {
        std::fputs("failed to allocate slab block\n", stderr);
        return errno = ENOMEM;
    }
    block->length = length;
    cut(slab, *block.release());  // owned by its slabs from here
    return 0;
}

void *element_at(const talg_slab &slab, talg_slab_header &header, std::size_t index) {
    return reinterpret_cast<char *>(&header) + HEADER_SIZE + index * slab.element_size;
}

void *take_from_partial(talg_slab &slab) {
    talg_slab_header &header = header_of(slab.lists.partial.head);
    const auto index = static_cast<std::size_t>(std::countr_zero(header.free_mask));
    header.free_mask &= header.free_mask - 1;
    if (header.free_mask == 0)
        move(header, slab.lists.partial, slab.lists.full);
    return element_at(slab, header, index);
}

void *take_from_empty(talg_slab &slab) {
    talg_slab_header &header = header_of(slab.lists.empty.head);
    header.free_mask = slab.first_taken;
    move(header, slab.lists.empty, slab.lists.partial);
    return element_at(slab, header, 0);
}

// The bit of an element in use, or 0 for any other place in the slab.
std::uint64_t used_bit(const talg_slab &slab, const talg_slab_header &header, const void *element) {
    const std::size_t offset =
        reinterpret_cast<std::uintptr_t>(element) - reinterpret_cast<std::uintptr_t>(&header);
    if (offset < HEADER_SIZE || (offset - HEADER_SIZE) % slab.element_size != 0)
        return 0;
    const std::size_t index = (offset - HEADER_SIZE) / slab.element_size;
    return index < slab.elements ? (std::uint64_t{1} << index) & ~header.free_mask : 0;
}

void put_back(talg_slab &slab, talg_slab_header &header, std::uint64_t bit) {
    const bool was_full = header.free_mask == 0;
    header.free_mask |= bit;
    talg_list &from = was_full ? slab.lists.full : slab.lists.partial;
    if (header.free_mask == slab.all_free)
        move(header, from, slab.lists.empty);
    else if (was_full)
        move(header, from, slab.lists.partial);
}

// Detaches every slab; a block goes when none of the lists holds a slab of it.
void release(talg_list &list) {
    while (list.head) {
        talg_slab_header &header = header_of(list.head);
        talg_list_remove(list, header.node);
        if (--header.block->slabs == 0)
            delete header.block;
    }
}

void print_list(const char *name, const talg_list &list) {
    std::printf("%s slabs:\n", name);
    talg_slab_iterate(&list, [](talg_slab_header *header) {
        std::printf("  %p: %d free (mask 0x%016" PRIx64 ")\n", static_cast<void *>(header),
                    std::popcount(header->free_mask), header->free_mask);
        return 0;
    });
}

}  // namespace

int talg_slab_create(talg_slab **out, std::size_t element_size, std::size_t initial_count, unsigned flags) {
    if (!out || element_size == 0)
        return EINVAL;
    if (element_size > TALG_SLAB_MAX_ELEMENT_SIZE)
        return EOVERFLOW;
    std::unique_ptr<talg_slab> slab(new (std::nothrow) talg_slab{});
    if (!slab)
        return ENOMEM;
    set_geometry(*slab, element_size);
    if ((flags & TALG_SLAB_NO_LOCK) == 0) {
        if (const int err = slab->mutex.init(PTHREAD_MUTEX_DEFAULT); err != 0)
            return err;
    }
    if (const int err = grow(*slab, first_units(*slab, initial_count)); err != 0)
        return err;
    *out = slab.release();
    return 0;
}

void *talg_slab_alloc(talg_slab *slab) {
    const th_lock lock(slab->mutex.get());
    if (slab->lists.partial.head)
        return take_from_partial(*slab);
    if (!slab->lists.empty.head && grow(*slab, 1) != 0)
        return nullptr;
    return take_from_empty(*slab);
}

void talg_slab_free(talg_slab *slab, void *element) {
    if (!element)
        return;
    const th_lock lock(slab->mutex.get());
    auto *header = reinterpret_cast<talg_slab_header *>(reinterpret_cast<std::uintptr_t>(element) &
                                                        slab->alignment_mask);
    const std::uint64_t bit = header->owner == slab ? used_bit(*slab, *header, element) : 0;
    if (bit == 0) {
        std::fprintf(stderr, "free'ing invalid slab pointer %p\n", element);
        std::abort();
    }
    put_back(*slab, *header, bit);
}

std::size_t talg_slab_elemsize(const talg_slab *slab) {
    return slab->element_size;
}

const talg_slab_lists *talg_slab_get_lists(const talg_slab *slab) {
    return &slab->lists;
}

int talg_slab_iterate(const talg_list *list, talg_slab_function function) {
    for (talg_list_node *node = list->head, *next = nullptr; node; node = next) {
        next = node->next;
        if (const int result = function(&header_of(node)); result != 0)
            return result;
    }
    return 0;
}

void talg_slab_print(talg_slab *slab) {
    const th_lock lock(slab->mutex.get());
    std::printf("slab allocator %p: %zu elements of %zu bytes per slab of %zu bytes, unit %zu bytes\n",
                static_cast<void *>(slab), slab->elements, slab->element_size, slab->slab_size, slab->unit);
    print_list("empty", slab->lists.empty);
    print_list("partly used", slab->lists.partial);
    print_list("full", slab->lists.full);
}

void talg_slab_destroy(talg_slab *slab) noexcept {
    if (!slab)
        return;
    release(slab->lists.empty);
    release(slab->lists.partial);
    release(slab->lists.full);
    delete slab;
}
