#include "info/json.h"

#include "base/json.h"
#include "info/verify.h"

namespace {

constexpr unsigned JSON_VERSION = 1;

void write_fields(const ttdinfo_report &report, mktfs_json &to) {
    const ttd_superblock &superblock = report.engine.superblock;
    to.number("magic", superblock.magic);
    to.number("version", superblock.version);
    to.number("flags", superblock.flags);
    to.number("blksize", superblock.blksize);
    to.number("hblksize", superblock.hblksize);
    to.number("hashtype", superblock.hashtype);
    to.number("fssize", superblock.fssize);
    to.number("totalsize", superblock.totalsize);
    to.number("offset", superblock.offset);
    to.number("sigtype", superblock.sigtype);
    to.number("saltsize", superblock.saltsize);
    to.hex("salt", ttdinfo_salt(report));
    to.number("rollback", superblock.rollback);
    to.number("reserved", superblock.reserved);
    to.hex("roothash", ttdinfo_root_hash(report));
    to.number("sigsize", superblock.sigsize);
    to.hex("sig", ttdinfo_signature(report));
}

void write_levels(const ttd_info &info, mktfs_json &to) {
    mktfs_json levels = to.array("levels");
    for (unsigned level = 0; level < info.levels; ++level) {
        mktfs_json entry = levels.object(nullptr);
        entry.number("level", level);
        entry.number("offset", info.level_offset[level]);
        entry.number("blocks", info.level_blocks[level]);
    }
}

void write_geometry(const ttdinfo_report &report, mktfs_json &to) {
    const ttd_info &info = report.engine.info;
    to.number("covered_size", info.covered_size);
    to.number("data_blocks", info.raw_blocks);
    to.number("hash_size", info.hash_size);
    to.number("hashes_per_block", info.hashes_per_block);
    to.number("total_hashes", info.total_hashes);
    to.number("hash_blocks", info.hash_blocks);
    write_levels(info, to);
    to.number("tree_size", info.tree_size);
    to.number("meta_data_size", ttd_meta_data_size(info));
    to.number("wasted_space", ttd_wasted_space(info));
    if (ttdinfo_is_partition(report))
        to.number("max_fs_size", ttdinfo_max_fs_size(info));
    else
        to.null("max_fs_size");
    to.boolean("fits", report.fits);
}

void write_verdict(const char *name, ttdinfo_verdict verdict, mktfs_json &to) {
    if (verdict == ttdinfo_verdict::NOT_CHECKED)
        to.null(name);
    else
        to.boolean(name, verdict == ttdinfo_verdict::GOOD);
}

void write_problems(const ttdinfo_report &report, mktfs_json &to) {
    mktfs_json problems = to.array("problems");
    for (std::size_t i = 0; i < report.problem_count; ++i)
        problems.text(nullptr, report.problems[i].text);
}

void write_checks(const ttdinfo_report &report, mktfs_json &to) {
    to.boolean("refused", report.problem_count != 0);
    write_verdict("signature", report.signature, to);
    write_verdict("rollback", report.rollback, to);
    write_problems(report, to);
}

void write_report(const ttdinfo_report &report, mktfs_json &to) {
    const ttd_superblock &superblock = report.engine.superblock;
    const ttd_signature_row *signature = ttd_sig_row(superblock.sigtype);
    to.number("version", JSON_VERSION);
    to.number("file_size", report.file_size);
    to.number("superblock_offset", report.file_size - TTD_SUPERBLOCK_SIZE);
    to.text("digest", ttd_hash_name(superblock.hashtype));
    to.text("signature_type", signature ? signature->option : nullptr);
    to.boolean("partition", ttdinfo_is_partition(report));
    {
        mktfs_json fields = to.object("superblock");
        write_fields(report, fields);
    }
    if (report.has_geometry) {
        mktfs_json geometry = to.object("geometry");
        write_geometry(report, geometry);
    } else {
        to.null("geometry");
    }
    mktfs_json checks = to.object("checks");
    write_checks(report, checks);
}

void write_ranges(const char *name, const ttdinfo_ranges &ranges, const ttd_info &info, mktfs_json &to) {
    mktfs_json list = to.array(name);
    for (const ttdinfo_range &range : ranges.list()) {
        mktfs_json entry = list.object(nullptr);
        const bool is_data = range.level == TTDINFO_DATA;
        const std::uint64_t size = is_data ? info.block_size : info.hash_block_size;
        if (is_data)
            entry.null("level");
        else
            entry.number("level", static_cast<unsigned>(range.level));
        entry.number("offset", range.offset);
        entry.number("length", range.length);
        entry.number("blocks", range.length / size + (range.length % size != 0));
    }
}

void write_blocks(const ttdinfo_proof &proof, mktfs_json &to) {
    const ttd_info &info = proof.report.engine.info;
    to.number("data_blocks", proof.blocks);
    to.number("unproven_blocks", proof.unproven);
    write_ranges("damaged", proof.damage.damaged(), info, to);
    write_ranges("unproven", proof.damage.unproven(), info, to);
    to.number("omitted_ranges", proof.damage.damaged().omitted() + proof.damage.unproven().omitted());
}

}  // namespace

void ttdinfo_begin_json(mktfs_json *whole) {
    whole->number("version", JSON_VERSION);
}

void ttdinfo_add_json(const ttdinfo_proof &proof, mktfs_json *images) {
    mktfs_json entry = images->object(nullptr);
    entry.text("path", proof.path);
    entry.boolean("proven", proof.status == 0);
    write_verdict("signature", proof.report.signature, entry);
    entry.text("key", proof.key);
    write_verdict("rollback", proof.report.rollback, entry);
    write_problems(proof.report, entry);
    if (proof.report.has_geometry) {
        mktfs_json blocks = entry.object("blocks");
        write_blocks(proof, blocks);
    } else {
        entry.null("blocks");
    }
}

void ttdinfo_print_json(const ttdinfo_report &report, std::FILE *out) {
    mktfs_json whole(out);
    write_report(report, whole);
}
