#!/usr/bin/env python3
"""Builds images in every digest, block size and mode, and compares each with the model byte by byte.

    build_matrix.py MKTFS [--quick]

Every signature is proved with the openssl command.  Ends at the first difference.
--quick takes every fifth pair of digest and block size.
"""

import itertools
import random
import subprocess
import sys
import tempfile
from dataclasses import replace
from pathlib import Path

from ttd_model import DIGESTS, Geometry, ModelError, Options, check

DATA = Path(__file__).resolve().parent.parent / "data"
KEYS = [("rsa", "rsa-sha256"), ("ec", "ecdsa-sha256"), ("ec_explicit", "ecdsa-sha256"),
        ("ed25519", "eddsa-25519"), ("ed448", "eddsa-448")]  # name, -S value


def run(folder, *command):
    return subprocess.run(list(map(str, command)), cwd=folder, capture_output=True)


def accepts(folder, key, signed, signature):
    (folder / "signed").write_bytes(signed)
    (folder / "signature").write_bytes(signature)
    public = DATA / f"{key}.pub.pem"
    if key.startswith("ed"):
        return run(folder, "openssl", "pkeyutl", "-verify", "-pubin", "-inkey", public, "-rawin", "-in", "signed",
                   "-sigfile", "signature").returncode == 0
    return run(folder, "openssl", "dgst", "-sha256", "-verify", public, "-signature", "signature", "signed").returncode == 0


def random_blocks(rng, size, count):
    """Blocks of a small stock, so that the slow digests of the model stay quick; a third of them zero."""
    stock = [rng.randbytes(size) for _ in range(6)] + 3 * [bytes(size)]
    return b"".join([stock[0], *rng.choices(stock, k=count - 1)])


def block_counts(block_size, hash_size):
    """Of each input: one block; two levels, not full and full; three.  Larger blocks get fewer, as they need more data."""
    per_block = block_size // hash_size
    most = 1 if block_size > 4096 else 2 if block_size > 1024 else 3
    return [1, per_block + 3, 2 * per_block, per_block * per_block + 1][:most + 1]


def smallest_partition(size, block_size, hash_size):
    """The smallest partition, in whole blocks, that an input of `size` bytes fits into."""
    partition = -(-size // block_size) * block_size
    while Geometry(partition, block_size, hash_size).meta_size + size > partition:
        partition += block_size
    return partition


def modes(data, options, hash_size):
    """Input and options of each mode: plain, and in partitions with room to spare and none."""
    block_size = options.block_size
    cut = data[:len(data) - 123]
    partition = smallest_partition(len(data), block_size, hash_size)
    roomy = replace(options, partition=partition + 3 * block_size)
    yield data, options
    yield data, replace(options, meta_only=True)
    yield cut, roomy
    if block_size <= 8192:
        room = partition - Geometry(partition, block_size, hash_size).meta_size
        yield data.ljust(room, b"\x5a"), replace(options, partition=partition)
        yield cut, replace(roomy, meta_only=True)


def build_and_check(mktfs, folder, data, options, key):
    arguments = ["-H", options.digest, "-B", options.block_size, "-S", options.signature, "-A", options.salt.hex(),
                 *(["-P", options.partition] if options.partition is not None else []),
                 *(["-R", options.rollback] if options.rollback else []), *(["-M"] if options.meta_only else [])]
    (folder / "input").write_bytes(data)
    (folder / "output").unlink(missing_ok=True)
    result = run(folder, mktfs, "ttd", *arguments, "-K", DATA / f"{key}.pem", "-o", "output", "input")
    try:
        if result.returncode != 0:
            raise ModelError(f"status {result.returncode}: {result.stderr.decode()}")
        if not accepts(folder, key, *check((folder / "output").read_bytes(), data, options)):
            raise ModelError("openssl refuses the signature")
    except (ModelError, OSError) as error:
        sys.exit(f"build_matrix: {len(data)} bytes, {arguments}: {error}")


def main():
    images, keys = 0, itertools.cycle(KEYS)
    pairs = itertools.product(DIGESTS.items(), [512 << n for n in range(7)])
    with tempfile.TemporaryDirectory(prefix="mktfs-matrix-") as name:
        for (name_of, digest), block_size in itertools.islice(pairs, 0, None, 5 if "--quick" in sys.argv else 1):
            rng = random.Random(f"{name_of} {block_size}")
            salt = rng.randbytes(rng.choice([digest.size, 2 * digest.size, 128]))
            options = Options(name_of, block_size, salt=salt, rollback=rng.choice([0, 1, 2**64 - 1]))
            for count in block_counts(block_size, digest.size):
                for data, of_mode in modes(random_blocks(rng, block_size, count), options, digest.size):
                    key, signature = next(keys)
                    build_and_check(Path(sys.argv[1]).resolve(), Path(name), data, replace(of_mode, signature=signature), key)
                    images += 1
    print(f"build_matrix: {images} images equal the model, {images} signatures proved")


if __name__ == "__main__":
    main()
