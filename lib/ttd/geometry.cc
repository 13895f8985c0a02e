#include "ttd/geometry.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include "th/base.h"
#include "ttd/engine_log.h"

namespace {

// Wraps where count comes within `divisor` of 2^32; ttd_info_is_exact tells.
std::uint32_t divide_up(std::uint32_t count, std::uint32_t divisor) {
    return (count + divisor - 1) / divisor;
}

// Fills the level table from level 0 up until a level has a single block.
int count_levels(ttd_info &info) {
    std::uint32_t count = info.raw_blocks;
    for (unsigned level = 0;; ++level) {
        if (level == TTD_MAX_LEVELS)
            return EINVAL;
        count = divide_up(count, info.hashes_per_block);
        info.level_blocks[level] = count;
        info.hash_blocks += count;
        if (count <= 1) {
            info.levels = static_cast<std::uint8_t>(level + 1);
            return 0;
        }
    }
}

// The highest level lies first, level 0 last.
void place_levels(ttd_info &info) {
    std::uint64_t offset = info.tree_offset;
    for (unsigned level = info.levels; level-- > 0;) {
        info.level_offset[level] = offset;
        offset += info.level_blocks[level] * info.hash_block_size;
    }
}

// Hands formatted lines to a sink; the longest is a salt in hexadecimal.
class line_writer {
public:
    explicit line_writer(ttd_line_sink sink) : sink_(sink) {}

    [[gnu::format(printf, 2, 3)]] void line(const char *format, ...) const {
        char text[64 + 2 * TTD_MAX_SALT];
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof text, format, args);
        va_end(args);
        sink_(text);
    }
    void hex(const char *label, const ttd_bytes &bytes) const {
        char text[2 * TTD_MAX_SALT + 1];
        th_base_hex(bytes.data(), std::min(bytes.size(), TTD_MAX_SALT), text);
        line("%s%s", label, text);
    }

private:
    ttd_line_sink sink_;
};

void describe_shape(const ttd_info &info, const line_writer &out) {
    out.line("raw size:           %lu bytes", info.covered_size);
    out.line("block size:         %u bytes", info.block_size);
    out.line("raw blocks:         %u", info.raw_blocks);
    out.line("hash block size:    %u bytes", info.hash_block_size);
    out.line("hash size:          %u bytes", info.hash_size);
    out.line("hashes per block:   %u", info.hashes_per_block);
    out.line("tree levels:        %u", info.levels);
    out.line("total hashes:       %u", info.total_hashes);
    out.line("hash blocks:        %u", info.hash_blocks);
    for (unsigned level = 0; level < info.levels; ++level)
        out.line("  level %u:          %u blocks", level, info.level_blocks[level]);
}

void describe_space(const ttd_info &info, bool partition, const line_writer &out) {
    const std::uint64_t meta_data = ttd_meta_data_size(info);
    out.line("meta data size:     %lu bytes", meta_data);
    out.line("wasted space:       %lu bytes", ttd_wasted_space(info));
    if (partition)
        out.line("max fs size:        %lu bytes", info.covered_size - meta_data);
    out.line("total space:        %lu bytes", partition ? info.covered_size : info.covered_size + meta_data);
}

}  // namespace

int ttd_generate_info(ttd_info *info) {
    if (info->covered_size == 0 || info->block_size == 0 || info->hash_size == 0 ||
        info->hash_block_size == 0)
        return EINVAL;
    const std::uint64_t blocks = info->covered_size / info->block_size;
    if (blocks > UINT32_MAX)
        return EINVAL;
    info->raw_blocks = static_cast<std::uint32_t>(blocks);
    info->hashes_per_block = info->hash_block_size / info->hash_size;
    if (info->hashes_per_block == 0)
        return EINVAL;

    info->levels = 0;
    info->hash_blocks = 0;
    if (const int err = count_levels(*info); err != 0)
        return err;
    info->total_hashes = info->hashes_per_block * info->hash_blocks;
    info->tree_size = info->hash_blocks * info->hash_block_size;
    place_levels(*info);
    return 0;
}

bool ttd_info_is_exact(const ttd_info &info) {
    std::uint64_t count = info.raw_blocks;
    std::uint64_t blocks = 0;
    for (unsigned level = 0; level < info.levels; ++level) {
        count = (count + info.hashes_per_block - 1) / info.hashes_per_block;
        if (count != info.level_blocks[level])
            return false;
        blocks += count;
    }
    return blocks == info.hash_blocks && blocks * info.hash_block_size == info.tree_size &&
           blocks * info.hashes_per_block == info.total_hashes;
}

void ttd_clean_info(ttd_info *info) {
    if (info)
        *info = ttd_info{};
}

std::uint64_t ttd_meta_data_size(const ttd_info &info) {
    return info.tree_size + TTD_SUPERBLOCK_SIZE;
}

std::uint64_t ttd_wasted_space(const ttd_info &info) {
    return info.tree_size - info.total_hashes * info.hash_size;
}

void ttd_describe_info(const ttd_info &info, bool partition, ttd_line_sink sink) {
    const line_writer out(sink);
    describe_shape(info, out);
    describe_space(info, partition, out);
    if (info.salt) {
        out.hex("salt:               ", info.salt);
        out.line("salt size:          %u bytes", static_cast<unsigned>(info.salt.size()));
    }
    if (info.root_hash)
        out.hex("root hash:          ", info.root_hash);
    if (info.empty_hash)
        out.hex("empty hash:         ", info.empty_hash);
}

void ttd_print_info(const ttd_info *info, std::uint32_t flags) {
    const auto log_line = [](const char *line) { ttd_log(TTD_LOG_PLAIN, "%s", line); };
    log_line("TTD Merkle Tree Meta Data Statistics");
    ttd_describe_info(*info, (flags & 1) != 0, log_line);
}
