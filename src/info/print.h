// The two ways to show a report.  Neither sees more of a field than the superblock
// has room for.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

struct ttdinfo_report;

// For a person.
void ttdinfo_print_text(const ttdinfo_report &report, std::FILE *out);
// One JSON object, see docs/ttdinfo-json.md: a change of it is a change of that
// document and, unless it only adds members, of its version.
void ttdinfo_print_json(const ttdinfo_report &report, std::FILE *out);
// Lower-case hexadecimal, without a line end.
void ttdinfo_print_hex(std::span<const std::uint8_t> bytes, std::FILE *out);

// The parts of the variable-length fields that are in use.
[[nodiscard]] std::span<const std::uint8_t> ttdinfo_salt(const ttdinfo_report &report);
[[nodiscard]] std::span<const std::uint8_t> ttdinfo_root_hash(const ttdinfo_report &report);
[[nodiscard]] std::span<const std::uint8_t> ttdinfo_signature(const ttdinfo_report &report);
