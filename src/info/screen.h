// Drawings of an image on a terminal, in plain characters, none wider than its columns.
#pragma once

#include <cstdio>

struct ttdinfo_proof;
struct ttdinfo_report;

// Columns of a map that is drawn on so many columns, 40 or more.
[[nodiscard]] unsigned ttdinfo_map_cells(unsigned columns);

// The areas of the image to scale, each at least one character; nothing when they do not
// lie one behind the other within the file.
void ttdinfo_draw_layout(const ttdinfo_report &report, unsigned columns, std::FILE *out);

// The damage map and the first places of it; nothing where nothing is damaged.
void ttdinfo_draw_damage(const ttdinfo_proof &proof, std::FILE *out);
