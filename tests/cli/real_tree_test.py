"""Lists a real folder through a build file: real_tree_test.py MKTFS [FOLDER]

The build file is made from what find(1) says of the folder; every other link has its target there,
the rest is looked up.  The listing must say the same, entry by entry."""

import re
import subprocess
import sys
import tempfile

FORBIDDEN = set('"*<>?\\|{}\r\n')
KINDS = {"d": "dir", "f": "file", "l": "link"}
LINE = re.compile(r"(\w+) +\d+ +(\d+):(\d+) +(\d{4}) +90000 +(/[^\n]*)")


def main():
    mktfs, folder = sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else "/usr/share"
    printed = subprocess.run(["find", folder, "-mindepth", "1", "-printf", r"%y\t%U\t%G\t%m\t%P\t%l\0"],
                             check=True, capture_output=True).stdout.decode("utf-8", "surrogateescape")
    statements, expected = ["[option mtimefmt=%Y-%m-%d mtime=1970-01-02]\n"], set()
    for kind, uid, gid, mode, path, target in (row.split("\t") for row in printed.split("\0")[:-1]):
        if kind not in KINDS or FORBIDDEN & set(path + target):
            continue
        attributes = f"uid={uid} gid={gid}" + ("" if kind == "l" else f" mode={mode}")
        source = f' = "{target}"' if kind == "l" and len(path) % 2 else ""
        statements.append(f'[{KINDS[kind]} {attributes}] "/{path}"{source}\n')
        shown = {"d": "", "f": f" [{folder}//{path}]", "l": f" --> {target}"}[kind]
        expected.add((KINDS[kind], uid, gid, mode.zfill(4), f"/{path}{shown}"))
    with tempfile.NamedTemporaryFile("w", encoding="utf-8", errors="surrogateescape") as build_file:
        build_file.write("".join(statements))
        build_file.flush()
        result = subprocess.run([mktfs, "test", "-r", folder, build_file.name], check=True, capture_output=True,
                                env={"TZ": "UTC"})
    listed = set(LINE.findall(result.stdout.decode("utf-8", "surrogateescape")))
    assert not result.stderr, result.stderr[:500]
    assert listed == expected, sorted(listed ^ expected)[:6]
    assert len(listed) > 100, "too few entries to say anything"
    print(f"{len(listed)} entries equal")


main()
