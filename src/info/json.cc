#include "info/json.h"

#include "base/json.h"
#include "info/report.h"

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

void write_checks(const ttdinfo_report &report, mktfs_json &to) {
    to.boolean("refused", report.problem_count != 0);
    write_verdict("signature", report.signature, to);
    write_verdict("rollback", report.rollback, to);
    mktfs_json problems = to.array("problems");
    for (std::size_t i = 0; i < report.problem_count; ++i)
        problems.text(nullptr, report.problems[i].text);
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

}  // namespace

void ttdinfo_print_json(const ttdinfo_report &report, std::FILE *out) {
    {
        mktfs_json whole(out, '{', '}', 0);
        write_report(report, whole);
    }
    std::fputc('\n', out);
}
