// A report for a person.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

struct ttdinfo_proof;
struct ttdinfo_report;

// One line: what is proven of an image, or why it is not.
void ttdinfo_print_proof(const ttdinfo_proof &proof, std::FILE *out);
void ttdinfo_print_text(const ttdinfo_report &report, std::FILE *out);
// Lower-case hexadecimal, without a line end.
void ttdinfo_print_hex(std::span<const std::uint8_t> bytes, std::FILE *out);
