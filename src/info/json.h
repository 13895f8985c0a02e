// A report for scripts.
#pragma once

#include <cstdio>

class mktfs_json;
struct ttdinfo_proof;
struct ttdinfo_report;

// One JSON object, described in docs/ttdinfo-json.md: a change here changes that document
// too and, unless it only adds members, its version.
void ttdinfo_print_json(const ttdinfo_report &report, std::FILE *out);

// The same for --verify: what precedes the list of images, and one element of it.
void ttdinfo_begin_json(mktfs_json *whole);
void ttdinfo_add_json(const ttdinfo_proof &proof, mktfs_json *images);
