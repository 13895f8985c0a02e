#include "info/screen.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstddef>
#include <cstdint>
#include <span>

#include "info/verify.h"

namespace {

constexpr unsigned FRAME = 4;  // "  [" and "]"
constexpr std::size_t MAX_AREAS = TTD_MAX_LEVELS + 4;
constexpr std::size_t MAX_PLACES = 8;  // of damage that are listed

struct size_text {
    char text[16];
    explicit size_text(std::uint64_t bytes) {
        constexpr const char *units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
        auto value = static_cast<double>(bytes);
        std::size_t unit = 0;
        for (; value >= 1024; ++unit)
            value /= 1024;
        std::snprintf(text, sizeof text, "%.*f %s", unit == 0 ? 0 : 1, value, units[unit]);
    }
};

struct area {
    char sign = 0;
    char name[12] = {};
    std::uint64_t offset = 0;  // bytes
    std::uint64_t length = 0;  // bytes
    unsigned columns = 0;
};

// The areas of an image in the order of their bytes.
class layout {
public:
    // False when they are in another order or leave the file.
    [[nodiscard]] bool collect(const ttdinfo_report &report) {
        const ttd_info &info = report.engine.info;
        bool ordered = add('D', "data", 0, report.engine.superblock.fssize);
        for (unsigned level = info.levels; ordered && level-- > 0;) {
            char name[12];
            std::snprintf(name, sizeof name, "level %u", level);
            ordered = add(static_cast<char>('0' + level), name, info.level_offset[level],
                          std::uint64_t{info.level_blocks[level]} * info.hash_block_size);
        }
        return ordered && report.fits &&
               add('S', "superblock", report.file_size - TTD_SUPERBLOCK_SIZE, TTD_SUPERBLOCK_SIZE);
    }

    // Distributes the columns: each area gets at least one, at the expense of the largest.
    void scale(unsigned columns) {
        unsigned used = 0;
        for (area &of : areas()) {
            const double share = static_cast<double>(of.length) / static_cast<double>(end_);
            of.columns = std::max(1U, static_cast<unsigned>(share * columns));
            used += of.columns;
        }
        area &largest = *std::ranges::max_element(areas(), {}, &area::columns);
        largest.columns += columns - used;
    }

    [[nodiscard]] std::span<area> areas() { return {areas_.data(), count_}; }
    [[nodiscard]] std::uint64_t end() const { return end_; }  // bytes

private:
    // Gaps between the areas are shown as free.
    [[nodiscard]] bool add(char sign, const char *name, std::uint64_t offset, std::uint64_t length) {
        if (offset < end_)
            return false;
        if (offset > end_)
            put('.', "free", end_, offset - end_);
        if (length != 0)
            put(sign, name, offset, length);
        return true;
    }
    void put(char sign, const char *name, std::uint64_t offset, std::uint64_t length) {
        if (count_ == MAX_AREAS)
            return;
        area &of = areas_[count_++];
        of = {.sign = sign, .offset = offset, .length = length};
        std::snprintf(of.name, sizeof of.name, "%s", name);
        end_ = offset + length;
    }

    std::array<area, MAX_AREAS> areas_;
    std::size_t count_ = 0;
    std::uint64_t end_ = 0;
};

void print_area(const area &of, std::uint64_t whole, std::FILE *out) {
    const double percent = 100 * static_cast<double>(of.length) / static_cast<double>(whole);
    char share[8] = "<1";
    if (percent >= 1)
        std::snprintf(share, sizeof share, "%.0f", percent);
    std::fprintf(out, "%c %-10s %10s %10s %3s%%\n", of.sign, of.name, size_text(of.offset).text,
                 size_text(of.length).text, share);
}

void print_place(const ttdinfo_range &range, std::FILE *out) {
    if (range.level == TTDINFO_DATA)
        std::fputs("  data   ", out);
    else
        std::fprintf(out, "  level %d", range.level);
    std::fprintf(out, " %s at byte %" PRIu64 "\n", size_text(range.length).text, range.offset);
}

}  // namespace

unsigned ttdinfo_map_cells(unsigned columns) {
    return columns - FRAME;
}

void ttdinfo_draw_layout(const ttdinfo_report &report, unsigned columns, std::FILE *out) {
    layout of;
    if (!report.has_geometry || !of.collect(report))
        return;
    of.scale(ttdinfo_map_cells(columns));
    std::fputs("\nLayout\n\n  [", out);
    for (const area &part : of.areas())
        for (unsigned i = 0; i < part.columns; ++i)
            std::fputc(part.sign, out);
    std::fprintf(out, "]\n\n  %-10s %10s %10s\n", "area", "offset", "size");
    for (const area &part : of.areas())
        print_area(part, of.end(), out);
}

void ttdinfo_draw_damage(const ttdinfo_proof &proof, std::FILE *out) {
    const auto map = proof.damage.map();
    const auto places = proof.damage.damaged().list();
    if (map.empty() || places.empty())
        return;
    std::fprintf(out, "  [%.*s]\n", static_cast<int>(map.size()), map.data());
    std::fprintf(out, "  # damaged, - unproven; %s per column\n",
                 size_text(proof.report.file_size / map.size()).text);
    for (const ttdinfo_range &range : places.first(std::min(places.size(), MAX_PLACES)))
        print_place(range, out);
    if (places.size() > MAX_PLACES)
        std::fprintf(out, "  and %" PRIu64 " more, see --json\n",
                     places.size() - MAX_PLACES + proof.damage.damaged().omitted());
}
