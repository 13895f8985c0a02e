// A report for a person.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

struct ttdinfo_report;

void ttdinfo_print_text(const ttdinfo_report &report, std::FILE *out);
// Lower-case hexadecimal, without a line end.
void ttdinfo_print_hex(std::span<const std::uint8_t> bytes, std::FILE *out);
