#!/usr/bin/env python3
"""An independent model of ttd images: what an image must hold, worked out from its input and options.

As a command it checks a built one.
"""

import argparse
import hashlib
import struct
import sys
from dataclasses import dataclass, field
from functools import lru_cache
from pathlib import Path
from typing import Callable, NamedTuple, Optional

from blake3 import blake3

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
    "blake3": Digest(8, 32, lru_cache(4096)(blake3)),  # so slow here that equal blocks are hashed once
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


@dataclass
class Geometry:
    """The shape of a tree; every product and sum has the 32 bits that readers give it."""
    covered: int
    block_size: int
    hash_size: int
    raw_blocks: int = field(init=False)
    hashes_per_block: int = field(init=False)
    levels: list = field(init=False)  # hash blocks of each level, level 0 first

    def __post_init__(self):
        self.raw_blocks = self.covered // self.block_size
        self.hashes_per_block = self.block_size // self.hash_size
        if self.raw_blocks > U32 or self.hashes_per_block == 0:
            raise ModelError("no geometry for these sizes")
        self.levels, count = [], self.raw_blocks
        while not self.levels or count > 1:
            count = ((count + self.hashes_per_block - 1) & U32) // self.hashes_per_block
            self.levels.append(count)
            if len(self.levels) > MAX_LEVELS:
                raise ModelError("more than 10 levels")

    @property
    def hash_blocks(self):
        return sum(self.levels) & U32

    @property
    def tree_size(self):
        return self.hash_blocks * self.block_size & U32

    @property
    def meta_size(self):
        return self.tree_size + SUPERBLOCK_SIZE

    def level_offset(self, level):
        """Bytes from the start of the tree: the highest level comes first."""
        return sum(self.levels[level + 1:]) * self.block_size


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


class Expected(NamedTuple):
    geometry: Geometry
    data: bytes    # with the zeros of partition mode; empty for meta data only
    tree: bytes
    signed: bytes  # the part of the superblock that the signature covers

    def image(self, signature=b""):
        superblock = self.signed + struct.pack("<I", len(signature)) + signature
        return self.data + self.tree + superblock.ljust(SUPERBLOCK_SIZE, b"\0")


def expect(data, options):
    """What the image of the input `data` holds."""
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
    return Expected(geometry, b"" if options.meta_only else data.ljust(offset, b"\0"), tree, signed)


def place(expected, at):
    """Words for a byte position of the image."""
    at -= len(expected.data)
    if at < 0:
        return "the data"
    if at >= len(expected.tree):
        return f"byte {at - len(expected.tree)} of the superblock"
    geometry = expected.geometry
    level = next(n for n in range(len(geometry.levels)) if at >= geometry.level_offset(n))
    block, byte = divmod(at - geometry.level_offset(level), geometry.block_size)
    return f"byte {byte} of hash block {block} of level {level}"


def check(image, data, options):
    """Compares an image with the model byte by byte, the signature apart.

    Returns the signed bytes and the signature; raises ModelError for the first difference.
    """
    expected = expect(data, options)
    signature_at = len(expected.data) + len(expected.tree) + SIGNED_SIZE
    if len(image) != signature_at - SIGNED_SIZE + SUPERBLOCK_SIZE:
        raise ModelError(f"{len(image)} bytes, expected {signature_at - SIGNED_SIZE + SUPERBLOCK_SIZE}")
    size, = struct.unpack_from("<I", image, signature_at)
    if not 1 <= size <= MAX_SIGNATURE:
        raise ModelError(f"a signature of {size} bytes")
    signature = bytes(image[signature_at + 4:signature_at + 4 + size])
    wanted = expected.image(signature)
    if image != wanted:
        at = next(i for i, (a, b) in enumerate(zip(image, wanted)) if a != b)
        raise ModelError(f"byte {at} ({place(expected, at)}) is {image[at]:#04x}, expected {wanted[at]:#04x}")
    return expected.signed, signature


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
