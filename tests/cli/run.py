#!/usr/bin/env python3
"""Runs whole-program cases: run.py BINARY [CASE...]

Every cases/NAME.case runs in an empty folder of its own, step by step, each a line for
/bin/sh with BINARY's folder first in PATH.  The short form, a row, holds a step, its exit
status (128 + N: ended by signal N) and what it prints, lines joined with " // ":

    mktfs test nothing | 2 | failed to open 'nothing'

    TEXT                 a line of standard error
    > TEXT               a line of standard output
    *  **                any number of lines of standard output, of standard error
    ~ TEXT  >~ TEXT      the same as regular expressions
    construction         "Filesystem construction failed (what the status means)"; also
                         verification and extraction

The long form, and files; "#" begins a comment:

    file in.txt          the following body becomes the contents of in.txt
    $ mktfs test in.txt  a step
    status 1             0 when left out
    stdout               or stderr: the following body is all that it prints there; nothing when left out
    | exact line         of a body
    ~ reg.*ex            a line that matches
    \\ exact text         a line without its newline (a last line, or joined to the next)
    *                    any number of lines, also none

The environment of a step holds PATH, HOME, LC_ALL, TZ=UTC, the sanitizers' options, $DATA (tests/data),
and $BUILD and $VERIFY, the usual beginnings of commands.  Cases that $SKIP_CASES names are left out.
"""
import concurrent.futures
import difflib
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
KEPT_VARIABLES = ("ASAN_OPTIONS", "LSAN_OPTIONS", "UBSAN_OPTIONS")
STEP_SECONDS = 60
DATA = HERE.parent / "data"
ROW = re.compile(r"(?!\$ |[#|~*\\]|file )(.*) \| (\d+) \|(?: (.*))?")
ENDS = ("construction", "verification", "extraction")


class Body:
    """Expected or given text: a regular expression, and how to show it."""

    def __init__(self):
        self.text = self.pattern = ""

    def add(self, line):
        kind, rest = line[0], line[2:]
        text = rest + ("\n" if kind == "|" else "")
        self.text += text if kind in "|\\" else line + "\n"
        self.pattern += re.escape(text) if kind in "|\\" else f"(?:{rest})\n" if kind == "~" else r"(?:.*\n)*"


class Step:
    def __init__(self, command, line, status=0):
        self.command, self.line, self.status = command, line, status
        self.streams = {"stdout": Body(), "stderr": Body()}


def row_step(match, line):
    step = Step(match[1], line, int(match[2]))
    for part in match[3].split(" // ") if match[3] else []:
        on_stdout = re.match(r"\*$|>(~? |$)", part)
        text = part.lstrip(">") if on_stdout else part
        if text in ENDS:
            text = f"Filesystem {text} failed ({os.strerror(step.status)})"
        is_code = text in ("*", "**") or text.startswith("~ ")
        step.streams["stdout" if on_stdout else "stderr"].add(text if is_code else "| " + text.removeprefix(" "))
    return step


def parse(path):
    """Yields (file name, Body) and Step items in order."""
    items, body, step = [], None, None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        word, _, rest = line.partition(" ")
        if body is not None and line and line[0] in "|\\~*":
            body.add(line)
        elif row := ROW.fullmatch(line):
            body, step = None, row_step(row, number)
            items.append(step)
        elif word == "file":
            body, step = Body(), None
            items.append((rest, body))
        elif word == "$":
            body, step = None, Step(rest, number)
            items.append(step)
        elif step and word == "status":
            step.status = int(rest)
        elif step and line in step.streams:
            body = step.streams[line]
        elif line and word != "#":
            raise SystemExit(f"{path}:{number}: not understood: {line}")
    return items


def environment(binary, folder):
    kept = {name: os.environ[name] for name in KEPT_VARIABLES if name in os.environ}
    return kept | {
        "PATH": f"{binary.parent}:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin",
        "HOME": folder,
        "LC_ALL": "C",
        "TZ": "UTC",
        "DATA": str(DATA),
        "BUILD": f"mktfs ttd -H sha256 -S rsa-sha256 -K {DATA}/rsa.pem -B 4096",
        "VERIFY": f"mktfs ttd -y -K {DATA}/rsa.pub.pem",
    }


def run_step(step, folder, env):
    """Yields what differs."""
    result = subprocess.run(["/bin/sh", "-c", step.command], cwd=folder, env=env, stdin=subprocess.DEVNULL,
                            capture_output=True, timeout=STEP_SECONDS, check=False)
    status = result.returncode if result.returncode >= 0 else 128 - result.returncode
    if status != step.status:
        yield f"status {status}, expected {step.status}"
    for name, body in step.streams.items():
        actual = getattr(result, name).decode("utf-8", "backslashreplace")
        if not re.fullmatch(body.pattern, actual):
            yield "".join(difflib.unified_diff(body.text.splitlines(True), actual.splitlines(True), f"expected {name}", name))


def run_case(path, binary):
    """Gives the failures as texts; a case ends at its first failing step."""
    with tempfile.TemporaryDirectory(prefix="mktfs-cli-") as folder:
        env = environment(binary, folder)
        for item in parse(path):
            if not isinstance(item, Step):
                pathlib.Path(folder, item[0]).write_text(item[1].text)
                continue
            try:
                failures = list(run_step(item, folder, env))
            except subprocess.TimeoutExpired:
                failures = [f"still running after {STEP_SECONDS} s"]
            if failures:
                return [f"{path.name}:{item.line}: $ {item.command}"] + failures
    return []


def main():
    signal.signal(signal.SIGINT, signal.default_int_handler)  # which a background job ignores, its steps too
    binary = pathlib.Path(sys.argv[1]).resolve()
    cases = sorted((HERE / "cases").glob("*.case"))
    if len(sys.argv) > 2:
        cases = [case for case in cases if case.stem in sys.argv[2:]]
    cases = [case for case in cases if case.stem not in os.environ.get("SKIP_CASES", "").split()]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(lambda case: run_case(case, binary), cases))
    failed = [failures for failures in results if failures]
    for failures in failed:
        print("\n".join(failures), end="\n\n")
    print(f"{len(cases) - len(failed)} of {len(cases)} cases passed")
    return 1 if failed or not cases else 0


if __name__ == "__main__":
    sys.exit(main())
