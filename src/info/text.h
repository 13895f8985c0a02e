// A report for a person.
#pragma once

#include <cstdio>

struct ttdinfo_proof;
struct ttdinfo_report;

// One line: what is proven of an image, or why it is not.
void ttdinfo_print_proof(const ttdinfo_proof &proof, std::FILE *out);
void ttdinfo_print_text(const ttdinfo_report &report, std::FILE *out);
