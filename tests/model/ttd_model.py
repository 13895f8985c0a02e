#!/usr/bin/env python3
"""An independent model of ttd images: what an image must hold, worked out from its input and options.

As a command it checks a built one.
"""

import argparse
import hashlib
import struct
import subprocess
import sys
from dataclasses import dataclass
from functools import lru_cache
from pathlib import Path
from typing import Callable, NamedTuple, Optional

SUPERBLOCK_SIZE, SIGNED_SIZE, MAX_SIGNATURE, MAX_SALT, MAX_LEVELS = 4096, 260, 3832, 128, 10
MAGIC, VERSION, PARTITION_FLAG = 0xC5C6C7C8, 1, 1
# magic, version, flags, blksize, hblksize, hashtype, fssize, totalsize, offset, sigtype, saltsize, salt,
# rollback, reserved, roothash; then sigsize and sig, which are not signed
SIGNED_FIELDS = struct.Struct("<6I3Q2I128sQI64s")
assert SIGNED_FIELDS.size == SIGNED_SIZE
U32 = 0xFFFFFFFF


class Digest(NamedTuple):
    code: int
    size: int
    function: Callable[[bytes], bytes]


DIGESTS = {
    "sha1": Digest(1, 20, lambda data: hashlib.sha1(data).digest()),
    "sha256": Digest(2, 32, lambda data: hashlib.sha256(data).digest()),
    "sha512": Digest(3, 64, lambda data: hashlib.sha512(data).digest()),
    "sha512-256": Digest(4, 32, lambda data: hashlib.new("sha512_256", data).digest()),
    "blake2s256": Digest(5, 32, lambda data: hashlib.blake2s(data).digest()),
    "blake2b256": Digest(6, 32, lambda data: hashlib.blake2b(data, digest_size=32).digest()),
    "blake2b512": Digest(7, 64, lambda data: hashlib.blake2b(data).digest()),
    "blake3": Digest(8, 32, lru_cache(4096)(  # a process each, so equal blocks are hashed once
        lambda data: subprocess.run(["b3sum", "--raw"], input=data, stdout=subprocess.PIPE, check=True).stdout)),
}
SIGNATURES = {"rsa-sha256": 1, "ecdsa-sha256": 2, "eddsa-25519": 3, "eddsa-448": 4}


class ModelError(Exception):
    """Options that no image can have, or an image that is not the expected one."""


@dataclass(frozen=True)
class Options:
    digest: str
    block_size: int
    signature: str = "rsa-sha256"
    salt: bytes = b""
    partition: Optional[int] = None  # bytes; None is normal mode
    meta_only: bool = False
    rollback: int = 0


class Geometry:
    """The shape of a tree; every product and sum has the 32 bits that readers give it."""

    def __init__(self, covered, block_size, hash_size):
        self.block_size, self.hashes_per_block = block_size, block_size // hash_size
        count = covered // block_size
        if count > U32 or self.hashes_per_block == 0:
            raise ModelError("no geometry for these sizes")
        self.levels = []  # hash blocks of each level, level 0 first
        while not self.levels or count > 1:
            count = ((count + self.hashes_per_block - 1) & U32) // self.hashes_per_block
            self.levels.append(count)
        if len(self.levels) > MAX_LEVELS:
            raise ModelError("more than 10 levels")
        self.tree_size = (sum(self.levels) & U32) * block_size & U32
        self.meta_size = self.tree_size + SUPERBLOCK_SIZE


def build_tree(area, geometry, salted):
    """The tree over `area`, which is a whole number of blocks, as it lies on disk; and the root hash.

    `salted` is the digest of the salt and a block.
    """
    size, per_block, empty = geometry.block_size, geometry.hashes_per_block, salted(b"")
    tree, below = b"", memoryview(area)
    for count in geometry.levels:
        hashes = [salted(below[at:at + size]) for at in range(0, len(below), size)]
        hashes += [empty] * (count * per_block - len(hashes))
        level = b"".join(b"".join(hashes[at:at + per_block]).ljust(size, b"\0")
                         for at in range(0, len(hashes), per_block))
        tree, below = level + tree, memoryview(level)
    return tree, salted(below)


def expect(data, options):
    """What the image of the input `data` holds in front of the superblock, and the part of it that is signed."""
    digest = DIGESTS[options.digest]
    partition = options.partition is not None
    covered = options.partition if partition else len(data)
    if covered == 0 or covered % options.block_size != 0:
        raise ModelError(f"{covered} bytes are no whole number of blocks")
    if not digest.size <= len(options.salt) <= MAX_SALT:
        raise ModelError("the salt is too short or too long")
    geometry = Geometry(covered, options.block_size, digest.size)
    offset = covered - geometry.meta_size if partition else covered
    if offset < len(data):
        raise ModelError("the input does not fit into the partition")
    tree, root = build_tree(data.ljust(covered, b"\0"), geometry,
                            lambda block: digest.function(options.salt + block))
    if len(tree) != geometry.tree_size:
        raise ModelError("the tree is too large")
    total = covered if partition else covered + geometry.meta_size
    signed = SIGNED_FIELDS.pack(MAGIC, VERSION, PARTITION_FLAG if partition else 0, options.block_size,
                                options.block_size, digest.code, len(data), total, offset,
                                SIGNATURES[options.signature], len(options.salt), options.salt,
                                options.rollback, 0, root)
    return (b"" if options.meta_only else data.ljust(offset, b"\0")) + tree, signed


def check(image, data, options):
    """Compares an image with the model byte by byte, the signature apart.

    Returns the signed bytes and the signature; raises ModelError for the first difference.
    """
    body, signed = expect(data, options)
    if len(image) != len(body) + SUPERBLOCK_SIZE:
        raise ModelError(f"{len(image)} bytes, expected {len(body) + SUPERBLOCK_SIZE}")
    size_at = len(body) + SIGNED_SIZE
    size, = struct.unpack_from("<I", image, size_at)
    if not 1 <= size <= MAX_SIGNATURE:
        raise ModelError(f"a signature of {size} bytes")
    signature = image[size_at + 4:size_at + 4 + size]
    wanted = body + (signed + struct.pack("<I", size) + signature).ljust(SUPERBLOCK_SIZE, b"\0")
    if image != wanted:
        at = next(i for i, (a, b) in enumerate(zip(image, wanted)) if a != b)
        raise ModelError(f"byte {at} ({at - len(body)} of the superblock) is {image[at]:#04x}, expected {wanted[at]:#04x}")
    return signed, signature


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-H", dest="digest", choices=DIGESTS, required=True)
    parser.add_argument("-B", dest="block_size", type=int, required=True)
    parser.add_argument("-S", dest="signature", choices=SIGNATURES, default="rsa-sha256")
    parser.add_argument("-A", dest="salt", type=bytes.fromhex, default=b"", help="in hexadecimal digits")
    parser.add_argument("-P", dest="partition", type=int)
    parser.add_argument("-M", dest="meta_only", action="store_true")
    parser.add_argument("-R", dest="rollback", type=int, default=0)
    parser.add_argument("--check", type=Path, metavar="IMAGE", required=True)
    parser.add_argument("input", type=Path)
    args = parser.parse_args()
    options = Options(**{name: getattr(args, name) for name in Options.__dataclass_fields__})
    check(args.check.read_bytes(), args.input.read_bytes(), options)


if __name__ == "__main__":
    try:
        main()
    except (ModelError, OSError) as error:
        sys.exit(f"{Path(sys.argv[0]).name}: {error}")
