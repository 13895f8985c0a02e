"""BLAKE3 (the plain hash, 32 bytes) in the simplest way that is still bearable to run."""

import struct

IV = (0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A, 0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19)
PERMUTATION = (2, 6, 3, 10, 7, 0, 4, 13, 1, 11, 12, 5, 9, 14, 15, 8)
MIXED_WORDS = ((0, 4, 8, 12), (1, 5, 9, 13), (2, 6, 10, 14), (3, 7, 11, 15),
               (0, 5, 10, 15), (1, 6, 11, 12), (2, 7, 8, 13), (3, 4, 9, 14))
CHUNK_START, CHUNK_END, PARENT, ROOT = 1, 2, 4, 8
CHUNK_SIZE, BLOCK_SIZE = 1024, 64
MASK = 0xFFFFFFFF


ROUNDS = [tuple(range(16))]
while len(ROUNDS) < 7:
    ROUNDS.append(tuple(ROUNDS[-1][i] for i in PERMUTATION))


def rotated(word, right):
    return (word >> right | word << 32 - right) & MASK


def compress(value, block, counter, length, flags):
    """The new chaining value of one block of at most 64 bytes."""
    words = struct.unpack("<16I", block.ljust(BLOCK_SIZE, b"\0"))
    v = [*value, *IV[:4], counter & MASK, counter >> 32, length, flags]
    for order in ROUNDS:
        for step, (a, b, c, d) in enumerate(MIXED_WORDS):
            for word, (first, second) in enumerate([(16, 12), (8, 7)]):
                v[a] = (v[a] + v[b] + words[order[2 * step + word]]) & MASK
                v[d] = rotated(v[d] ^ v[a], first)
                v[c] = (v[c] + v[d]) & MASK
                v[b] = rotated(v[b] ^ v[c], second)
    return [low ^ high for low, high in zip(v[:8], v[8:])]


def chunk_value(chunk, counter, root):
    value = IV
    last = max(len(chunk) - 1, 0) // BLOCK_SIZE
    for i in range(last + 1):
        block = chunk[i * BLOCK_SIZE:(i + 1) * BLOCK_SIZE]
        flags = (CHUNK_START if i == 0 else 0) | (CHUNK_END | root if i == last else 0)
        value = compress(value, block, counter, len(block), flags)
    return value


def subtree_value(data, counter, root):
    if len(data) <= CHUNK_SIZE:
        return chunk_value(data, counter, root)
    chunks = (len(data) - 1) // CHUNK_SIZE  # the left half is the largest power of two that leaves a rest
    left = 1 << (chunks.bit_length() - 1)
    children = (subtree_value(data[:left * CHUNK_SIZE], counter, 0)
                + subtree_value(data[left * CHUNK_SIZE:], counter + left, 0))
    return compress(IV, struct.pack("<16I", *children), 0, BLOCK_SIZE, PARENT | root)


def blake3(data):
    return struct.pack("<8I", *subtree_value(data, 0, ROOT))
