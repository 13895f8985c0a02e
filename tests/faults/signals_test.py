#!/usr/bin/env python3
"""Ends and races whole builds: signals_test.py [--quick] MKTFS

Whatever happens, a build leaves a complete image and status 0, or neither an image nor temporary files.
"""

import collections
import contextlib
import errno
import os
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

DATA = Path(__file__).resolve().parent.parent / "data"
SIGNALS = [signal.Signals[f"SIG{name}"] for name in ("INT", "TERM", "HUP", "QUIT", "PIPE", "XCPU")]
OPTIONS = ["ttd", "-H", "sha256", "-B", "4096", "-S", "rsa-sha256", "-A", "5a" * 32]
KEY = ["-K", str(DATA / "rsa.pem")]
SLEEPING_SIGNER = ["-Z", ": <hashfile> <sigfile>; >signer_runs; exec sleep 5"]
MEBIBYTE = 1 << 20
LARGE = 64 * MEBIBYTE

quick = "--quick" in sys.argv
mktfs = str(Path(sys.argv[-1]).resolve())
checks = collections.Counter()  # True: those that held


def check(rule, holds, detail=""):
    checks[bool(holds)] += 1
    if not holds:
        print(f"FAILED: {rule}: {detail}", flush=True)


def start(folder, *arguments, **how):
    how = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE, **how}
    return subprocess.Popen([mktfs, *arguments], cwd=folder, env={**os.environ, "TMPDIR": str(folder / "tmp")}, **how)


def build(folder, out="out", source="small", sign=KEY, **how):
    return start(folder, *OPTIONS, *sign, "-o", out, source, **how)


def left(folder):
    """What a failed build may not leave; removes it."""
    found = [path for path in [folder / "out", *(folder / "tmp").iterdir()] if path.exists()]
    for path in found:
        path.unlink()
    return [path.name for path in found]


def build_with_waiting_signer(folder, **how):
    """A build of a group of its own whose signing command runs."""
    (folder / "signer_runs").unlink(missing_ok=True)
    run = build(folder, sign=SLEEPING_SIGNER, start_new_session=True, **how)
    while not (folder / "signer_runs").exists():
        time.sleep(0.005)
    time.sleep(0.02)  # the shell becomes the sleeping program
    return run


def signals_at_any_moment(folder):
    began = time.monotonic()
    build(folder, source="large").wait()
    duration = time.monotonic() - began
    left(folder)
    for number in SIGNALS * (8 if quick else 200):
        moment = random.uniform(0, 1.1 * duration)
        run = build(folder, source="large")
        time.sleep(moment)
        run.send_signal(number)
        status = run.wait(60)
        image = (folder / "out").exists() and (folder / "out").stat().st_size
        found = left(folder)
        # A signal before main or after the end finds a program that has made nothing or everything.
        complete = status == 0 and found == ["out"] and image > LARGE
        check("a signal leaves nothing", complete or (status == -number and not found),
              f"{number.name} after {moment:.3f} s: status {status}, left {found}")


def signals_during_an_extraction(folder):
    build(folder, "image", source="large").wait()
    for number in SIGNALS * (2 if quick else 50):
        run = start(folder, "ttd", "-x", "-o", "extracted", "image")
        moment = random.uniform(0, 0.05)
        time.sleep(moment)
        run.send_signal(number)
        status = run.wait(60)
        file = folder / "extracted" / "fs.img"
        whole = file.exists() and file.stat().st_size == LARGE
        check("a signal leaves a whole file or no folder",
              status in (0, -number) and (whole or status != 0 and not file.parent.exists()),
              f"{number.name} after {moment:.3f} s: status {status}, {whole}")
        shutil.rmtree(file.parent, ignore_errors=True)


def signals_during_the_signer(folder):
    # system() ignores SIGINT and SIGQUIT in the build while the command runs: sent to it alone they do
    # nothing, the build goes on; from a terminal they reach the signer too, whose end ends the build.
    alone = [number for number in SIGNALS if number not in (signal.SIGINT, signal.SIGQUIT)]
    for number, whole_group in [(number, True) for number in SIGNALS] + [(number, False) for number in alone]:
        run = build_with_waiting_signer(folder, stderr=subprocess.DEVNULL)
        (os.killpg if whole_group else os.kill)(run.pid, number)
        status = run.wait(4)
        found = left(folder)
        check("a signal during -Z leaves nothing", status == -number and not found,
              f"{number.name}, group {whole_group}: status {status}, left {found}")
        with contextlib.suppress(ProcessLookupError):
            os.killpg(run.pid, signal.SIGKILL)


def output_in_use(folder):
    first = build_with_waiting_signer(folder)
    second = build(folder)
    message = second.communicate()[1]
    kept = (folder / "out").exists()
    os.killpg(first.pid, signal.SIGTERM)
    first.communicate()
    check("an output in use is refused and kept",
          second.returncode == errno.EAGAIN and b"another build is writing 'out'" in message and kept
          and not left(folder), (second.returncode, message, kept))


def main():
    with tempfile.TemporaryDirectory(prefix="mktfs-signals-") as name:
        folder = Path(name)
        (folder / "tmp").mkdir()
        (folder / "small").write_bytes(bytes(i * i % 251 for i in range(4096)) * 512)
        with open(folder / "large", "wb") as large:
            large.writelines([random.randbytes(MEBIBYTE)] * (LARGE // MEBIBYTE))
        signals_at_any_moment(folder)
        signals_during_an_extraction(folder)
        signals_during_the_signer(folder)
        output_in_use(folder)
    print(f"{checks[True]} checks passed, {checks[False]} failed")
    return 1 if checks[False] else 0


if __name__ == "__main__":
    sys.exit(main())
