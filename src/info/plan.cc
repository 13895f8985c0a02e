#include "info/plan.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>

#include "base/json.h"
#include "tcrypto/tcrypto.h"

namespace {

constexpr unsigned JSON_VERSION = 1;
constexpr unsigned READ_SIZE = 4096;

int refuse(int err, const char *reason) {
    std::fprintf(stderr, "ttdinfo: %s\n", reason);
    return err;
}

int digest_size(std::uint32_t hashtype, std::uint32_t *size) {
    if (tcrypto_init(0, nullptr) != TCRYPTO_OK)
        return EOPNOTSUPP;
    tcrypto_ctx_ptr digest;
    const int err = tcrypto_digest_request(ttd_hash_name(hashtype), nullptr, 0, th_out(digest));
    *size = err == TCRYPTO_OK ? static_cast<std::uint32_t>(tcrypto_digestsize(digest.get())) : 0;
    digest.reset();
    tcrypto_uninit();
    return err == TCRYPTO_OK ? 0 : ENOENT;
}

// False when the format has no tree over so many bytes.
bool derive(std::uint64_t covered, ttd_info &info) {
    info.covered_size = covered;
    return ttd_generate_info(&info) == 0 && ttd_info_is_exact(info);
}

// The largest image that stays within the partition together with its own tree.
std::uint64_t largest_plain(const ttdinfo_plan &plan) {
    ttd_info info;
    info.block_size = info.hash_block_size = plan.block_size;
    info.hash_size = plan.info.hash_size;
    std::uint64_t fitting = 0;  // blocks
    std::uint64_t above = plan.partition / plan.block_size + 1;
    while (above - fitting > 1) {
        const std::uint64_t middle = fitting + (above - fitting) / 2;
        const std::uint64_t size = middle * plan.block_size;
        const bool fits = derive(size, info) && ttd_meta_data_size(info) <= plan.partition - size;
        (fits ? fitting : above) = middle;
    }
    return fitting * plan.block_size;
}

void fill_partition(ttdinfo_plan &plan) {
    const std::uint64_t meta_data = ttd_meta_data_size(plan.info);
    const std::uint64_t room = plan.partition - std::min(meta_data, plan.partition);
    plan.max_partition_size = room / plan.block_size * plan.block_size;
    plan.max_plain_size = largest_plain(plan);
    plan.fits = plan.size <= plan.max_partition_size;
}

// The read begins at a multiple of its size.  So the hash blocks above it number one in
// each level where a hash block holds a multiple of what lies below, else one more than that
// at worst.
void fill_read_cost(ttdinfo_plan &plan) {
    const ttd_info &info = plan.info;
    plan.read_data_blocks = std::min(std::max(1U, READ_SIZE / plan.block_size), info.raw_blocks);
    plan.read_hash_blocks = 0;
    std::uint32_t below = plan.read_data_blocks;
    for (unsigned level = 0; level < info.levels; ++level) {
        const bool aligned = info.hashes_per_block % below == 0;
        below = aligned ? 1 : std::min((below - 1) / info.hashes_per_block + 2, info.level_blocks[level]);
        plan.read_hash_blocks += below;
    }
    plan.read_bytes =
        (std::uint64_t{plan.read_data_blocks} + plan.read_hash_blocks) * std::uint64_t{plan.block_size};
}

void print_size(std::FILE *out, const char *label, std::uint64_t bytes) {
    std::fprintf(out, "%-20s%" PRIu64 " bytes\n", label, bytes);
}

}  // namespace

int ttdinfo_make_plan(ttdinfo_plan *plan) {
    ttd_info &info = plan->info;
    info.block_size = info.hash_block_size = plan->block_size;
    if (digest_size(plan->hashtype, &info.hash_size) != 0)
        return refuse(ENOENT, "the digest is not available");
    const std::uint64_t covered = plan->partition != 0 ? plan->partition : plan->size;
    if (plan->size == 0)
        return refuse(EINVAL, "the size is zero");
    if (covered % plan->block_size != 0)
        return refuse(EINVAL, "the size is not a multiple of the block size");
    if (!derive(covered, info))
        return refuse(EFBIG, "no hash tree of this format is so large: take larger blocks");
    plan->image_size = plan->partition != 0 ? plan->partition : covered + ttd_meta_data_size(info);
    if (plan->partition != 0)
        fill_partition(*plan);
    fill_read_cost(*plan);
    return plan->fits ? 0 : refuse(ENOSPC, "the image does not fit into the partition");
}

void ttdinfo_print_plan(const ttdinfo_plan &plan, std::FILE *out) {
    const ttd_info &info = plan.info;
    print_size(out, "inner image size:", plan.size);
    print_size(out, "block size:", plan.block_size);
    std::fprintf(out, "%-20s%s, %" PRIu32 " bytes\n", "digest:", ttd_hash_name(plan.hashtype),
                 info.hash_size);
    std::fprintf(out, "%-20s%" PRIu32 "\n", "data blocks:", info.raw_blocks);
    for (unsigned level = 0; level < info.levels; ++level)
        std::fprintf(out, "  level %u:          %" PRIu32 " blocks\n", level, info.level_blocks[level]);
    print_size(out, "tree size:", info.tree_size);
    print_size(out, "image size:", plan.image_size);
    if (plan.partition != 0) {
        std::fprintf(out, "%-20s%s\n", "fits:", plan.fits ? "yes" : "no");
        print_size(out, "at most with -P:", plan.max_partition_size);
        print_size(out, "at most without -P:", plan.max_plain_size);
    }
    std::fprintf(out, "%-20s%u data blocks, %u hash blocks, %" PRIu64 " bytes\n",
                 "4 KiB read, cold:", plan.read_data_blocks, plan.read_hash_blocks, plan.read_bytes);
}

void ttdinfo_print_plan_json(const ttdinfo_plan &plan, std::FILE *out) {
    const ttd_info &info = plan.info;
    mktfs_json whole(out);
    whole.number("version", JSON_VERSION);
    whole.number("size", plan.size);
    whole.number("block_size", plan.block_size);
    whole.text("digest", ttd_hash_name(plan.hashtype));
    whole.number("hash_size", info.hash_size);
    whole.number("data_blocks", info.raw_blocks);
    whole.number("hash_blocks", info.hash_blocks);
    {
        mktfs_json levels = whole.array("level_blocks");
        for (unsigned level = 0; level < info.levels; ++level)
            levels.number(nullptr, info.level_blocks[level]);
    }
    whole.number("tree_size", info.tree_size);
    whole.number("image_size", plan.image_size);
    if (plan.partition == 0) {
        whole.null("partition");
    } else {
        mktfs_json partition = whole.object("partition");
        partition.number("size", plan.partition);
        partition.boolean("fits", plan.fits);
        partition.number("max_size", plan.max_partition_size);
        partition.number("max_plain_size", plan.max_plain_size);
    }
    mktfs_json read = whole.object("cold_read");
    read.number("size", READ_SIZE);
    read.number("data_blocks", plan.read_data_blocks);
    read.number("hash_blocks", plan.read_hash_blocks);
    read.number("bytes", plan.read_bytes);
}
