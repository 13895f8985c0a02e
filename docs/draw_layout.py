#!/usr/bin/env python3
"""Draws image-format.txt as image-format.svg: draw_layout.py [--check]

The words of the source, one a line:
    strip TITLE                         a row of parts that lie one behind the other
    box WIDTH KIND LABEL | BELOW        a part of the strip; WIDTH is its share
    tree BLOCKS PER TITLE               the hash tree over BLOCKS data blocks, PER hashes in a hash block
    disk BLOCKS PER TITLE               the hash blocks of that tree in their order in the image
Levels and counts are worked out here.  With --check nothing is written; the status is 1 when the
picture is not the one that the source gives.
"""

import sys
from html import escape
from pathlib import Path

SOURCE = Path(__file__).resolve().parent / "image-format.txt"
PICTURE = SOURCE.with_suffix(".svg")
WIDTH, MARGIN, HEIGHT, GAP = 880, 20, 34, 26
COLOURS = {"data": "#cfe3f5", "tree": "#d8efd0", "super": "#f7e3b5", "sign": "#f3cfcf", "zero": "#eeeeee"}


class Drawing:
    def __init__(self):
        self.items, self.y = [], MARGIN

    def text(self, x, y, words, anchor="middle", weight="normal", size=13):
        self.items.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-weight="{weight}" '
                          f'font-size="{size}">{escape(words)}</text>')

    def box(self, x, y, width, kind, label):
        self.items.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{HEIGHT}" '
                          f'fill="{COLOURS[kind]}" stroke="#444444"/>')
        self.text(x + width / 2, y + HEIGHT / 2 + 5, label)

    def line(self, x1, y1, x2, y2):
        self.items.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="#777777"/>')

    def title(self, words):
        self.text(MARGIN, self.y + 14, words, "start", "bold", 14)
        self.y += GAP

    def strip(self, title, parts):
        self.title(title)
        unit = (WIDTH - 2 * MARGIN) / sum(width for width, *_ in parts)
        x = MARGIN
        for width, kind, label, below in parts:
            self.box(x, self.y, width * unit, kind, label)
            self.text(x + width * unit / 2, self.y + HEIGHT + 15, below, size=11)
            x += width * unit
        self.y += HEIGHT + 15 + GAP

    def tree(self, title, blocks, per):
        self.title(title)
        counts = levels(blocks, per)
        rows = [("super", 1, 1, "root hash")]
        rows += [("tree", counts[n], per, f"level {n}") for n in reversed(range(len(counts)))]
        rows += [("data", blocks, 1, "data blocks")]
        left = MARGIN + 90
        places = []
        for index, (kind, count, cells, name) in enumerate(rows):
            y = self.y + index * (HEIGHT + GAP)
            self.text(MARGIN, y + HEIGHT / 2 + 5, name, "start")
            below = rows[index + 1][1] if index + 1 < len(rows) else 0
            row = self.row(left, y, kind, count, cells, below)
            for parent, (centre, _) in zip(places, self.centres(row, cells)):
                self.line(*parent, centre, y)
            places = row
        self.y += len(rows) * (HEIGHT + GAP)

    def row(self, left, y, kind, count, cells, below):
        """Draws the blocks of one level; gives the bottom centre of every cell."""
        room = (WIDTH - MARGIN - left) / count
        cell = min(70, room * 0.8 / cells)
        places = []
        for block in range(count):
            x = left + room * (block + 0.5) - cell * cells / 2
            for place in range(cells):
                number = block * cells + place
                self.box(x + place * cell, y, cell, kind if number < below or not below else "zero",
                         self.label(kind, number, below))
                places.append((x + (place + 0.5) * cell, y + HEIGHT))
        return places

    @staticmethod
    def label(kind, number, below):
        if kind == "tree":
            return f"hash {number}" if number < below else "empty"
        return "hash" if kind == "super" else str(number)

    @staticmethod
    def centres(row, cells):
        """The middle of every block of a row of cells."""
        blocks = [row[at:at + cells] for at in range(0, len(row), cells)]
        return [(sum(x for x, _ in block) / cells, block[0][1]) for block in blocks]

    def svg(self):
        return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{self.y}" '
                f'viewBox="0 0 {WIDTH} {self.y}" font-family="sans-serif">\n'
                f'<rect width="{WIDTH}" height="{self.y}" fill="white"/>\n' + "\n".join(self.items) + "\n</svg>\n")


def levels(blocks, per):
    """Hash blocks of each level, level 0 first."""
    counts = []
    while not counts or blocks > 1:
        blocks = -(-blocks // per)
        counts.append(blocks)
    return counts


def on_disk(blocks, per):
    counts = levels(blocks, per)
    parts = [(1, "tree", f"{level}.{block}", f"level {level}, block {block}")
             for level in reversed(range(len(counts))) for block in range(counts[level])]
    return [*parts, (1, "super", "superblock", "")]


def draw(source):
    drawing, strip = Drawing(), None
    for line in [*source.splitlines(), "end "]:
        word, _, rest = line.partition(" ")
        if word == "box":
            width, kind, words = rest.split(" ", 2)
            label, _, below = words.partition(" | ")
            strip[1].append((int(width), kind, label, below))
            continue
        if strip and word and word != "#":
            drawing.strip(*strip)
            strip = None
        if word == "strip":
            strip = (rest, [])
        elif word in ("tree", "disk"):
            blocks, per, title = rest.split(" ", 2)
            if word == "tree":
                drawing.tree(title, int(blocks), int(per))
            else:
                drawing.strip(title, on_disk(int(blocks), int(per)))
        elif word not in ("", "#", "end"):
            sys.exit(f"{SOURCE}: not understood: {line}")
    return drawing.svg()


def main():
    picture = draw(SOURCE.read_text())
    if "--check" not in sys.argv:
        PICTURE.write_text(picture)
    elif not PICTURE.exists() or PICTURE.read_text() != picture:
        sys.exit(f"{PICTURE} is not up to date")


if __name__ == "__main__":
    main()
