#!/usr/bin/env python3
"""Runs the commands of a document: run_doc.py MKTFS DOCUMENT...

Every block that is fenced as `sh` is run, in order, by one bash in an empty folder, with
MKTFS's folder and the document's folder first in PATH.  It must end with status 0.  A `text`
block that comes next is all that it prints: `...` stands for any text within a line, and alone
for any number of lines.  `sh nbd`, `sh fuse` and `sh qemu` are left out where those are missing.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

NBDKIT = shutil.which("nbdkit") if Path(sys.argv[1]).with_name("nbdkit-ttd-plugin.so").exists() else None
THERE = {"": True, "nbd": NBDKIT and shutil.which("nbdcopy"), "qemu": NBDKIT and shutil.which("qemu-img"),
         "fuse": NBDKIT and os.path.exists("/dev/fuse") and shutil.which("nbdfuse")}
FENCE = re.compile(r"^```sh ?(\w*)\n(.*?)^```$(?:\s*^```text\n(.*?)^```$)?", re.M | re.S)


def pattern(expected):
    lines = (r"(?:.*\n)*" if line == "...\n" else re.escape(line).replace(r"\.\.\.", ".*")
             for line in expected.splitlines(True))
    return "".join(lines)


def run(mktfs, document):
    """Gives the fault as a text, or None."""
    found = [fence[1:] for fence in FENCE.findall(document.read_text()) if THERE[fence[0]]]
    with tempfile.TemporaryDirectory(prefix="mktfs-doc-") as folder:
        work, out = Path(folder, "work"), Path(folder, "out")
        work.mkdir()
        nbdkit = Path(folder, "nbdkit")  # with the plugin of the build
        nbdkit.write_text(f'#!/bin/bash\nexec {NBDKIT} "${{@/#ttd/{mktfs.parent}/nbdkit-ttd-plugin.so}}"\n')
        nbdkit.chmod(0o755)
        script = "set -euo pipefail\n" + "".join(
            f"{{\n{commands}\n}} >{out}{number} 2>&1\n" for number, (commands, _) in enumerate(found))
        env = {"PATH": f"{folder}:{mktfs.parent}:{document.parent}:{os.environ['PATH']}", "HOME": str(work),
               "LC_ALL": "C", "TZ": "UTC"}
        result = subprocess.run(["bash", "-c", script], cwd=work, env=env, stdin=subprocess.DEVNULL,
                                capture_output=True, text=True, timeout=120, check=False)
        for number, (commands, expected) in enumerate(found):
            printed = Path(f"{out}{number}")
            last = result.returncode != 0 and not Path(f"{out}{number + 1}").exists()
            if last or expected and not re.fullmatch(pattern(expected), printed.read_text()):
                status = f"{document}: status {result.returncode} {result.stderr}"
                return f"{status}\n{commands}\nprinted:\n{printed.read_text()}\nexpected:\n{expected}"
    return None if found else f"{document}: no commands"


def main():
    faults = [fault for name in sys.argv[2:] if (fault := run(Path(sys.argv[1]).resolve(), Path(name).resolve()))]
    return "\n".join(faults) or 0


sys.exit(main())
