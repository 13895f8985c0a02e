#include "info/text.h"

#include <cinttypes>

#include "base/hex.h"
#include "info/verify.h"

namespace {

constexpr int LABEL_WIDTH = 20;

// Lines of a label and a value, which start in one column.
class text_writer {
public:
    explicit text_writer(std::FILE *out) : out_(out) {}

    void bytes(const char *label, std::uint64_t value) const {
        std::fprintf(out_, "%-*s%" PRIu64 " bytes\n", LABEL_WIDTH, label, value);
    }
    void number(const char *label, std::uint64_t value) const {
        std::fprintf(out_, "%-*s%" PRIu64 "\n", LABEL_WIDTH, label, value);
    }
    void code(const char *label, std::uint32_t value, const char *name) const {
        std::fprintf(out_, "%-*s%" PRIu32 " (%s)\n", LABEL_WIDTH, label, value, name ? name : "unknown");
    }
    void text(const char *label, const char *value) const {
        std::fprintf(out_, "%-*s%s\n", LABEL_WIDTH, label, value);
    }
    void hex(const char *label, std::span<const std::uint8_t> value) const {
        std::fprintf(out_, "%-*s", LABEL_WIDTH, label);
        mktfs_write_hex(value, out_);
        std::fputs("\n", out_);
    }
    [[nodiscard]] std::FILE *out() const { return out_; }

private:
    std::FILE *out_;
};

void print_flags(const ttdinfo_report &report, const text_writer &to) {
    const std::uint32_t flags = report.engine.superblock.flags;
    std::fprintf(to.out(), "%-*s0x%" PRIx32 " (%s mode", LABEL_WIDTH, "flags:", flags,
                 ttdinfo_is_partition(report) ? "partition" : "normal");
    if (const std::uint32_t unknown = flags & ~TTD_FLAG_PARTITION; unknown != 0)
        std::fprintf(to.out(), ", unknown bits 0x%" PRIx32, unknown);
    std::fputs(")\n", to.out());
}

void print_superblock(const ttdinfo_report &report, const text_writer &to) {
    const ttd_superblock &superblock = report.engine.superblock;
    const ttd_signature_row *signature = ttd_sig_row(superblock.sigtype);
    std::fprintf(to.out(), "%-*s0x%08" PRIx32 "\n", LABEL_WIDTH, "magic:", superblock.magic);
    to.number("version:", superblock.version);
    print_flags(report, to);
    to.bytes("block size:", superblock.blksize);
    to.bytes("hash block size:", superblock.hblksize);
    to.code("digest:", superblock.hashtype, ttd_hash_name(superblock.hashtype));
    to.bytes("inner image size:", superblock.fssize);
    to.bytes("total size:", superblock.totalsize);
    to.bytes("tree offset:", superblock.offset);
    to.code("signature type:", superblock.sigtype, signature ? signature->option : nullptr);
    to.bytes("salt size:", superblock.saltsize);
    to.hex("salt:", ttdinfo_salt(report));
    to.number("rollback version:", superblock.rollback);
    to.number("reserved:", superblock.reserved);
    to.hex("root hash:", ttdinfo_root_hash(report));
    to.bytes("signature size:", superblock.sigsize);
    to.hex("signature:", ttdinfo_signature(report));
}

void print_geometry(const ttdinfo_report &report, const text_writer &to) {
    const ttd_info &info = report.engine.info;
    to.bytes("covered size:", info.covered_size);
    to.number("data blocks:", info.raw_blocks);
    to.bytes("hash size:", info.hash_size);
    to.number("hashes per block:", info.hashes_per_block);
    to.number("total hashes:", info.total_hashes);
    to.number("hash blocks:", info.hash_blocks);
    to.number("tree levels:", info.levels);
    for (unsigned level = 0; level < info.levels; ++level)
        std::fprintf(to.out(), "  level %u:          %" PRIu32 " blocks at offset %" PRIu64 "\n", level,
                     info.level_blocks[level], info.level_offset[level]);
    to.bytes("tree size:", info.tree_size);
    to.bytes("meta data size:", ttd_meta_data_size(info));
    to.bytes("wasted space:", ttd_wasted_space(info));
    if (ttdinfo_is_partition(report))
        to.bytes("max fs size:", ttdinfo_max_fs_size(info));
}

void print_blocks(const ttdinfo_proof &proof, std::FILE *out) {
    if (!proof.report.has_geometry)
        return;
    const auto damaged = proof.damage.damaged().list();
    if (proof.unproven == 0)
        std::fprintf(out, "; the %" PRIu64 " blocks agree with the root hash", proof.blocks);
    else if (!damaged.empty())
        std::fprintf(out, "; the first damage is at byte %" PRIu64, damaged.front().offset);
}

}  // namespace

void ttdinfo_print_proof(const ttdinfo_proof &proof, std::FILE *out) {
    const ttdinfo_report &report = proof.report;
    std::fprintf(out, "%s: ", proof.path);
    if (proof.status == 0) {
        std::fprintf(out, "proven: %" PRIu64 " blocks, signature by %s\n", proof.blocks, proof.key);
        return;
    }
    std::fputs("NOT PROVEN: ", out);
    if (report.problem_count == 0)
        std::fputs("the signature was not checked", out);
    for (std::size_t i = 0; i < report.problem_count; ++i)
        std::fprintf(out, "%s%s", i == 0 ? "" : ", ", report.problems[i].text);
    print_blocks(proof, out);
    if (report.problem_count != 0 && report.has_geometry)
        std::fprintf(out, "; signature %s", ttdinfo_verdict_text(report.signature));
    if (proof.key)
        std::fprintf(out, " (%s)", proof.key);
    std::fputs("\n", out);
}

void ttdinfo_print_text(const ttdinfo_report &report, std::FILE *out) {
    const text_writer to(out);
    std::fputs("Superblock\n\n", out);
    print_superblock(report, to);
    std::fputs("\nGeometry\n\n", out);
    to.bytes("file size:", report.file_size);
    to.bytes("superblock offset:", report.file_size - TTD_SUPERBLOCK_SIZE);
    if (report.has_geometry)
        print_geometry(report, to);
    std::fputs("\nChecks\n\n", out);
    to.text("superblock:", report.problem_count == 0 ? "not refused" : "refused");
    to.text("signature:", ttdinfo_verdict_text(report.signature));
    to.text("rollback:", ttdinfo_verdict_text(report.rollback));
    to.text("blocks:", "not checked");
    for (std::size_t i = 0; i < report.problem_count; ++i)
        to.text("problem:", report.problems[i].text);
}
