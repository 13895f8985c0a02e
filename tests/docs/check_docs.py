#!/usr/bin/env python3
"""Holds documents and manual pages against the program and the tree: check_docs.py MKTFS

What the documents point to exists: relative links, and files of the project named in backquotes.
Every option of the usage texts has an entry in mktfs.1, and the reverse; so have the values that
the texts list.  man, or else groff, formats every page without a warning.  troubleshooting.md holds
the text of every error and warning in the sources, with "..." for what is filled in.
"""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
PAGES = ROOT / "docs" / "man"
LINK = re.compile(r"\]\((?!\w+:)([^)#]+)")
# src/ttd/build.cc, tests/tree, fuzz: from a folder of the project on
NAMED = re.compile(r"`((?:bench|cmake|docs|examples|fuzz|lib|scripts|src|tests|tools)(?:/[\w./-]+)?)`")
USAGE_OPTION = re.compile(r"^  -([A-Za-z])", re.M)
PAGE_OPTION = re.compile(r"^\.TP\n\.BI? \\-([A-Za-z])(?: |$)", re.M)
VALUES = re.compile(r"\b(?:sha\d+(?:-\d+)?|blake\w+|(?:rsa|ecdsa|eddsa)-\w+)\b")

STRING = r'"(?:[^"\\]|\\.)*"'
ARGUMENT = rf"[^()\"]|{STRING}"
COMPLAINT = re.compile(r"\b(?:\w+_(?:FAIL|fail|parse_error|parse_warn)|(?:mktfs|ttd)_log|TH_LOG|refuse|wrong_usage|nbdkit_error|"
                       r"add_problem|add_complaint|(?:fprintf|fputs)(?=\([^;]*\bstderr\b))"
                       rf"\((?:{ARGUMENT}|\((?:{ARGUMENT}|\((?:{ARGUMENT})*\))*\))*\)")
TEXT = re.compile(rf"{STRING}(?:\s*(?:{STRING}|PRI\w+))*")
FILLED_IN = re.compile(r"%[-#\d.*]*[hlz]*[a-zA-Z]")


def unexplained():
    page = (ROOT / "docs" / "troubleshooting.md").read_text()
    sources = [path for folder in ("src", "lib") for path in sorted((ROOT / folder).rglob("*.c*")) if path.is_file()]
    calls = {call for path in sources for call in COMPLAINT.findall(path.read_text())
             if not re.search(r"_LOG_(?:INFO|PLAIN)", call)}
    for found in sorted({text for call in calls for text in TEXT.findall(call)}):
        pieces = re.sub(r"PRI\w+", '"u"', found)
        text = FILLED_IN.sub("...", "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', pieces))).replace("\\n", "")
        if re.search(r"[a-z]{2}\S* .*[a-z]{2}", text) and f"`{text}`" not in page:
            yield f"docs/troubleshooting.md: no `{text}`"
    yield from () if len(calls) > 200 else [f"only {len(calls)} errors are found in the sources"]


def dead_links(document):
    text = document.read_text()
    for link in LINK.findall(text):
        if not (document.parent / link).exists():
            yield f"{document.relative_to(ROOT)}: no {link}"
    for name in NAMED.findall(text):
        if not (ROOT / name).exists():
            yield f"{document.relative_to(ROOT)}: no {name}"


def usage_faults(mktfs, page):
    usage = "".join(subprocess.run([mktfs, *arguments], check=True, capture_output=True, text=True).stdout
                    for arguments in (["-h"], ["ttd", "-h"]))
    page_text = page.replace("\\-", "-").replace("\\e", "\\")
    entries = PAGE_OPTION.findall(page)
    for letter in sorted(set(USAGE_OPTION.findall(usage)) ^ set(entries)):
        yield f"-{letter} is in the usage or in mktfs.1 only"
    for letter in sorted(set(entries)):
        if entries.count(letter) > 1:
            yield f"-{letter} has two entries in mktfs.1"
    for value in sorted(set(VALUES.findall(usage))):
        if not re.search(rf"(?<![\w-]){re.escape(value)}(?![\w-])", page_text):
            yield f"{value} is missing in mktfs.1"


def warnings(page):
    command = ["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z"]
    if not shutil.which("man"):
        command = ["groff", "-ww", "-t", "-man", "-Tutf8", "-z"]
    result = subprocess.run([*command, page], capture_output=True, text=True, check=False,
                            env={**os.environ, "LC_ALL": "C.UTF-8", "MANWIDTH": "80"})
    if result.returncode != 0 or result.stderr:
        yield f"{page.name}: status {result.returncode}\n{result.stderr}"


def main():
    faults = list(usage_faults(Path(sys.argv[1]).resolve(), (PAGES / "mktfs.1").read_text()))
    faults += unexplained()
    pages = sorted(PAGES.glob("*.[1-8]"))
    for page in pages:
        faults += warnings(page)
    documents = [*ROOT.glob("*.md"), *ROOT.glob("docs/*.md"), *ROOT.glob("examples/*.md")]
    for document in documents:
        faults += dead_links(document)
    print("\n".join(faults) or f"{len(pages)} pages agree, {len(documents)} documents point to what exists")
    return 1 if faults or not pages or not documents else 0


if __name__ == "__main__":
    sys.exit(main())
