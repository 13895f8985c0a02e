#!/usr/bin/env python3
"""What the documents point to exists: relative links, and files of the project named in backquotes."""

import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
LINK = re.compile(r"\]\((?!\w+:)([^)#]+)")
# src/ttd/build.cc, tests/tree, fuzz: from a folder of the project on
NAMED = re.compile(r"`((?:bench|cmake|docs|examples|fuzz|lib|scripts|src|tests|tools)(?:/[\w./-]+)?)`")


def faults_of(document):
    text = document.read_text()
    for link in LINK.findall(text):
        if not (document.parent / link).exists():
            yield f"{document.relative_to(ROOT)}: no {link}"
    for name in NAMED.findall(text):
        if not (ROOT / name).exists():
            yield f"{document.relative_to(ROOT)}: no {name}"


def main():
    documents = [*ROOT.glob("*.md"), *ROOT.glob("docs/*.md"), *ROOT.glob("examples/*.md")]
    faults = [fault for document in documents for fault in faults_of(document)]
    print("\n".join(faults) or f"{len(documents)} documents point to what exists")
    return 1 if faults or not documents else 0


if __name__ == "__main__":
    sys.exit(main())
