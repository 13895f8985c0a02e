#!/usr/bin/env python3
"""What ttdinfo proves, plans and draws: verify_test.py PROGRAM_FOLDER"""

import json
import os
import re
import subprocess
import sys
import tempfile
import zlib
from pathlib import Path

DATA = Path(__file__).resolve().parent.parent / "data"
BIN = Path(sys.argv[1]).resolve()
os.environ.update(PATH=f"{BIN}:{os.environ['PATH']}", D=str(DATA), TERM="xterm")
SIZE, LEAVES = 33280, 33792  # of img: 65 blocks of 512 bytes, behind them 1 + 5 hash blocks of 16 hashes
failures = 0


def check(rule, holds, seen):
    global failures
    if not holds:
        failures += 1
        print(f"FAILED: {rule}: {seen}")


def shell(command):
    done = subprocess.run(["bash", "-c", command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode, done.stdout


def on_terminal(columns, command):
    return shell(f"script -qec 'stty cols {columns}; {command}' /dev/null </dev/null")[1]  # with \n for \r


def spoil(name, *offsets):
    image = bytearray(Path("img").read_bytes())
    for offset in offsets:
        image[offset] ^= 1
    Path(name).write_bytes(image)


def ranges(array):
    return [(r["level"], r["offset"], r["length"], r["blocks"]) for r in array]


# Status, pattern of what is printed, arguments.
ROWS = r"""
0 ## img: proven: 65 blocks, .*ed25519.pub.pem\npart: proven: 65 .*rsa.pub.pem\n$ ## verify --key $D/rsa.pub.pem --key $D/ed25519.pub.pem img part
0 ## signature by \S*rsa.pub.pem\n$ ## verify --key $D/rsa_other.pub.pem --key $D/rsa.pub.pem part
0 ## img: proven.*\nimg: proven.*\n$ ## verify --key <(cat $D/ed25519.pub.pem) img img
61 ## img: NOT PROVEN: the signature was not checked; the 65 blocks agree with the root hash\n$ ## verify --without-signature-check img
22 ## NOT PROVEN: no key proves the signature; the 65 blocks agree .*; signature bad\n$ ## verify --key $D/rsa.pub.pem img
22 ## violation .*\(0 < 8\); .*signature good ## verify --min-rollback 8 --key $D/ed25519.pub.pem img
2 ## none: NOT PROVEN: No such file .*\nin: NOT PROVEN: not a ttd.*\nimg: proven ## verify --key $D/ed25519.pub.pem none in img
22 ## in: no PEM public key of a known ## verify --key in img
2 ## none: No such file ## verify --key none img
5 ## blocks not proven: 1 of 65; the first damage is at byte 1024; signature good \( ## verify --key $D/ed25519.pub.pem bad
1 ## either --key or ## verify --key none --without-signature-check img
1 ## belongs to ## key none img
0 ## cold:   8 data blocks, 3 hash blocks, 5632 ## plan 1m --block 512 --digest sha256
0 ## tree size: +1074823168 .*image size: +1100586455040 ## plan 1T --block 32K --digest sha256
28 ## fits: +no\n.* -P: +1032192 .* -P: +1032192 ## plan 1M --block 4K --digest sha256 --partition 1M
0 ## fits: +yes\n ## plan 1032192 --block 4K --digest sha256 --partition 1M
27 ## no hash tree ## plan 16T --block 4096 --digest sha256
22 ## not a multiple ## plan 4097 --block 4096 --digest sha256
1 ## power of two ## plan 1M --block 4097 --digest sha256
1 ## unknown digest ## plan 1M --block 4096 --digest md5
"""
DAMAGE = [  # rule, status, offsets of wrong bytes, ranges that are damaged and that are not proven
    ("neighbours", 5, [0, 600, 1024, 5000], [(None, 0, 1536, 3), (None, 4608, 512, 1)], [(None, 0, 1536, 3), (None, 4608, 512, 1)]),
    ("the last block", 5, [SIZE - 1], [(None, SIZE - 512, 512, 1)], [(None, SIZE - 512, 512, 1)]),
    ("a leaf", 5, [8192, LEAVES + 512], [(0, LEAVES + 512, 512, 1)], [(None, 8192, 8192, 16)]),
    ("the root", 5, [SIZE], [(1, SIZE, 512, 1)], [(None, 0, SIZE, 65)]),
    ("areas outside", 22, None, [(None, 4096, 29184, 57), (1, SIZE, 512, 1), (0, LEAVES, 2560, 5)], [(None, 0, SIZE, 65)])]

LAYOUTS = {40: 3869788722, 41: 401304829, 79: 2660665285, 200: 1712860543}  # columns: checksum of the picture


def damage():
    verify = "ttdinfo --verify --json --key $D/ed25519.pub.pem bad"
    for rule, status, offsets, damaged, unproven in DAMAGE:
        spoil("bad", *offsets) if offsets else Path("bad").write_bytes(Path("img").read_bytes()[-4096:])
        result = shell(verify + " img")
        bad, img = json.loads(result[1])["images"]
        blocks = bad["blocks"]
        found = (result[0], ranges(blocks["damaged"]), ranges(blocks["unproven"]), bad["proven"], img["proven"])
        check(rule, found == (status, damaged, unproven, False, True), found)
        check(rule, blocks["unproven_blocks"] == sum(r[3] for r in unproven), blocks)
    spoil("bad")
    failing = "ASAN_OPTIONS=detect_leaks=0 strace -qq -o /dev/null -P $PWD/bad -e inject=pread64:error=EIO:when="
    for when, damaged in [("2..4", [(None, 0, 1024, 2)]), ("3..4", [(1, SIZE, 512, 1)]), ("2..8+6", [(None, 2560, 512, 1)])]:
        blocks = json.loads(shell(f"{failing}{when} {verify}")[1])["images"][0]["blocks"]
        check(f"failing reads {when}", ranges(blocks["damaged"]) == damaged and blocks["unproven_blocks"] > 0, blocks)


def screens():
    for columns, checksum in LAYOUTS.items():
        seen = on_terminal(columns, "ttdinfo part").split("Layout\n")[1]
        check(f"layout at {columns}", zlib.crc32(seen.encode()) == checksum, seen)
    check("too narrow", "Layout" not in on_terminal(39, "ttdinfo img"), "")
    spoil("bad", 0, LEAVES + 512)
    seen = on_terminal(44, "ttdinfo --verify --without-signature-check bad")
    check("map", re.search(r"\n  \[#\.{7}-{9}\.{16}##\.{5}\]\n.*\n  data    512 B .* 0\n  level 0 512 B .* 34304\n", seen), seen)
    spoil("bad", *range(0, SIZE, 1536))
    seen = on_terminal(44, "ttdinfo --verify --without-signature-check bad")
    check("places", len(re.findall("512 B at byte", seen)) == 8 and seen.endswith(" 10752\n  and 14 more, see --json\n"), seen)
    slow = "ASAN_OPTIONS=detect_leaks=0 strace -qq -o /dev/null -P $PWD/img -e inject=pread64:delay_enter=1200000:when=2 ttdinfo --verify"
    seen = on_terminal(80, slow + " --key $D/ed25519.pub.pem img")
    check("progress", re.match(r"\n\x1b\[K100%  .* left\n\x1b\[Kimg: proven", seen), seen)


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    Path("in").write_bytes(b"x" * SIZE)
    check("build", shell("""mktfs ttd -H sha256 -B 512 -S eddsa-25519 -K $D/ed25519.pem -o img in &&
        mktfs ttd -H sha256 -B 512 -S rsa-sha256 -K $D/rsa.pem -P 65536 -o part in""")[0] == 0, "")
    spoil("bad", 1024)
    for row in ROWS.strip().split("\n"):
        expected, pattern, arguments = row.split(" ## ")
        outcome = shell(f"ttdinfo --{arguments}")
        check(row, outcome[0] == int(expected) and re.search(pattern, outcome[1], re.S), outcome)
    damage()
    screens()
print(f"ttdinfo: {failures} failed")
sys.exit(1 if failures else 0)
