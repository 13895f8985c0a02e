#!/usr/bin/env python3
"""Ends, races and starves whole builds: signals_test.py [--quick] MKTFS

Whatever happens, a build leaves a complete image and status 0, or neither an image nor
temporary files; and what surrounds it does not show in the bytes.
"""

import collections
import contextlib
import errno
import itertools
import operator
import os
import random
import resource
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
NOBODY = 65534

quick = "--quick" in sys.argv
mktfs = str(Path(sys.argv[-1]).resolve())
checks = collections.Counter()  # True: those that held


def check(rule, holds, detail=""):
    checks[bool(holds)] += 1
    if not holds:
        print(f"FAILED: {rule}: {detail}", flush=True)


def start(folder, *arguments, **how):
    environment = {**os.environ, "TMPDIR": str(folder / "tmp"), **how.pop("environment", {})}
    how = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": subprocess.PIPE, **how}
    return subprocess.Popen([mktfs, *arguments], cwd=folder, env=environment, **how)


def build(folder, out="out", source="small", sign=KEY, **how):
    return start(folder, *OPTIONS, *sign, "-o", str(out), source, **how)


def verified(folder, image):
    return start(folder, "ttd", "-y", "-K", str(DATA / "rsa.pub.pem"), str(image)).wait() == 0


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


def bytes_of(path):
    return path.read_bytes() if path.exists() else None


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


def builds_at_once(folder, expected, other):
    for _ in range(2 if quick else 20):
        runs = [build(folder, f"many.{i}") for i in range(8)]
        for i, run in enumerate(runs):
            complete = run.wait() == 0 and verified(folder, f"many.{i}")
            check("builds at once are complete", complete, f"build {i}")
            (folder / f"many.{i}").unlink(missing_ok=True)
        runs = [build(folder), build(folder, sign=[*KEY, "-R", "7"])]
        done = [run.wait() == 0 for run in runs]
        refused = [run.returncode == errno.EAGAIN for run in runs]
        image = bytes_of(folder / "out")
        whole = [made and image == wanted for made, wanted in zip(done, (expected, other))]
        check("two builds to one output: one is whole, the other done or refused",
              any(whole) and all(map(operator.or_, done, refused)), [run.returncode for run in runs])
        left(folder)


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


def limits(folder, expected):
    """A limit is survived, or the build fails and leaves nothing."""
    values = {
        resource.RLIMIT_AS: [step * MEBIBYTE for step in range(8, 200, 24 if quick else 4)],
        resource.RLIMIT_FSIZE: [0, 1, 4096, MEBIBYTE, len(expected) - 1, len(expected)],
        resource.RLIMIT_NOFILE: range(3, 12),
    }
    for kind, limit in ((kind, limit) for kind in values for limit in values[kind]):
        run = build(folder, preexec_fn=lambda: resource.setrlimit(kind, (limit, limit)))
        message = run.communicate()[1]
        image = bytes_of(folder / "out")
        found = left(folder)
        # The limit of a file's size ends the run by its signal.
        failed = message and run.returncode > 0 or run.returncode == -signal.SIGXFSZ
        check("limits", (failed and not found) or (run.returncode == 0 and image == expected),
              f"limit {kind} at {limit}: status {run.returncode}, left {found}, {message}")


def full_or_unchangeable_disk(folder):
    (folder / "disk").mkdir()
    for options, status in (("size=64k", errno.ENOSPC), ("ro", errno.EROFS)):
        script = f'mount -t tmpfs -o {options} none disk || exit 77; "$@"; s=$?; ls disk; exit $s'
        command = ["unshare", "-Urm", "sh", "-c", script, "sh", mktfs, *OPTIONS, *KEY, "-o", "disk/out", "small"]
        done = subprocess.run(command, cwd=folder, capture_output=True, text=True)
        if "unshare" in done.stderr or done.returncode == 77:
            print("skipped: disks (no user namespaces)")
        else:
            check("a full or unchangeable disk", done.returncode == status and "out" not in done.stdout.split(), done)


def folders_that_refuse(folder):
    if os.geteuid() != 0:
        print("skipped: folders of somebody else (needs root)")
        return
    (folder / "closed").mkdir()
    (folder / "closed").chmod(0o555)
    folder.chmod(0o777)
    for where, sign in [("closed/out", KEY), ("out", SLEEPING_SIGNER)]:
        try:
            run = build(folder, where, sign=sign, user=NOBODY, group=NOBODY, extra_groups=[],
                        environment={"TMPDIR": str(folder / "closed")})
        except PermissionError:
            print("skipped: folders of somebody else (who cannot reach the program)")
            return
        message = run.communicate()[1]
        check("a folder that refuses", run.returncode == errno.EACCES and message and not left(folder),
              (where, run.returncode))


def surroundings(folder, expected):
    """What surrounds the build does not show in the image."""
    closed = [set(which) for count in range(4) for which in itertools.combinations(range(3), count)]
    cases = [(f"closed {which}", {"preexec_fn": lambda which=which: [os.close(i) for i in which]})
             for which in closed]
    cases += [(str(variables), {"environment": variables}) for variables in (
        {"POSIXLY_CORRECT": "1"}, {"TZ": "Asia/Tokyo"}, {"LANG": "tr_TR.UTF-8", "LC_ALL": "de_DE.UTF-8"},
        {"TMPDIR": "/nowhere"}, {"TCRYPTO_KERNELS": "off"}, {"HOME": "", "PATH": ""})]
    cases.append(("umask 0777", {"umask": 0o777}))
    for (name, how), traced in itertools.product(cases, ([], ["-v"] * 3)):
        run = build(folder, sign=[*KEY, *traced], **how)
        run.communicate()
        image = bytes_of(folder / "out")
        left(folder)
        check("surroundings do not show", run.returncode == 0 and image == expected,
              f"{name} {traced}: status {run.returncode}, {len(image or b'')} bytes")


def main():
    with tempfile.TemporaryDirectory(prefix="mktfs-signals-") as name:
        folder = Path(name)
        (folder / "tmp").mkdir()
        (folder / "small").write_bytes(bytes(i * i % 251 for i in range(4096)) * 512)
        with open(folder / "large", "wb") as large:
            large.writelines([random.randbytes(MEBIBYTE)] * (LARGE // MEBIBYTE))
        check("an undisturbed build", build(folder).wait() == 0 and verified(folder, "out"))
        expected = (folder / "out").read_bytes()
        left(folder)
        signals_at_any_moment(folder)
        signals_during_an_extraction(folder)
        signals_during_the_signer(folder)
        build(folder, sign=[*KEY, "-R", "7"]).wait()
        builds_at_once(folder, expected, (folder / "out").read_bytes())
        output_in_use(folder)
        limits(folder, expected)
        full_or_unchangeable_disk(folder)
        folders_that_refuse(folder)
        surroundings(folder, expected)
    print(f"{checks[True]} checks passed, {checks[False]} failed")
    return 1 if checks[False] else 0


if __name__ == "__main__":
    sys.exit(main())
