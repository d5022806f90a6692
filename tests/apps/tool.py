"""What the tests of the command-line tool share: how it is started, and films made byte by byte.

A test file is started as FILE KQCLIP [RUNNER]; RUNNER starts programs of another platform.
"""
import json
import os
import random
import struct
import subprocess
import sys
import tempfile
import unittest

import jsonschema

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "peers"))
import vpb

COMMAND: list = []
TREE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
with open(os.path.join(TREE, "docs", "kqclip.schema.json"), encoding="utf-8") as schema_file:
    SCHEMA = json.load(schema_file)
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)


def filmstrip(width, height, frames, rate=24, leading=16, seed=1, alpha=False):
    """A Filmstrip of random pictures, opaque or not; (bytes, [picture as red, green, blue, alpha])."""
    rng = random.Random(seed)
    pictures = []
    for _ in range(frames):
        pixels = [rng.randbytes(3) + (rng.randbytes(1) if alpha else b"\xff") for _ in range(width * height)]
        pictures.append(b"".join(pixels))
    return film_of(pictures, width, height, rate, leading), pictures


def film_of(pictures, width, height, rate=24, leading=16):
    """A Filmstrip of these pictures, each red, green, blue, alpha a pixel."""
    data = b"".join(picture + bytes(width * leading * 4) for picture in pictures) + bytes(width * leading * 4)
    return data + b"Rand" + struct.pack(">IHHHHHH", len(pictures), 0, 0, width, height, leading, rate) + bytes(16)


def pictures_of(data):
    """The pictures of a Filmstrip: (width, height, rate, [red, green, blue, alpha])."""
    count, _, _, width, height, leading, rate = struct.unpack(">IHHHHHH", data[-32:-16])
    step = width * (height + leading) * 4
    return width, height, rate, [data[i * step:i * step + width * height * 4] for i in range(count)]


def telecined_film(width=64, height=48):
    """32 pictures of a bright bar that moves, and the 40 that 3:2 pull-down of phase 1 makes of them, even rows first."""
    films = []
    for n in range(32):   # three pixels a frame
        row = b"".join((b"\xff" if (x - 3 * n) % width < 12 else b"\x20") * 3 + b"\xff" for x in range(width))
        films.append(row * height)
    video = []
    for n in range(0, 32, 4):   # A, B, C, then D above C, then the next A above D
        a, b, c, d = films[n:n + 4]
        after = films[n + 4] if n + 4 < 32 else d
        mix = lambda even, odd: b"".join((odd if y % 2 else even)[y * width * 4:(y + 1) * width * 4] for y in range(height))
        video += [a, b, c, mix(d, c), mix(after, d)]
    return films, video


def is_native():
    """Whether the tool is started without a runner."""
    return len(COMMAND) == 1


class ToolTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = os.getcwd()
        os.chdir(folder.name)
        self.addCleanup(os.chdir, self.home)

    # Modules that lie beside the program are there only where a test names them.
    @staticmethod
    def environment(**more):
        return {**os.environ, "KQCLIP_MODULES": "no-modules", **more}

    def run_tool(self, *arguments, code=0, **environment):
        done = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=120, stdin=subprocess.DEVNULL,
                              env=self.environment(**environment))
        self.assertEqual(done.returncode, code, (arguments, done.stdout, done.stderr))
        return [stream.decode().replace("\r\n", "\n") for stream in (done.stdout, done.stderr)]

    def run_json(self, *arguments, code=0, **environment):
        out, _ = self.run_tool(*arguments, "--json", code=code, **environment)
        answer = json.loads(out)
        VALIDATOR.validate(answer)
        self.assertEqual(answer["exitCode"], code)
        self.assertEqual(answer["ok"], code == 0)
        return answer

    def assert_fails(self, code, *arguments, exit_code=1, says=(), **environment):
        """Fails with this stable code, and with one line on standard error that holds the words of `says`."""
        answer = self.run_json(*arguments, code=exit_code, **environment)
        self.assertEqual(answer["error"]["code"], code)
        _, err = self.run_tool(*arguments, code=exit_code, **environment)
        self.assertEqual(err.count("\n"), 1, err)
        self.assertTrue(err.startswith("kqclip: "), err)
        for word in says:
            self.assertIn(word, err)

    def write(self, name, data):
        with open(name, "wb") as file:
            file.write(data)
        return name

    def read(self, name):
        with open(name, "rb") as file:
            return file.read()

    def film(self, name="a.flm", width=8, height=6, frames=5, **more):
        data, pictures = filmstrip(width, height, frames, **more)
        self.write(name, data)
        return pictures

    def still(self, name, width, height, seed=7):
        """A Quantel VPB of random pixels: the first that the generator makes of this size."""
        data, _ = filmstrip(width, height, 1, seed=seed)
        self.write("still.flm", data)
        self.run_tool("convert", "still.flm", name, "--overwrite")
        os.remove("still.flm")

    def stills(self, numbers, digits=4):
        for number in numbers:
            data = bytearray(vpb.random_file(random.Random(7)))
            self.write(f"shot.{number:0{digits}d}.vpb", data)


def main():
    COMMAND[:] = sys.argv[2:] + [os.path.abspath(sys.argv[1])]
    unittest.main(argv=sys.argv[:1])
