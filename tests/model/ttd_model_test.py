#!/usr/bin/env python3
"""Checks the model: worked examples, BLAKE3 reference vectors, and the trees of veritysetup."""

import hashlib
import random
import re
import shutil
import struct
import subprocess
import tempfile
import unittest
from pathlib import Path

from blake3 import blake3
from ttd_model import Geometry, ModelError, Options, check, expect

SALT = bytes(range(64))


class GeometryTest(unittest.TestCase):
    def test_worked_examples(self):
        cases = [  # covered, block, hash size; hashes per block, levels, tree size, meta data size, wasted
            (1048576, 4096, 32, 128, [2, 1], 12288, 16384, 0),
            (16777216, 4096, 32, 128, [32, 1], 135168, 139264, 0),
            (8192, 4096, 32, 128, [1], 4096, 8192, 0),
            (1048576, 512, 20, 25, [82, 4, 1], 44544, 48640, 1044),
            (549755813888, 4096, 32, 128, [1048576, 8192, 64, 1], 33820672, 33824768, 0),
            (4095, 4096, 32, 128, [0], 0, 4096, 0),
            (128 * 4096, 4096, 32, 128, [1], 4096, 8192, 0),
            (129 * 4096, 4096, 32, 128, [2, 1], 12288, 16384, 0),
        ]
        for covered, block, size, per_block, levels, tree, meta, wasted in cases:
            with self.subTest(covered=covered, block=block):
                g = Geometry(covered, block, size)
                self.assertEqual((g.hashes_per_block, g.levels, g.tree_size, g.meta_size, g.wasted),
                                 (per_block, levels, tree, meta, wasted))
        self.assertIn("max fs size:        16637952 bytes\n", Geometry(16777216, 4096, 32).statistics(True))
        self.assertIn("total hashes:       2175\n", Geometry(1048576, 512, 20).statistics())
        self.assertIn("total space:        1064960 bytes\n\n", Geometry(1048576, 4096, 32).statistics())

    def test_limits(self):
        self.assertEqual(len(Geometry(8**10 * 512, 512, 64).levels), 10)
        for covered, block, size in [((8**10 + 1) * 512, 512, 64), (2**32 * 512, 512, 32), (4096, 512, 1024)]:
            self.assertRaises(ModelError, Geometry, covered, block, size)


class ImageTest(unittest.TestCase):
    def test_smallest_image_by_hand(self):
        def digest(data):
            return hashlib.sha256(SALT + data).digest()

        blocks = [b"a" * 4096, b"\0" * 4096]
        tree = b"".join(map(digest, blocks)) + 126 * digest(b"")
        image = expect(b"".join(blocks), Options("sha256", 4096, salt=SALT)).image(b"signature")
        self.assertEqual(image[:12288], b"".join(blocks) + tree)
        head = struct.pack("<6I3Q2I", 0xC5C6C7C8, 1, 0, 4096, 4096, 2, 8192, 16384, 8192, 1, 64)
        self.assertEqual(image[12288:12288 + 56 + 128 + 12], head + SALT + bytes(64 + 12))
        self.assertEqual(image[12484:12548], digest(tree) + bytes(32))
        self.assertEqual(image[12548:], (struct.pack("<I", 9) + b"signature").ljust(3836, b"\0"))

    def test_check_finds_a_changed_byte_anywhere(self):
        data, options = bytes(1000), Options("sha1", 512, salt=SALT, partition=16384, rollback=7)
        image = expect(data, options).image(b"signature")
        self.assertEqual(check(image, data, options), (image[-4096:-4096 + 260], b"signature"))
        signed = range(len(image) - 4096, len(image) - 4096 + 260)
        for at in {*range(0, signed.start, 53), *signed, *range(signed.stop + 4 + 9, len(image), 53)}:
            changed = bytearray(image)
            changed[at] ^= 0x80
            self.assertRaises(ModelError, check, bytes(changed), data, options)

    @unittest.skipUnless(shutil.which("veritysetup"), "veritysetup is not installed")
    def test_full_levels_equal_veritysetup(self):
        for digest, blocks in [("sha256", 16), ("sha256", 4096), ("sha512", 512)]:
            with self.subTest(digest=digest, blocks=blocks), tempfile.TemporaryDirectory() as folder:
                data = random.Random(blocks).randbytes(blocks * 512)
                Path(folder, "data").write_bytes(data)
                shown = subprocess.run(
                    ["veritysetup", "format", "--no-superblock", f"--hash={digest}", f"--salt={SALT.hex()}",
                     "--data-block-size=512", "--hash-block-size=512", "data", "tree"],
                    cwd=folder, check=True, capture_output=True, text=True).stdout
                model = expect(data, Options(digest, 512, salt=SALT))
                root = bytes.fromhex(re.search(r"Root hash:\s*(\w+)", shown)[1])
                self.assertEqual(model.signed[196:196 + len(root)], root)
                self.assertEqual(Path(folder, "tree").read_bytes(), model.tree)


class Blake3Test(unittest.TestCase):
    def test_reference_vectors(self):
        vectors = [  # of the bytes 0, 1, ..., 250, 0, 1, ...
            (0, "af1349b9f5f9a1a6a0404dea36dcc9499bcb25c9adc112b7cc9a93cae41f3262"),
            (1, "2d3adedff11b61f14c886e35afa036736dcd87a74d27b5c1510225d0f592e213"),
            (64, "4eed7141ea4a5cd4b788606bd23f46e212af9cacebacdc7d1f4c6dc7f2511b98"),
            (65, "de1e5fa0be70df6d2be8fffd0e99ceaa8eb6e8c93a63f2d8d1c30ecb6b263dee"),
            (1023, "10108970eeda3eb932baac1428c7a2163b0e924c9a9e25b35bba72b28f70bd11"),
            (1024, "42214739f095a406f3fc83deb889744ac00df831c10daa55189b5d121c855af7"),
            (1025, "d00278ae47eb27b34faecf67b4fe263f82d5412916c1ffd97c8cb7fb814b8444"),
            (3073, "7124b49501012f81cc7f11ca069ec9226cecb8a2c850cfe644e327d22d3e1cd3"),
            (5120, "9cadc15fed8b5d854562b26a9536d9707cadeda9b143978f319ab34230535833"),
            (32896, "d5986bc83b60e69dbedd85dd63ecb9ed663feada91e190f1bf8dcb2b535e85bb"),
        ]
        for length, digest in vectors:
            data = bytes(i % 251 for i in range(length))
            self.assertEqual(blake3(data).hex(), digest, length)


if __name__ == "__main__":
    unittest.main()
