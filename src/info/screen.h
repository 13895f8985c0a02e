// Drawings of an image for a terminal, in ASCII, none wider than its columns.
#pragma once

#include <cstdio>

struct ttdinfo_proof;
struct ttdinfo_report;

// Cells of a map on a terminal of that many columns, 40 or more.
[[nodiscard]] unsigned ttdinfo_map_cells(unsigned columns);

// Draws the areas of the image to scale, each at least one character wide; nothing when
// they overlap or do not lie within the file.
void ttdinfo_draw_layout(const ttdinfo_report &report, unsigned columns, std::FILE *out);

// Draws the damage map and lists the first damaged ranges; nothing when there is no damage.
void ttdinfo_draw_damage(const ttdinfo_proof &proof, std::FILE *out);
