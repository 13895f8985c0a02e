"""BLAKE3 (the plain hash, 32 bytes) in the simplest way that is still bearable to run."""

import struct

IV = (0x6A09E667, 0xBB67AE85, 0x3C6EF372, 0xA54FF53A, 0x510E527F, 0x9B05688C, 0x1F83D9AB, 0x5BE0CD19)
PERMUTATION = (2, 6, 3, 10, 7, 0, 4, 13, 1, 11, 12, 5, 9, 14, 15, 8)
MIXED_WORDS = ((0, 4, 8, 12), (1, 5, 9, 13), (2, 6, 10, 14), (3, 7, 11, 15),
               (0, 5, 10, 15), (1, 6, 11, 12), (2, 7, 8, 13), (3, 4, 9, 14))
CHUNK_START, CHUNK_END, PARENT, ROOT = 1, 2, 4, 8
CHUNK_SIZE, BLOCK_SIZE = 1024, 64
MASK = 0xFFFFFFFF


def message_schedule():
    order = tuple(range(16))
    for _ in range(7):
        yield order
        order = tuple(order[i] for i in PERMUTATION)


ROUNDS = tuple(message_schedule())


def compress(value, block, counter, length, flags):
    """The new chaining value of one block of at most 64 bytes."""
    words = struct.unpack("<16I", block.ljust(BLOCK_SIZE, b"\0"))
    v = [*value, *IV[:4], counter & MASK, counter >> 32, length, flags]
    for order in ROUNDS:
        for step, (a, b, c, d) in enumerate(MIXED_WORDS):
            va, vb, vc, vd = v[a], v[b], v[c], v[d]
            va = (va + vb + words[order[2 * step]]) & MASK
            vd ^= va
            vd = (vd >> 16 | vd << 16) & MASK
            vc = (vc + vd) & MASK
            vb ^= vc
            vb = (vb >> 12 | vb << 20) & MASK
            va = (va + vb + words[order[2 * step + 1]]) & MASK
            vd ^= va
            vd = (vd >> 8 | vd << 24) & MASK
            vc = (vc + vd) & MASK
            vb ^= vc
            vb = (vb >> 7 | vb << 25) & MASK
            v[a], v[b], v[c], v[d] = va, vb, vc, vd
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
