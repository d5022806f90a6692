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
    """The program that has the library read and write: all the work of a road in one run."""

    def __init__(self, command):
        self.command = command

    def run(self, lines):
        with open("list", "w") as file:
            file.writelines(line + "\n" for line in lines)
        done = subprocess.run([*self.command, "batch", "list"], capture_output=True, timeout=300)
        if done.returncode != 0:
            sys.exit(f"roundtrip: exit {done.returncode}: {done.stderr.decode()}")
        return done.stdout.decode().splitlines()

    def read(self, files):
        """For each file's bytes: (width, height, depth, rate, bytes of all frames)."""
        for i, (name, data) in enumerate(files):
            put(f"{i}{name}", data)
        results = self.run(f"read {i}{name} {i}.raw" for i, (name, _) in enumerate(files))
        for i, line in enumerate(results):
            width, height, depth, _, rate = line.split()
            yield int(width), int(height), int(depth), float(rate), get(f"{i}.raw")

    def write(self, jobs):
        """For each (name, bytes of all frames, width, height, options): the file's bytes."""
        lines = []
        for i, (name, frames, width, height, options) in enumerate(jobs):
            put(f"{i}.raw", frames)
            words = [f"{key}={value}" for key, value in options.items()]
            lines.append(" ".join(["write", f"{i}{name}", f"{i}.raw", str(width), str(height), *words]))
        self.run(lines)
        for i, job in enumerate(jobs):
            yield get(f"{i}{job[0]}")


def put(path, data):
    with open(path, "wb") as file:
        file.write(data)


def get(path):
    with open(path, "rb") as file:
        return file.read()


def expect(what, seed, ours, theirs):
    if ours == theirs:
        return
    if not isinstance(ours, bytes):
        sys.exit(f"{what}, seed {seed}: {ours}, not {theirs}")
    at = next((i for i in range(min(len(ours), len(theirs))) if ours[i] != theirs[i]), min(len(ours), len(theirs)))
    sys.exit(f"{what}, seed {seed}: {len(ours)} and {len(theirs)} bytes, first difference at {at}")


def library_reads_electricimage(tool, seeds):
    files = [("a.ei", eidi.random_file(random.Random(seed))) for seed in seeds]
    for seed, (_, data), got in zip(seeds, files, tool.read(files), strict=True):
        *size, rate, pictures = eidi.read(data)
        expect("size of an ElectricImage file", seed, list(got[:3]), size)
        if rate is not None and abs(got[3] - rate) > 1e-6 * rate:
            sys.exit(f"rate of an ElectricImage file, seed {seed}: {got[3]}, not {rate}")
        expect("frames of an ElectricImage file", seed, got[4], b"".join(pictures))


def library_reads_vpb(tool, seeds):
    files = [("a.vpb", vpb.random_file(random.Random(seed))) for seed in seeds]
    for seed, (_, data), got in zip(seeds, files, tool.read(files), strict=True):
        width, height, picture = vpb.read(data)
        expect("size of a VPB file", seed, got[:2], (width, height))
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


def library_writes_electricimage(tool, seeds):
    jobs, pictures = [], []
    for seed in seeds:
        rng = random.Random(seed)
        width, height, frames = rng.randint(1, 40), rng.randint(1, 20), rng.randint(1, 3)
        pictures.append([random_picture(rng, width, height) for _ in range(frames)])
        options = {"rate": 25, "alpha": rng.randint(0, 2), "premultiplied": 0, "pack": rng.randint(0, 1)}
        jobs.append(("b.ei", b"".join(pictures[-1]), width, height, options))
    for seed, job, kept, data in zip(seeds, jobs, pictures, tool.write(jobs), strict=True):
        alpha = job[4]["alpha"]
        got = eidi.read(data)
        expect("size written as ElectricImage", seed, got[:3], (job[2], job[3], {0: 24, 1: 8, 2: 32}[alpha]))
        expect("frames written as ElectricImage", seed, b"".join(got[4]),
               b"".join(as_stored(picture, alpha) for picture in kept))


def library_writes_vpb(tool, seeds):
    jobs = []
    for seed in seeds:
        rng = random.Random(seed)
        width, height = rng.randint(1, 40), rng.randint(1, 40)
        jobs.append(("b.vpb", random_picture(rng, width, height), width, height, {"alpha": 0, "premultiplied": 0}))
    for seed, (_, picture, width, height, _), data in zip(seeds, jobs, tool.write(jobs), strict=True):
        if len(data) % 1024 != 0:
            sys.exit(f"a VPB file of {len(data)} bytes, seed {seed}")
        expect("size written as VPB", seed, vpb.read(data)[:2], (width, height))
        expect("pixels written as VPB", seed, data[1024:1024 + width * height * 2],
               vpb.encode_rows(picture, width, height))


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
    seeds = range(options.seed, options.seed + options.count)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for road in ROADS:
            road(tool, seeds)
            print(f"{road.__name__}: {options.count} files agree (seeds from {options.seed})")
        os.chdir(os.sep)


if __name__ == "__main__":
    main()
