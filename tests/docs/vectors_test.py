#!/usr/bin/env python3
"""Builds the test vectors of ttd-image(5) and compares them with the page: vectors_test.py MKTFS

They are built twice, the second time in another time zone and locale and without the kernels.
"""

import hashlib
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

PAGE = Path(__file__).resolve().parent.parent.parent / "docs" / "man" / "ttd-image.5"
KEY = re.compile(r"^-+BEGIN PRIVATE KEY-+\n.*?^-+END PRIVATE KEY-+\n", re.M | re.S)
VECTOR = re.compile(r"^(\d+) (-H \S+ .*)\n    ([0-9a-f]{64})$", re.M)
SALT = bytes(range(32))
ENVIRONMENTS = [{}, {"TZ": "Asia/Tokyo", "LC_ALL": "C.UTF-8", "TCRYPTO_KERNELS": "off"}]


def build(mktfs, folder, size, options, environment):
    """The bytes of the image."""
    (folder / "in").write_bytes(bytes(i % 251 for i in range(size)))
    long_hash = options[options.index("-H") + 1] in ("sha512", "blake2b512")
    salt = SALT * 2 if long_hash else SALT
    command = [mktfs, "ttd", *options, "-S", "eddsa-25519", "-K", "key.pem", "-A", salt.hex(), "-o", "out", "in"]
    subprocess.run(command, cwd=folder, check=True, capture_output=True, env={**os.environ, **environment})
    return (folder / "out").read_bytes()


def faults(mktfs, page, vectors):
    with tempfile.TemporaryDirectory(prefix="mktfs-vectors-") as name:
        folder = Path(name)
        (folder / "key.pem").write_text(KEY.search(page)[0])
        for environment in ENVIRONMENTS:
            for size, options, expected in vectors:
                image = build(mktfs, folder, int(size), options.split(), environment)
                if hashlib.sha256(image).hexdigest() != expected:
                    yield f"{size} {options}: another image {environment}"


def main():
    page = PAGE.read_text().replace("\\-", "-")
    vectors = VECTOR.findall(page)
    found = list(faults(Path(sys.argv[1]).resolve(), page, vectors))
    print("\n".join(found) or f"{len(vectors)} vectors agree")
    return 1 if found or len(vectors) < 11 else 0


if __name__ == "__main__":
    sys.exit(main())
