#!/usr/bin/env python3
"""Runs the commands of a document: run_doc.py MKTFS DOCUMENT...

Every block that is fenced as `sh` is run, in order, by one bash in an empty folder, with
MKTFS's folder and the document's folder first in PATH.  It must end with status 0.  A `text`
block that comes next is all that it prints: `...` stands for any text within a line, and alone
for any number of lines.
"""

import difflib
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

SECONDS = 120
FENCE = re.compile(r"^```(\w*)\n(.*?)^```$", re.M | re.S)


def blocks(text):
    """Yields (line, commands, expected output or None)."""
    fences = list(FENCE.finditer(text))
    for fence, behind in zip(fences, [*fences[1:], None]):
        if fence[1] != "sh":
            continue
        expects = behind and behind[1] == "text" and not text[fence.end():behind.start()].strip()
        yield text.count("\n", 0, fence.start()) + 2, fence[2], behind[2] if expects else None


def pattern(expected):
    lines = (r"(?:.*\n)*" if line == "...\n" else re.escape(line).replace(r"\.\.\.", ".*")
             for line in expected.splitlines(True))
    return "".join(lines)


def run(mktfs, document):
    """Gives the fault as a text, or None."""
    found = list(blocks(document.read_text()))
    with tempfile.TemporaryDirectory(prefix="mktfs-doc-") as folder:
        work, out = Path(folder, "work"), Path(folder, "out")
        work.mkdir()
        out.mkdir()
        script = "set -euo pipefail\n" + "".join(
            f"{{\n{commands}\n}} >{out}/{line} 2>&1\n" for line, commands, _ in found)
        env = {"PATH": f"{mktfs.parent}:{document.parent}:{os.environ['PATH']}", "HOME": str(work),
               "LC_ALL": "C", "TZ": "UTC"}
        result = subprocess.run(["bash", "-c", script], cwd=work, env=env, stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, timeout=SECONDS, check=False)
        printed = {line: (out / str(line)).read_text() for line, _, _ in found if (out / str(line)).exists()}
    if result.returncode != 0:
        last = max(printed, default=0)
        return f"{document}:{last}: status {result.returncode}\n{printed.get(last)}{result.stderr}"
    for line, _, expected in found:
        if expected is not None and not re.fullmatch(pattern(expected), printed[line]):
            diff = difflib.unified_diff(expected.splitlines(), printed[line].splitlines(), "document", "run",
                                        lineterm="")
            return f"{document}:{line}: prints something else\n" + "\n".join(diff)
    return None if found else f"{document}: no commands"


def main():
    mktfs = Path(sys.argv[1]).resolve()
    faults = [fault for name in sys.argv[2:] if (fault := run(mktfs, Path(name).resolve()))]
    print("\n".join(faults) or f"{len(sys.argv) - 2} documents run")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
