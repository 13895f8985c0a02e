#!/usr/bin/env python3
"""What the program does on a terminal: terminal_test.py MKTFS

A step of each run is held up for more than a second, so that the progress line must come
however quick the machine is.
"""

import os
import pty
import re
import subprocess
import sys
import tempfile
from pathlib import Path

DATA = Path(__file__).resolve().parent.parent / "data"
WIPE = b"\r\x1b[K"
LINE = re.compile(rb"\r\x1b\[K *\d+%  [\d.]+ MiB/s  [\d:]+ left")
SIZE = 8 << 20

mktfs = str(Path(sys.argv[1]).resolve())


def run(folder, slow_call, arguments, columns=80, term="xterm"):
    """What the run writes to a terminal as standard error, and its status; `slow_call` takes 1.2 s once."""
    main, terminal = pty.openpty()
    subprocess.run(["stty", "cols", str(columns)], stdin=terminal, check=True)
    slow = ["strace", "-f", "-o", "trace", "-e", f"inject={slow_call}:delay_enter=1200000:when=1"]
    command = [*(slow if slow_call else []), "setsid", "-c", mktfs, "ttd", *arguments]
    process = subprocess.Popen(command, cwd=folder, stdin=terminal, stderr=terminal, stdout=subprocess.DEVNULL,
                               env={**os.environ, "TERM": term})
    os.close(terminal)
    seen = b""
    try:
        while piece := os.read(main, 4096):
            seen += piece
    except OSError:  # the last writer is gone
        os.close(main)
    return process.wait(60), seen


def shows_line(seen):
    return LINE.match(seen) and seen.endswith(WIPE) and not LINE.sub(b"", seen).replace(WIPE, b"")


with tempfile.TemporaryDirectory() as name:
    folder = Path(name)
    (folder / "in").write_bytes(os.urandom(SIZE))
    build = ["-H", "sha256", "-B", "4096", "-S", "rsa-sha256", "-K", str(DATA / "rsa.pem"), "-o", "out", "in"]
    verify = ["-y", "-K", str(DATA / "rsa.pub.pem"), "out"]
    bad = [*verify[:-1], "bad"]
    locked = [argument.replace("rsa.pem", "rsa_encrypted.pem") for argument in build]
    rows = [  # rule, slow call, arguments, keywords, status, what must hold of the bytes seen
        ("build", "pwrite64", build, {}, 0, shows_line),
        ("verify", "madvise", verify, {}, 0, shows_line),
        ("extract", "pwrite64", ["-x", "-f", "-o", "folder", "out"], {}, 0, shows_line),
        ("a short run shows none", None, verify, {}, 0, lambda seen: not seen),
        ("a terminal that cannot wipe gets none", "pwrite64", build, {"term": "dumb"}, 0, lambda seen: not seen),
        ("-v asks for messages instead", "pwrite64", ["-v", *build], {}, 0, lambda seen: not seen),
        ("a narrow terminal gets what fits", "pwrite64", build, {"columns": 12}, 0,
         lambda seen: max(map(len, seen.split(WIPE))) == 11),
        ("nobody is asked for a pass phrase", None, locked, {}, 22, lambda seen: b"phrase" not in seen),
        ("messages come on a clean line", "madvise", bad, {}, 5,
         lambda seen: LINE.match(seen) and b"left" + WIPE + b"ttd: " in seen),
    ]
    failures = 0
    for rule, call, arguments, keywords, expected, holds in rows:
        status, seen = run(folder, call, arguments, **keywords)
        if status != expected or not holds(seen):
            failures += 1
            print(f"FAILED: {rule}: {status} {seen[:400]}")
        if rule == "build":
            image = bytearray((folder / "out").read_bytes())
            image[SIZE - 1] ^= 1
            (folder / "bad").write_bytes(image)
print(f"terminal: {failures} failed")
sys.exit(failures > 0)
