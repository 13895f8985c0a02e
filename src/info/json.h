// A report for scripts.
#pragma once

#include <cstdio>

class mktfs_json;
struct ttdinfo_proof;
struct ttdinfo_report;

// One JSON object, see docs/ttdinfo-json.md: a change of it is a change of that
// document and, unless it only adds members, of its version.
void ttdinfo_print_json(const ttdinfo_report &report, std::FILE *out);

// The same of --verify: what stands before the list of images, and an element of it.
void ttdinfo_begin_json(mktfs_json *whole);
void ttdinfo_add_json(const ttdinfo_proof &proof, mktfs_json *images);
