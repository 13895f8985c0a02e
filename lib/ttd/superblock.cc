#include "ttd/superblock.h"

#include <algorithm>
#include <cerrno>

#include "th/str.h"
#include "ttd/engine_log.h"

namespace {

bool is_partition(const ttd_superblock &superblock) {
    return (superblock.flags & TTD_FLAG_PARTITION) != 0;
}

// The limits of the format that the geometry itself would let through come first.
int derive_geometry(ttd_info &info) {
    if (!ttd_is_block_size(info.block_size) || !ttd_is_block_size(info.hash_block_size))
        return EINVAL;
    if (const int err = ttd_generate_info(&info); err != 0)
        return err;
    return ttd_info_is_exact(info) && info.tree_offset <= UINT64_MAX - info.tree_size ? 0 : EINVAL;
}

int fill_record(const ttd_superblock &superblock, ttd_info &info) {
    const std::size_t root_hash_size = std::min<std::size_t>(info.hash_size, TTD_MAX_ROOT_HASH);
    if (!info.salt.assign({superblock.salt, superblock.saltsize}))
        return TTD_FAIL(ENOMEM, "failed to allocate memory for salt\n");
    if (!info.root_hash.assign({superblock.roothash, root_hash_size}))
        return TTD_FAIL(ENOMEM, "failed to allocate memory for root hash\n");
    info.by_block_size = libdivide::libdivide_u64_gen(info.block_size);
    if (const int err = derive_geometry(info); err != 0)
        return TTD_FAIL(err, "failed to generate merkle geometry info");
    return 0;
}

}  // namespace

int ttd_superblock2info(const ttd_superblock *superblock, ttd_info *info) {
    info->covered_size = is_partition(*superblock) ? superblock->totalsize : superblock->fssize;
    info->block_size = superblock->blksize;
    info->hash_block_size = superblock->hblksize;
    info->tree_offset = superblock->offset;
    info->empty_hash.clear();
    info->zero_hash.clear();
    info->present_blocks = UINT32_MAX;
    if (superblock->saltsize > TTD_MAX_SALT || superblock->saltsize < info->hash_size)
        return TTD_FAIL(EINVAL, "invalid salt size '%u'\n", superblock->saltsize);
    if (const int err = fill_record(*superblock, *info); err != 0) {
        ttd_clean_info(info);
        return err;
    }
    return 0;
}

bool ttd_superblock_fits(const ttd_superblock &superblock, const ttd_info &info, std::uint64_t image_size) {
    if (image_size < TTD_SUPERBLOCK_SIZE)
        return false;
    const std::uint64_t room = image_size - TTD_SUPERBLOCK_SIZE;
    return superblock.fssize <= room && info.tree_offset <= room &&
           info.tree_size <= room - info.tree_offset &&
           (!is_partition(superblock) || superblock.totalsize <= image_size);
}

void ttd_print_superblock(const ttd_superblock *superblock) {
    ttd_log(TTD_LOG_PLAIN, "TTD superblock");
    ttd_log(TTD_LOG_PLAIN, "magic:     0x%x", superblock->magic);
    ttd_log(TTD_LOG_PLAIN, "version:   0x%x", superblock->version);
    ttd_log(TTD_LOG_PLAIN, "flags:     0x%x", superblock->flags);
    ttd_log(TTD_LOG_PLAIN, "blksize:   %u", superblock->blksize);
    ttd_log(TTD_LOG_PLAIN, "hblksize:  %u", superblock->hblksize);
    ttd_log(TTD_LOG_PLAIN, "hashtype:  %u", superblock->hashtype);
    ttd_log(TTD_LOG_PLAIN, "fssize:    %lu", superblock->fssize);
    ttd_log(TTD_LOG_PLAIN, "totalsize: %lu", superblock->totalsize);
    ttd_log(TTD_LOG_PLAIN, "offset:    %lu", superblock->offset);
    ttd_log(TTD_LOG_PLAIN, "sigtype:   %u", superblock->sigtype);
    ttd_log(TTD_LOG_PLAIN, "saltsize:  %u", superblock->saltsize);
    ttd_log(TTD_LOG_PLAIN, "sigsize:   %u", superblock->sigsize);
}

int ttd_check_rollback(const ttd_superblock *superblock, const char *text) {
    std::uint64_t minimum = 0;
    if (const int err = th_str_to_uint64(text, 10, &minimum); err != 0)
        return TTD_FAIL(err, "invalid rollback value '%s'", th_str(text));
    if (superblock->rollback >= minimum)
        return 0;
    return TTD_FAIL(EINVAL, "ttd anti-rollback violation detected (%lu < %lu)", superblock->rollback,
                    minimum);
}
