#!/usr/bin/env python3
"""Ends whole builds at any moment: signals_test.py [--quick] MKTFS

A build leaves a complete image and status 0, or neither an image nor temporary files.
"""

import os
import random
import signal
import subprocess
import sys
import tempfile
import time
from pathlib import Path

DATA = Path(__file__).resolve().parent.parent / "data"
SIGNALS = [signal.Signals[f"SIG{name}"] for name in ("INT", "TERM", "HUP", "QUIT", "PIPE", "XCPU")]
OPTIONS = ["ttd", "-H", "sha256", "-B", "4096", "-S", "rsa-sha256", "-K", str(DATA / "rsa.pem"), "-o", "out", "large"]
LARGE = 64 << 20


def main():
    mktfs, failures = str(Path(sys.argv[-1]).resolve()), 0
    with tempfile.TemporaryDirectory(prefix="mktfs-signals-") as name:
        folder, out, temporary = Path(name), Path(name, "out"), Path(name, "tmp")
        temporary.mkdir()
        (folder / "large").write_bytes(random.randbytes(1 << 20) * (LARGE >> 20))

        def build():
            return subprocess.Popen([mktfs, *OPTIONS], cwd=folder, env={**os.environ, "TMPDIR": str(temporary)},
                                    stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        began = time.monotonic()
        build().wait()
        duration = time.monotonic() - began
        for number in SIGNALS * (8 if "--quick" in sys.argv else 200):
            out.unlink(missing_ok=True)
            moment = random.uniform(0, 1.1 * duration)
            run = build()
            time.sleep(moment)
            run.send_signal(number)
            status = run.wait(60)
            left = [path.name for path in [out, *temporary.iterdir()] if path.exists()]
            # A signal before main or after the end finds a program that has made nothing or everything.
            complete = status == 0 and left == ["out"] and out.stat().st_size > LARGE
            if not complete and (status != -number or left):
                failures += 1
                print(f"FAILED: {number.name} after {moment:.3f} s: status {status}, left {left}", flush=True)
    print(f"signals: {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
