"""A second reader and writer of ElectricImage files, from the layout alone.

Pictures are bytes, four a pixel: alpha, red, green, blue, the top row first. Plain loops, no library: slow and easy to
hold against docs/formats.md.
"""
import struct


class Damaged(Exception):
    pass


UNIT = {8: 1, 16: 2, 24: 3, 32: 4}


def row_bytes(bits, width):
    return {1: width // 8, 2: width // 4, 4: width // 2}.get(bits) if bits < 8 else width * UNIT[bits]


def unpack(data, unit, wanted):
    """Packets: a control byte below 128 repeats one value, any other is followed by that many values."""
    out = bytearray()
    at = 0
    while len(out) < wanted:
        control = data[at]
        at += 1
        count = (control & 127) + 1
        if control < 128:
            out += data[at:at + unit] * count
            at += unit
        else:
            out += data[at:at + unit * count]
            at += unit * count
    return bytes(out[:wanted])


def pixels_of(rows, bits, width, height, table):
    out = bytearray()
    stride = row_bytes(bits, width)
    for y in range(height):
        row = rows[y * stride:(y + 1) * stride]
        for x in range(width):
            if bits <= 8:
                per_byte = 8 // bits
                shift = 8 - bits * (x % per_byte + 1)
                index = row[x // per_byte] >> shift & ((1 << bits) - 1)
                out += b"\xff" + table[index * 3:index * 3 + 3]
            elif bits == 16:
                word = row[2 * x] << 8 | row[2 * x + 1]
                out += bytes((255, (word >> 10 & 31) << 3, (word >> 5 & 31) << 3, (word & 31) << 3))
            elif bits == 24:
                out += b"\xff" + row[3 * x:3 * x + 3]
            else:
                out += row[4 * x:4 * x + 4]
    return bytes(out)


def read(data):
    """(width, height, bits, rate or None, [picture, ...]) of a whole file."""
    version, frames = struct.unpack_from(">HI", data, 0)
    at = 6
    pictures = []
    times = []
    shape = None
    for _ in range(frames):
        (time, top, left, bottom, right, depth, indexed, _, _, _, _, packed, alpha, length, colours, index) = \
            struct.unpack_from(">f4hBB4hBBIHh", data, at)
        if depth not in (1, 2, 4, 8, 16, 24) or indexed > 1 or packed > 1:
            raise Damaged("header")
        if not (alpha == 0 or (alpha == 8 and depth == 24)) or not 1 <= colours <= 256 or index >= colours:
            raise Damaged("header")
        table = data[at + 32:at + 32 + colours * 3]
        body = data[at + 32 + colours * 3:at + 32 + colours * 3 + length]
        bits, width, height = depth + alpha, right - left, bottom - top
        wanted = row_bytes(bits, width) * height
        rows = unpack(body, UNIT.get(bits, 1), wanted) if packed else body[:wanted]
        pictures.append(pixels_of(rows, bits, width, height, table))
        shape = shape or (width, height, bits)
        times.append(time)
        at += 32 + colours * 3 + length
    rate = None
    if len(times) > 1 and times[-1] - times[-2] > 0:
        rate = 1.0 / (times[-1] - times[-2])
    return (*shape, rate, pictures)


def pack_at_random(values, rng):
    """Any legal packets: runs and literals of any length, over row ends, runs of unlike length for equal values."""
    out = bytearray()
    at = 0
    while at < len(values):
        equal = 1
        while at + equal < len(values) and equal < 128 and values[at + equal] == values[at]:
            equal += 1
        if equal > 1 and rng.random() < 0.8 or rng.random() < 0.1:
            count = rng.randint(1, equal)
            out.append(count - 1)
            out += values[at]
        else:
            count = rng.randint(1, min(128, len(values) - at))
            out.append(128 + count - 1)
            for value in values[at:at + count]:
                out += value
        at += count
    return bytes(out)


def random_file(rng):
    """A legal file of any depth; (bytes, rate of its time stamps)."""
    bits = rng.choice([1, 2, 4, 8, 16, 24, 32])
    per_byte = 8 // bits if bits < 8 else 1
    width = per_byte * rng.randint(1, 24)
    height = rng.randint(1, 12)
    frames = rng.randint(1, 3)
    rate = rng.choice([10.0, 25.0, 30.0])
    unit = UNIT.get(bits, 1)
    data = bytearray(struct.pack(">HI", 5, frames))
    for frame in range(frames):
        colours = 256 if bits == 8 else rng.choice([16, 200, 256]) if bits < 8 else 1
        packed = rng.randint(0, 1)
        palette = [rng.randbytes(unit) for _ in range(rng.randint(1, 6))]
        values = []
        count = row_bytes(bits, width) * height // unit
        while len(values) < count:
            value = rng.choice(palette) if rng.random() < 0.7 else rng.randbytes(unit)
            values += [value] * rng.choice([1, 1, 2, 3, 5, 130, 300])
        values = values[:count]
        body = pack_at_random(values, rng) if packed else b"".join(values)
        data += struct.pack(">f4hBB4hBBIHh", frame / rate, 0, 0, height, width, 24 if bits == 32 else bits,
                            int(bits < 9), 0, 0, height, width, packed, 8 if bits == 32 else 0, len(body), colours, 0)
        data += rng.randbytes(colours * 3) + body
    return bytes(data)
