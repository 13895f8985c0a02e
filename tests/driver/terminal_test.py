#!/usr/bin/env python3
"""What the program does on a terminal: terminal_test.py MKTFS

Shows its progress: a step of each run is held up for more than a second, so that the
line must come however quick the machine is.  Asks nobody for a pass phrase.
"""

import os
import pty
import re
import select
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

DATA = Path(__file__).resolve().parent.parent / "data"
LINE = re.compile(rb"\r\x1b\[K *\d+%  [\d.]+ MiB/s  [\d:]+ left")
WIPE = b"\r\x1b[K"
SIZE = 8 << 20

mktfs = str(Path(sys.argv[1]).resolve())
failures = 0


def check(rule, holds, seen):
    global failures
    if not holds:
        failures += 1
        print(f"FAILED: {rule}: {str(seen)[:400]}")


def run(folder, slow_call, arguments, columns=None, **environment):
    """What the run writes to a terminal as standard error, and its status; `slow_call` takes 1.2 s once."""
    main, terminal = pty.openpty()
    if columns:
        subprocess.run(["stty", "cols", str(columns)], stdin=terminal, check=True)
    command = ["strace", "-f", "-o", "trace", "-e", f"inject={slow_call}:delay_enter=1200000:when=1", mktfs, "ttd"]
    process = subprocess.Popen(command + arguments, cwd=folder, stdin=terminal, stderr=terminal,
                               stdout=subprocess.DEVNULL, env={**os.environ, "TERM": "xterm", **environment})
    os.close(terminal)
    seen = b""
    while True:
        try:
            piece = os.read(main, 4096)
        except OSError:  # the last writer is gone
            break
        if not piece:
            break
        seen += piece
    os.close(main)
    return seen, process.wait(60)


def ask_nobody(folder, build):
    """A build with an encrypted key, as the leader of a session on a terminal of its own."""
    locked = [argument.replace("rsa.pem", "rsa_encrypted.pem") for argument in build]
    process, terminal = pty.fork()
    if process == 0:
        os.chdir(folder)
        os.execl(mktfs, mktfs, "ttd", *locked)
    seen = b""
    while select.select([terminal], [], [], 20)[0]:
        try:
            seen += os.read(terminal, 4096)
        except OSError:  # the run is over
            break
    else:
        os.kill(process, signal.SIGKILL)
    status = os.waitstatus_to_exitcode(os.waitpid(process, 0)[1])
    check("nobody is asked for a pass phrase", status == 22 and b"phrase" not in seen, (status, seen))


def main():
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        (folder / "in").write_bytes(os.urandom(SIZE))
        build = ["-H", "sha256", "-B", "4096", "-S", "rsa-sha256", "-K", str(DATA / "rsa.pem"), "-o", "out", "in"]
        verify = ["-y", "-K", str(DATA / "rsa.pub.pem"), "out"]
        extract = ["-x", "-f", "-o", "folder", "out"]
        for rule, call, arguments in (("build", "pwrite64", build), ("verify", "madvise", verify),
                                      ("extract", "pwrite64", extract)):
            seen, status = run(folder, call, arguments)
            check(f"{rule}: a line is shown", status == 0 and LINE.match(seen) is not None, seen)
            check(f"{rule}: it is wiped at the end", seen.endswith(WIPE), seen)
            check(f"{rule}: nothing else is written", LINE.sub(b"", seen).replace(WIPE, b"") == b"", seen)

        seen, status = run(folder, "pwrite64", build, TERM="dumb")
        check("a terminal that cannot wipe gets nothing", status == 0 and seen == b"", seen)
        seen, status = run(folder, "pwrite64", ["-v", *build])
        check("-v asks for messages instead", status == 0 and seen == b"", seen)
        seen, status = run(folder, "pwrite64", build, columns=12)
        check("a narrow terminal gets what fits", status == 0 and max(map(len, seen.split(WIPE))) == 11, seen)

        with (folder / "out").open("r+b") as image:
            image.seek(SIZE - 1)
            image.write(bytes([(folder / "in").read_bytes()[-1] ^ 1]))
        seen, status = run(folder, "madvise", verify)
        check("messages come on a clean line", status == 5 and LINE.match(seen) and b"left" + WIPE + b"ttd: " in seen,
              seen)
        ask_nobody(folder, build)
    print(f"terminal: {failures} failed")
    return 1 if failures else 0


sys.exit(main())
