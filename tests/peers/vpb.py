"""A second reader and writer of Quantel VPB files, from the layout alone.

Pictures are bytes, four a pixel: alpha, red, green, blue, the top row first. Plain loops, no library.
"""
import struct


class Damaged(Exception):
    pass


def clamp(value):
    return max(0, min(255, value >> 16))


def picture_record(header):
    """The value of the record with tag 16, found by the chain from the start."""
    at = 0
    while at + 3 <= 1024:
        tag, length = header[at], header[at + 2]
        if tag == 16:
            if at + 3 + 20 > 1024:
                raise Damaged("the picture record runs over the header")
            kind, _, width, height = struct.unpack_from(">4H", header, at + 3)
            offset, = struct.unpack_from(">I", header, at + 3 + 12)
            if kind == 16:
                return width, height, offset
        at += 3 + max(length, 1)
    raise Damaged("no picture record")


def read(data):
    """(width, height, picture) of a whole file."""
    if len(data) < 1024:
        raise Damaged("short")
    width, height, offset = picture_record(data[:1024])
    out = bytearray()
    at = 1024 + offset
    for _ in range(height):
        cb = cr = 0
        for x in range(width):
            chroma, luma = data[at] - 128, data[at + 1] << 16
            at += 2
            if x & 1:
                cr = chroma
            else:
                cb = chroma
            out += bytes((255, clamp(cr * 91881 + luma + 32767),
                          clamp((-cr * 23401 - cb * 11277) * 2 + luma + 32767),
                          clamp(cb * 116130 + luma + 32767)))
    return width, height, bytes(out)


def encode_rows(picture, width, height):
    """The bytes of the pixels as a writer stores them."""
    out = bytearray()
    for i in range(width * height):
        _, r, g, b = picture[4 * i:4 * i + 4]
        if (i % width) & 1:
            chroma = (r * 32768 - g * 27439 - b * 5329 + 0x807FFF) >> 16
        else:
            chroma = (b * 32768 - g * 21709 - r * 11059 + 0x807FFF) >> 16
        luma = (r * 19595 + g * 38470 + b * 7471 + 32767) >> 16
        out += bytes((chroma & 255, luma & 255))
    return bytes(out)


def random_file(rng):
    """A legal file with records of any kind in front of the picture record, and an offset to the pixels."""
    width, height = rng.randint(1, 40), rng.randint(1, 40)
    header = bytearray()
    while rng.random() < 0.7 and len(header) < 700:
        tag = rng.choice([2, 3, 4, 151, 152, 153, 200])
        value = rng.randbytes(rng.randint(0, 60))
        header += bytes((tag, rng.randint(0, 1), len(value))) + (value or b"\0")
    offset = rng.choice([0, 0, 4, 1024])
    header += bytes((16, 1, 20)) + struct.pack(">4H", 16, 0, width, height) + rng.randbytes(4)
    header += struct.pack(">II", offset, width * height * 2)
    header += b"\xff" * (1024 - len(header))
    data = bytes(header) + bytes(offset) + rng.randbytes(width * height * 2)
    return data + bytes(-len(data) % 1024)
