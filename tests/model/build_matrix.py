#!/usr/bin/env python3
"""Builds images in every digest, block size and mode, and compares each with the model byte by byte.

    build_matrix.py MKTFS [--quick]

Every signature is proved with the openssl command.  Ends at the first difference.
--quick takes every fifth pair of digest and block size.
"""

import itertools
import random
import shlex
import subprocess
import sys
import tempfile
from dataclasses import replace
from pathlib import Path

from ttd_model import DIGESTS, Geometry, ModelError, Options, check

BLOCK_SIZES = [512 << n for n in range(7)]
KEYS = [  # name, -S value, openssl commands that make key.pem
    ("rsa-2048", "rsa-sha256", ["genpkey -algorithm RSA -out key.pem -pkeyopt rsa_keygen_bits:2048"]),
    ("ec", "ecdsa-sha256", ["genpkey -algorithm EC -out key.pem -pkeyopt ec_paramgen_curve:prime256v1"]),
    ("ec-explicit", "ecdsa-sha256",
     ["ecparam -name prime256v1 -param_enc explicit -no_seed -out params.pem -outform PEM",
      "genpkey -paramfile params.pem -out key.pem"]),
    ("ed25519", "eddsa-25519", ["genpkey -algorithm ED25519 -out key.pem"]),
    ("ed448", "eddsa-448", ["genpkey -algorithm ED448 -out key.pem"]),
]


def run(command, folder, **kwargs):
    return subprocess.run(command, cwd=folder, capture_output=True, **kwargs)


class Key:
    """A fresh key pair in a folder of its own."""

    def __init__(self, folder, name, signature, commands):
        self.name, self.signature, self.folder = name, signature, folder / name
        self.folder.mkdir()
        for command in commands + ["pkey -in key.pem -pubout -out public.pem"]:
            run(["openssl", *shlex.split(command)], self.folder, check=True)

    def accepts(self, signed, signature):
        (self.folder / "signed").write_bytes(signed)
        (self.folder / "signature").write_bytes(signature)
        if self.signature.startswith("eddsa"):
            command = "pkeyutl -verify -pubin -inkey public.pem -rawin -in signed -sigfile signature"
        else:
            command = "dgst -sha256 -verify public.pem -signature signature signed"
        return run(["openssl", *shlex.split(command)], self.folder).returncode == 0


def random_blocks(rng, size, count):
    """Blocks of a small stock, so that the slow digests of the model stay quick; a third of them zero."""
    stock = [rng.randbytes(size) for _ in range(6)] + 3 * [bytes(size)]
    return b"".join([stock[0], *rng.choices(stock, k=count - 1)])


def block_counts(block_size, hash_size):
    """Name and number of blocks of each input; larger blocks get fewer, because they need more data."""
    per_block = block_size // hash_size
    yield "one block", 1
    yield "two levels, the last hash block in part", per_block + 3
    if block_size <= 4096:
        yield "two levels, every hash block of level 0 full", 2 * per_block
    if block_size <= 1024:
        yield "three levels", per_block * per_block + 1


def smallest_partition(size, block_size, hash_size):
    """The smallest partition, in whole blocks, that an input of `size` bytes fits into."""
    partition = -(-size // block_size) * block_size
    while Geometry(partition, block_size, hash_size).meta_size + size > partition:
        partition += block_size
    return partition


def modes(data, options, hash_size):
    """Name, input and options of each mode."""
    block_size = options.block_size
    cut = data[:len(data) - 123]
    partition = smallest_partition(len(data), block_size, hash_size)
    roomy = replace(options, partition=partition + 3 * block_size)
    filled = replace(options, partition=partition)
    room = partition - Geometry(partition, block_size, hash_size).meta_size
    yield "normal", data, options
    yield "meta data only", data, replace(options, meta_only=True)
    yield "partition", cut, roomy
    if block_size <= 8192:
        yield "partition, filled to the last byte", data.ljust(room, b"\x5a"), filled
        yield "partition, meta data only", cut, replace(roomy, meta_only=True)


def mktfs_arguments(options, key):
    arguments = ["-H", options.digest, "-B", str(options.block_size), "-S", options.signature,
                 "-K", str(key.folder / "key.pem"), "-A", options.salt.hex()]
    if options.partition is not None:
        arguments += ["-P", str(options.partition)]
    if options.rollback:
        arguments += ["-R", str(options.rollback)]
    return arguments + (["-M"] if options.meta_only else [])


def build_and_check(mktfs, folder, data, options, key):
    (folder / "input").write_bytes(data)
    (folder / "output").unlink(missing_ok=True)
    result = run([mktfs, "ttd", *mktfs_arguments(options, key), "-o", "output", "input"], folder)
    if result.returncode != 0:
        raise ModelError(f"status {result.returncode}: {result.stderr.decode()}")
    if not key.accepts(*check((folder / "output").read_bytes(), data, options)):
        raise ModelError("openssl refuses the signature")


def run_matrix(mktfs, folder, step):
    """Returns how many images were compared."""
    keys = [Key(folder, *row) for row in KEYS]
    images = 0
    next_key = itertools.cycle(keys)
    for (name, digest), block_size in itertools.islice(itertools.product(DIGESTS.items(), BLOCK_SIZES), 0, None, step):
        rng = random.Random(f"{name} {block_size}")
        salt = rng.randbytes(rng.choice([digest.size, 2 * digest.size, 128]))
        options = Options(name, block_size, salt=salt, rollback=rng.choice([0, 1, 2**64 - 1]))
        for count_name, count in block_counts(block_size, digest.size):
            data = random_blocks(rng, block_size, count)
            for mode, content, mode_options in modes(data, options, digest.size):
                key = next(next_key)
                mode_options = replace(mode_options, signature=key.signature)
                try:
                    build_and_check(mktfs, folder, content, mode_options, key)
                except (ModelError, OSError) as error:
                    arguments = shlex.join(mktfs_arguments(mode_options, key))
                    sys.exit(f"build_matrix: {mode}, {count_name}: {error}\n{arguments}")
                images += 1
    return images


def main():
    mktfs = str(Path(sys.argv[1]).resolve())
    with tempfile.TemporaryDirectory(prefix="mktfs-matrix-") as folder:
        images = run_matrix(mktfs, Path(folder), 5 if "--quick" in sys.argv else 1)
    print(f"build_matrix: {images} images equal the model, {images} signatures proved")


if __name__ == "__main__":
    main()
