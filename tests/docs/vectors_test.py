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

PAGE = Path(__file__).resolve().parents[2] / "docs" / "man" / "ttd-image.5"
KEY = re.compile(r"^-+BEGIN PRIVATE KEY-+\n.*?^-+END PRIVATE KEY-+\n", re.M | re.S)
VECTOR = re.compile(r"^(\d+) (-H (\S+) .*)\n    ([0-9a-f]{64})$", re.M)
ENVIRONMENTS = [{}, {"TZ": "Asia/Tokyo", "LC_ALL": "C.UTF-8", "TCRYPTO_KERNELS": "off"}]

mktfs = Path(sys.argv[1]).resolve()
page = PAGE.read_text().replace("\\-", "-")
vectors = VECTOR.findall(page)
status = 0 if len(vectors) >= 11 else "the page has too few vectors"
with tempfile.TemporaryDirectory(prefix="mktfs-vectors-") as name:
    os.chdir(name)
    Path("key.pem").write_text(KEY.search(page)[0])
    for size, options, digest, expected in vectors:
        Path("in").write_bytes(bytes(i % 251 for i in range(int(size))))
        salt = bytes(range(32)) * (2 if digest in ("sha512", "blake2b512") else 1)
        command = [mktfs, "ttd", *options.split(), "-S", "eddsa-25519", "-K", "key.pem", "-A", salt.hex(),
                   "-o", "out", "in"]
        for environment in ENVIRONMENTS:
            subprocess.run(command, check=True, capture_output=True, env={**os.environ, **environment})
            if hashlib.sha256(Path("out").read_bytes()).hexdigest() != expected:
                status = f"{size} {options}: another image {environment}"
sys.exit(status)
