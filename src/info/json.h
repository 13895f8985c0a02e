// A report for scripts.
#pragma once

#include <cstdio>

struct ttdinfo_report;

// One JSON object, see docs/ttdinfo-json.md: a change of it is a change of that
// document and, unless it only adds members, of its version.
void ttdinfo_print_json(const ttdinfo_report &report, std::FILE *out);
