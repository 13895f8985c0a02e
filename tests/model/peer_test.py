"""Compares tree and root hash with an independent builder of hash trees:
peer_test.py MKTFS.  Where every level of a tree is exactly full, `veritysetup
format --no-superblock` lays out the same bytes."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

DATA = pathlib.Path(__file__).resolve().parent.parent / "data"
SALT = "5a" * 64
CASES = [  # digest of ours and of the peer, block size, blocks (full levels)
    ("sha256", "sha256", 4096, 128 * 128),
    ("sha256", "sha256", 512, 16 * 16 * 16),
    ("sha512", "sha512", 4096, 64 * 64),
    ("blake2b512", "blake2b-512", 4096, 64 * 64),
    ("blake2s256", "blake2s-256", 1024, 32 * 32),
]


def run(*command):
    return subprocess.run(list(map(str, command)), check=True, capture_output=True, text=True).stdout


def compare(mktfs, folder, ours, theirs, block, blocks):
    image, hashes, output = folder / "in", folder / "hashes", folder / "out"
    hashes.unlink(missing_ok=True)
    image.write_bytes(b"".join(bytes(block) if i % 5 == 0 else os.urandom(block) for i in range(blocks)))
    printed = run("veritysetup", "format", "--no-superblock", f"--hash={theirs}", f"--salt={SALT}",
                  f"--data-block-size={block}", f"--hash-block-size={block}", image, hashes)
    root = re.search(r"Root hash:\s+([0-9a-f]+)", printed)[1]
    statistics = run(mktfs, "ttd", "-M", "-s", "-H", ours, "-B", block, "-A", SALT, "-S", "rsa-sha256",
                     "-K", DATA / "rsa.pem", "-o", output, image)
    assert re.search(r"root hash: +([0-9a-f]+)", statistics)[1] == root, "root hash"
    assert output.read_bytes()[:-4096] == hashes.read_bytes(), "tree"


with tempfile.TemporaryDirectory() as name:
    for case in CASES:
        compare(sys.argv[1], pathlib.Path(name), *case)
        print("same tree and root hash:", *case)
