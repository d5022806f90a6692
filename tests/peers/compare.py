"""Holds the library's ElectricImage and VPB modules against the decoders of this folder, on random files each way.

    compare.py ROUNDTRIP [--count N] [--seed S] [--runner PROGRAM]

Our files are read by the library, and what the library writes is read here; every frame must be equal byte for byte.
"""
import argparse
import os
import random
import subprocess
import sys
import tempfile

import eidi
import vpb


class Tool:
    def __init__(self, command):
        self.command = command

    def run(self, *arguments):
        done = subprocess.run([*self.command, *arguments], capture_output=True, timeout=120)
        if done.returncode != 0:
            sys.exit(f"roundtrip {' '.join(arguments)}: exit {done.returncode}: {done.stderr.decode()}")
        return done.stdout.decode().split()

    def read(self, path):
        """(width, height, depth, rate, bytes of all frames)"""
        width, height, depth, _, rate = self.run("read", path, "frames.raw")
        with open("frames.raw", "rb") as file:
            return int(width), int(height), int(depth), float(rate), file.read()

    def write(self, path, frames, width, height, **options):
        with open("frames.raw", "wb") as file:
            file.write(frames)
        if os.path.exists(path):
            os.remove(path)
        self.run("write", path, "frames.raw", str(width), str(height), *[f"{k}={v}" for k, v in options.items()])
        with open(path, "rb") as file:
            return file.read()


def expect(what, seed, ours, theirs):
    if ours != theirs:
        at = next((i for i in range(min(len(ours), len(theirs))) if ours[i] != theirs[i]), min(len(ours), len(theirs)))
        sys.exit(f"{what}, seed {seed}: {len(ours)} and {len(theirs)} bytes, first difference at {at}")


def library_reads_electricimage(tool, rng, seed):
    data = eidi.random_file(rng)
    with open("a.ei", "wb") as file:
        file.write(data)
    width, height, bits, rate, pictures = eidi.read(data)
    got = tool.read("a.ei")
    expect("size of an ElectricImage file", seed, bytes(str((width, height, bits)), "ascii"),
           bytes(str(got[:3]), "ascii"))
    if rate is not None and abs(got[3] - rate) > 1e-6 * rate:
        sys.exit(f"rate of an ElectricImage file, seed {seed}: {got[3]}, not {rate}")
    expect("frames of an ElectricImage file", seed, got[4], b"".join(pictures))


def library_reads_vpb(tool, rng, seed):
    data = vpb.random_file(rng)
    with open("a.vpb", "wb") as file:
        file.write(data)
    width, height, picture = vpb.read(data)
    got = tool.read("a.vpb")
    expect("size of a VPB file", seed, bytes(str((width, height)), "ascii"), bytes(str(got[:2]), "ascii"))
    expect("picture of a VPB file", seed, got[4], picture)


def random_picture(rng, width, height):
    """Runs of equal pixels and noise, so that packers have something to pack."""
    pixels = []
    while len(pixels) < width * height:
        pixels += [rng.randbytes(4)] * rng.choice([1, 1, 2, 3, 4, 5, 7, 130])
    return b"".join(pixels[:width * height])


def as_stored(picture, alpha):
    """The pixels that come back: without alpha opaque, of a grey matte the alpha as grey."""
    out = bytearray()
    for i in range(0, len(picture), 4):
        a, r, g, b = picture[i:i + 4]
        out += bytes((a, r, g, b) if alpha == 2 else (255, r, g, b) if alpha == 0 else (255, a, a, a))
    return bytes(out)


def library_writes_electricimage(tool, rng, seed):
    width, height, frames = rng.randint(1, 40), rng.randint(1, 20), rng.randint(1, 3)
    pictures = [random_picture(rng, width, height) for _ in range(frames)]
    alpha, pack = rng.randint(0, 2), rng.randint(0, 1)
    data = tool.write("b.ei", b"".join(pictures), width, height, rate=25, alpha=alpha, premultiplied=0, pack=pack)
    got = eidi.read(data)
    expect("size written as ElectricImage", seed, bytes(str(got[:3]), "ascii"),
           bytes(str((width, height, {0: 24, 1: 8, 2: 32}[alpha])), "ascii"))
    expect("frames written as ElectricImage", seed, b"".join(got[4]),
           b"".join(as_stored(picture, alpha) for picture in pictures))


def library_writes_vpb(tool, rng, seed):
    width, height = rng.randint(1, 40), rng.randint(1, 40)
    picture = random_picture(rng, width, height)
    data = tool.write("b.vpb", picture, width, height, alpha=0, premultiplied=0)
    if len(data) % 1024 != 0:
        sys.exit(f"a VPB file of {len(data)} bytes, seed {seed}")
    expect("size written as VPB", seed, bytes(str(vpb.read(data)[:2]), "ascii"), bytes(str((width, height)), "ascii"))
    expect("pixels written as VPB", seed, data[1024:1024 + width * height * 2], vpb.encode_rows(picture, width, height))


ROADS = (library_reads_electricimage, library_reads_vpb, library_writes_electricimage, library_writes_vpb)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("roundtrip")
    parser.add_argument("--count", type=int, default=500, help="files on each road")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--runner")
    options = parser.parse_args()
    runner = [options.runner] if options.runner else []
    tool = Tool([*runner, os.path.abspath(options.roundtrip)])
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for road in ROADS:
            for i in range(options.count):
                seed = options.seed + i
                road(tool, random.Random(seed), seed)
            print(f"{road.__name__}: {options.count} files agree (seeds from {options.seed})")
        os.chdir(os.sep)


if __name__ == "__main__":
    main()
