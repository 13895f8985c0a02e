#!/usr/bin/env python3
"""Writes the tables of choosing.md: overhead_table.py MKTFS [--check]

Every number comes from `mktfs ttd -C`.  With --check nothing is written; the status is 1 when
the document holds other tables.
"""

import re
import subprocess
import sys
from pathlib import Path

DOCUMENT = Path(__file__).resolve().parent / "choosing.md"
BLOCK_SIZES = [512 << n for n in range(7)]
DIGESTS = {32: "sha256", 64: "sha512"}  # one for each hash size
IMAGE = 1 << 30
PARTITIONS = [8 << 20, 64 << 20, 512 << 20]


def calculate(mktfs, digest, block_size, size, *options):
    """The statistics as numbers by name."""
    command = [mktfs, "ttd", "-C", str(size), "-B", str(block_size), "-H", digest, *options]
    text = subprocess.run(command, check=True, capture_output=True, text=True).stdout
    return {name: int(value) for name, value in re.findall(r"^(\S.*?): +(\d+)(?: bytes)?$", text, re.M)}


def grouped(number):
    return f"{number:,}".replace(",", " ")


def table(heads, rows):
    lines = [heads, ["---:"] * len(heads), *rows]
    return "".join("| " + " | ".join(str(cell) for cell in line) + " |\n" for line in lines)


def overhead(mktfs):
    heads = ["block size"]
    for hash_size in DIGESTS:
        heads += [f"{hash_size}-byte hash: levels", "tree and superblock", "of the image"]
    rows = []
    for block_size in BLOCK_SIZES:
        row = [block_size]
        for digest in DIGESTS.values():
            found = calculate(mktfs, digest, block_size, IMAGE)
            share = found["meta data size"] / IMAGE
            row += [found["tree levels"], grouped(found["meta data size"]), f"{share:.3%}".replace("%", " %")]
        rows.append(row)
    return table(heads, rows)


def partitions(mktfs):
    heads = ["block size", *(f"{size >> 20} MiB" for size in PARTITIONS)]
    rows = []
    for block_size in BLOCK_SIZES:
        sizes = (calculate(mktfs, "sha256", block_size, 1, "-P", str(size)) for size in PARTITIONS)
        rows.append([block_size, *(grouped(found["max fs size"]) for found in sizes)])
    return table(heads, rows)


def main():
    mktfs = Path(sys.argv[1]).resolve()
    old = new = DOCUMENT.read_text()
    for name, text in [("overhead", overhead(mktfs)), ("partitions", partitions(mktfs))]:
        new, count = re.subn(rf"(<!-- {name} begin -->\n).*?(<!-- {name} end -->)",
                             lambda found, text=text: found[1] + text + found[2], new, flags=re.S)
        if count != 1:
            sys.exit(f"{DOCUMENT}: no place for the table '{name}'")
    if "--check" not in sys.argv:
        DOCUMENT.write_text(new)
    elif new != old:
        sys.exit(f"{DOCUMENT}: the tables are not those of {mktfs}")


if __name__ == "__main__":
    main()
