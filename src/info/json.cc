#include <cinttypes>

#include "info/print.h"
#include "info/report.h"

namespace {

constexpr unsigned JSON_VERSION = 1;

// An object or array; its brackets are written where it lives and dies.
class json_scope {
public:
    json_scope(std::FILE *out, char open, char close, unsigned depth)
        : out_(out), close_(close), depth_(depth) {
        std::fputc(open, out_);
    }
    json_scope(const json_scope &) = delete;
    json_scope &operator=(const json_scope &) = delete;
    ~json_scope() {
        if (!empty_)
            new_line(depth_);
        std::fputc(close_, out_);
    }

    [[nodiscard]] json_scope object(const char *name) { return nested(name, '{', '}'); }
    [[nodiscard]] json_scope array(const char *name) { return nested(name, '[', ']'); }

    void number(const char *name, std::uint64_t value) {
        begin(name);
        std::fprintf(out_, "%" PRIu64, value);
    }
    void boolean(const char *name, bool value) { word(name, value ? "true" : "false"); }
    void null(const char *name) { word(name, "null"); }
    void hex(const char *name, std::span<const std::uint8_t> value) {
        begin(name);
        std::fputc('"', out_);
        ttdinfo_print_hex(value, out_);
        std::fputc('"', out_);
    }
    // Null is written as null.  The texts are the program's own: printable ASCII without
    // quotation marks and backslashes, so that none needs an escape.
    void text(const char *name, const char *value) {
        if (!value)
            return null(name);
        begin(name);
        std::fprintf(out_, "\"%s\"", value);
    }

private:
    json_scope nested(const char *name, char open, char close) {
        begin(name);
        return {out_, open, close, depth_ + 1};
    }
    void word(const char *name, const char *value) {
        begin(name);
        std::fputs(value, out_);
    }
    void begin(const char *name) {  // null: an element of an array
        if (!empty_)
            std::fputc(',', out_);
        empty_ = false;
        new_line(depth_ + 1);
        if (name)
            std::fprintf(out_, "\"%s\": ", name);
    }
    void new_line(unsigned depth) { std::fprintf(out_, "\n%*s", static_cast<int>(2 * depth), ""); }

    std::FILE *out_;
    char close_;
    unsigned depth_;
    bool empty_ = true;
};

void write_fields(const ttdinfo_report &report, json_scope &to) {
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

void write_levels(const ttd_info &info, json_scope &to) {
    json_scope levels = to.array("levels");
    for (unsigned level = 0; level < info.levels; ++level) {
        json_scope entry = levels.object(nullptr);
        entry.number("level", level);
        entry.number("offset", info.level_offset[level]);
        entry.number("blocks", info.level_blocks[level]);
    }
}

void write_geometry(const ttdinfo_report &report, json_scope &to) {
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

void write_verdict(const char *name, ttdinfo_verdict verdict, json_scope &to) {
    if (verdict == ttdinfo_verdict::NOT_CHECKED)
        to.null(name);
    else
        to.boolean(name, verdict == ttdinfo_verdict::GOOD);
}

void write_checks(const ttdinfo_report &report, json_scope &to) {
    to.boolean("refused", report.problem_count != 0);
    write_verdict("signature", report.signature, to);
    write_verdict("rollback", report.rollback, to);
    json_scope problems = to.array("problems");
    for (std::size_t i = 0; i < report.problem_count; ++i)
        problems.text(nullptr, report.problems[i].text);
}

void write_report(const ttdinfo_report &report, json_scope &to) {
    const ttd_superblock &superblock = report.engine.superblock;
    const ttd_signature_row *signature = ttd_sig_row(superblock.sigtype);
    to.number("version", JSON_VERSION);
    to.number("file_size", report.file_size);
    to.number("superblock_offset", report.file_size - TTD_SUPERBLOCK_SIZE);
    to.text("digest", ttd_hash_name(superblock.hashtype));
    to.text("signature_type", signature ? signature->option : nullptr);
    to.boolean("partition", ttdinfo_is_partition(report));
    {
        json_scope fields = to.object("superblock");
        write_fields(report, fields);
    }
    if (report.has_geometry) {
        json_scope geometry = to.object("geometry");
        write_geometry(report, geometry);
    } else {
        to.null("geometry");
    }
    json_scope checks = to.object("checks");
    write_checks(report, checks);
}

}  // namespace

void ttdinfo_print_json(const ttdinfo_report &report, std::FILE *out) {
    {
        json_scope whole(out, '{', '}', 0);
        write_report(report, whole);
    }
    std::fputc('\n', out);
}
