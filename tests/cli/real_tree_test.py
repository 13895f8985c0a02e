"""Lists a real folder through a build file: real_tree_test.py MKTFS [FOLDER]

The build file is made from what find(1) says of the folder; its objects are looked
up in two search paths, of which the first holds every third file.  The listing must
say the same, entry by entry."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

FORBIDDEN = set('"*<>?\\|{}\r\n')
KINDS = {"d": "dir", "f": "file", "l": "link"}
LINE = re.compile(r"(\w+) +(\d+) +(\d+):(\d+) +(\d{4}) +(-?\d+) +(/[^\n]*)")


def entries_of(folder):
    """(kind, uid, gid, mode, path below the folder, link target) as find prints them."""
    printed = subprocess.run(["find", folder, "-mindepth", "1", "-printf", r"%y\t%U\t%G\t%m\t%P\t%l\0"],
                             check=True, capture_output=True).stdout.decode("utf-8", "surrogateescape")
    rows = [row.split("\t") for row in printed.split("\0")[:-1]]
    return [row for row in rows if row[0] in KINDS and not FORBIDDEN & set(row[4] + row[5])]


def statement(kind, uid, gid, mode, path, target):
    attributes = f"uid={uid} gid={gid}" + ("" if kind == "l" else f" mode={mode}")
    by_source = f' = "{target}"' if kind == "l" and len(path) % 2 else ""  # the others are looked up
    return f'[{KINDS[kind]} {attributes}] "/{path}"{by_source}\n'


def main():
    mktfs = sys.argv[1]
    folder = sys.argv[2] if len(sys.argv) > 2 else "/usr/share"
    entries = entries_of(folder)
    with tempfile.TemporaryDirectory() as name:
        first, expected = pathlib.Path(name, "first"), {}
        for index, (kind, uid, gid, mode, path, target) in enumerate(entries):
            source = f"{folder}//{path}"
            if kind == "f" and index % 3 == 0:
                copy = first / path
                copy.parent.mkdir(parents=True, exist_ok=True)
                copy.touch()
                source = f"{first}//{path}"
            suffix = {"d": "", "f": f" [{source}]", "l": f" --> {target}"}[kind]
            mode = "777" if kind == "l" else mode
            expected[f"/{path}{suffix}"] = (KINDS[kind], int(uid), int(gid), int(mode, 8), 86400 + 3600)
        build_file = pathlib.Path(name, "tree.build")
        text = "[option mtimefmt=%Y-%m-%d mtime=1970-01-02]\n" + "".join(statement(*e) for e in entries)
        build_file.write_text(text, encoding="utf-8", errors="surrogateescape")
        result = subprocess.run([mktfs, "test", "-r", f"{first}:{folder}", str(build_file)], check=True,
                                capture_output=True, env={"TZ": "UTC", "PATH": os.environ["PATH"]})
        assert not result.stderr, result.stderr[:500]
        listing = {}
        for match in LINE.finditer(result.stdout.decode("utf-8", "surrogateescape")):
            kind, _, uid, gid, mode, mtime, rest = match.groups()
            listing[rest] = (kind, int(uid), int(gid), int(mode, 8), int(mtime))
    for rest in expected.keys() | listing.keys():
        assert listing.get(rest) == expected.get(rest), (rest, listing.get(rest), expected.get(rest))
    assert len(entries) > 100, "too few entries to say anything"
    print(f"{len(entries)} entries equal")


main()
