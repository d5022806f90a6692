"""Tests of the command-line tool: what it prints, writes and answers, on files made here byte by byte.

    kqclip_test.py KQCLIP [RUNNER]     RUNNER starts programs of another platform
"""
import json
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "peers"))
import vpb

COMMAND: list = []


def filmstrip(width, height, frames, rate=24, leading=16, seed=1):
    """A Filmstrip of random opaque pictures; (bytes, [picture as red, green, blue, alpha])."""
    rng = random.Random(seed)
    pictures = []
    data = b""
    for _ in range(frames):
        picture = b"".join(rng.randbytes(3) + b"\xff" for _ in range(width * height))
        pictures.append(picture)
        data += picture + bytes(width * leading * 4)
    data += bytes(width * leading * 4)
    trailer = b"Rand" + struct.pack(">IHHHHHH", frames, 0, 0, width, height, leading, rate) + bytes(16)
    return data + trailer, pictures


class KqclipTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.home = os.getcwd()
        os.chdir(folder.name)
        self.addCleanup(os.chdir, self.home)

    def run_tool(self, *arguments, code=0, **environment):
        # Modules that lie beside the program are there only where a test names them.
        environment = {**os.environ, "KQCLIP_MODULES": "no-modules", **environment}
        done = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=120, stdin=subprocess.DEVNULL,
                              env=environment)
        self.assertEqual(done.returncode, code, (arguments, done.stdout, done.stderr))
        return [stream.decode().replace("\r\n", "\n") for stream in (done.stdout, done.stderr)]

    def run_json(self, *arguments, code=0):
        out, _ = self.run_tool(*arguments, "--json", code=code)
        answer = json.loads(out)
        self.assertEqual(answer["exitCode"], code)
        self.assertEqual(answer["ok"], code == 0)
        return answer

    def write(self, name, data):
        with open(name, "wb") as file:
            file.write(data)
        return name

    def film(self, name="a.flm", width=8, height=6, frames=5, **more):
        data, pictures = filmstrip(width, height, frames, **more)
        self.write(name, data)
        return pictures

    def stills(self, numbers, digits=4):
        for number in numbers:
            data = bytearray(vpb.random_file(random.Random(7)))
            self.write(f"shot.{number:0{digits}d}.vpb", data)

    # What is in a clip.

    def test_info_tells_format_size_frames_and_rate(self):
        self.film(width=16, height=12, frames=3, rate=25)
        out, err = self.run_tool("info", "a.flm")
        self.assertRegex(out, r"format: +Filmstrip")
        self.assertRegex(out, r"size: +16 x 12 pixels")
        self.assertRegex(out, r"frames: +3\n")
        self.assertRegex(out, r"rate: +25 frames a second")
        self.assertRegex(out, r"length: +0\.120 seconds")
        self.assertEqual(err, "")

    def test_info_json_tells_the_same(self):
        self.film(width=16, height=12, frames=3, rate=25)
        clip = self.run_json("info", "a.flm")["input"]
        self.assertEqual((clip["format"], clip["width"], clip["height"], clip["frames"], clip["rate"]),
                         ("Filmstrip", 16, 12, 3, 25.0))
        self.assertEqual(clip["alpha"]["source"], "guessed")

    def test_formats_lists_the_modules_that_read_and_write(self):
        names = {module["name"]: module for module in self.run_json("formats")["formats"]}
        for name, extension in (("Filmstrip", "flm"), ("ElectricImage", "ei"), ("Quantel VPB", "vpb")):
            self.assertEqual(names[name]["extensions"], [extension])
            self.assertTrue(names[name]["reads"] and names[name]["writes"])

    def test_a_module_in_a_file_of_its_own_is_used(self):
        folder = os.path.join(os.path.dirname(COMMAND[-1]), "modules")
        shutil.copyfile(os.path.join(folder, "example.ifm"), "example.ifm")
        names = {module["name"]: module for module in self.run_json("formats", "--modules", ".")["formats"]}
        built_in = {module["name"] for module in self.run_json("formats")["formats"]}
        added = [module for name, module in names.items() if name not in built_in]
        self.assertEqual(len(added), 1, names)
        extension = added[0]["extensions"][0]
        self.film(frames=1)
        self.run_tool("convert", "a.flm", f"b.{extension}", "--modules", ".")
        self.assertTrue(self.run_json("compare", "a.flm", f"b.{extension}", "--modules", ".")["comparison"]["equal"])

    # Failures: one line, a stable code, no crash.

    def assert_fails(self, code, *arguments, exit_code=1):
        answer = self.run_json(*arguments, code=exit_code)
        self.assertEqual(answer["error"]["code"], code)
        _, err = self.run_tool(*arguments, code=exit_code)
        self.assertEqual(err.count("\n"), 1, err)
        self.assertTrue(err.startswith("kqclip: "), err)

    def test_a_missing_file_is_not_found(self):
        self.assert_fails("not-found", "info", "none.flm")

    def test_an_unknown_extension_is_told(self):
        self.write("a.xyz", b"abc")
        self.assert_fails("unknown-format", "info", "a.xyz")

    def test_a_damaged_film_is_told(self):
        self.write("a.flm", bytes(100))
        self.assert_fails("damaged", "info", "a.flm")

    def test_a_folder_without_frames_is_told(self):
        os.mkdir("empty")
        self.assert_fails("no-frames", "info", "empty")

    def test_a_pattern_without_files_is_told(self):
        self.assert_fails("not-found", "info", "shot.####.vpb")

    def test_wrong_use_exits_2(self):
        self.run_tool(code=2)
        self.run_tool("nothing", code=2)
        self.run_tool("info", code=2)
        self.film()
        self.run_tool("sheet", "a.flm", "o.png", "--columns", "0", code=2)
        self.assert_fails("wrong-use", "info", "a.flm", "--frames", "1-x", exit_code=2)

    def test_help_and_version_exit_0(self):
        self.assertIn("convert", self.run_tool("--help")[0])
        self.assertIn("kqclip", self.run_tool("--version")[0])
        self.assertIn("--missing", self.run_tool("convert", "--help")[0])

    # Frames, gaps and policies.

    def test_frame_lists_choose_frames(self):
        self.film(frames=12)
        for text, wanted in (("1-3", 3), ("0-10x5", 3), ("1,5,9", 3), ("9-7", 3), ("2", 1)):
            answer = self.run_json("convert", "a.flm", "b.flm", "--frames", text, "--dry-run")
            self.assertEqual(answer["output"]["frames"], wanted, text)

    def test_negative_numbers_are_numbers(self):
        self.film()
        answer = self.run_json("convert", "a.flm", "b.flm", "--frames", "-10--5", code=1)
        self.assertEqual(answer["error"]["code"], "missing-frames")

    def test_a_gap_is_shown_and_is_not_exit_0(self):
        self.stills([1, 2, 4])
        answer = self.run_json("info", "shot.####.vpb", code=3)
        self.assertEqual(answer["input"]["numbers"], {"first": 1, "last": 4, "present": "1-2,4", "missing": "3"})

    def test_every_form_of_a_pattern_is_read(self):
        self.stills([1, 2, 3])
        for pattern in ("shot.[####].vpb", "shot.####.vpb", "shot.%04d.vpb", "shot.@@@@.vpb", "shot.0002.vpb", "."):
            self.assertEqual(self.run_json("info", pattern)["input"]["frames"], 3, pattern)

    def test_policies_for_missing_frames(self):
        self.stills([1, 2, 4])
        self.assert_fails("missing-frames", "convert", "shot.####.vpb", "o.flm")
        for policy, frames in (("hold", 4), ("nearest", 4), ("black", 4), ("skip", 3)):
            answer = self.run_json("convert", "shot.####.vpb", f"{policy}.flm", "--missing", policy, code=3)
            self.assertEqual(answer["missing"], "3")
            self.assertEqual(self.run_json("info", f"{policy}.flm")["input"]["frames"], frames)

    # Pictures and conversions.

    def test_sheet_writes_a_png_of_the_asked_columns(self):
        self.film(frames=5)
        answer = self.run_json("sheet", "a.flm", "o.png", "--columns", "2", "--cell", "40x30")
        with open("o.png", "rb") as file:
            head = file.read(24)
        self.assertEqual(head[:8], b"\x89PNG\r\n\x1a\n")
        self.assertEqual(struct.unpack(">II", head[16:24]), (answer["output"]["width"], answer["output"]["height"]))
        self.assertEqual(answer["output"]["columns"], 2)
        self.assertEqual(os.listdir("."), ["a.flm", "o.png"] if os.listdir(".")[0] == "a.flm" else ["o.png", "a.flm"])

    def test_a_film_survives_every_lossless_road(self):
        self.film(frames=4)
        self.run_tool("convert", "a.flm", "b.ei")
        self.run_tool("convert", "b.ei", "c.flm")
        self.assertTrue(self.run_json("compare", "a.flm", "b.ei")["comparison"]["equal"])
        self.assertTrue(self.run_json("compare", "a.flm", "c.flm")["comparison"]["equal"])

    def test_a_film_becomes_a_numbered_sequence(self):
        self.film(frames=3)
        self.run_tool("convert", "a.flm", "s.###.vpb", "--start", "98")
        self.assertEqual(sorted(name for name in os.listdir(".") if name.startswith("s.")),
                         ["s.098.vpb", "s.099.vpb", "s.100.vpb"])
        with open("s.098.vpb", "rb") as file:
            self.assertEqual(vpb.read(file.read())[:2], (8, 6))

    def test_a_number_must_fit_its_digits(self):
        self.film(frames=3)
        self.assert_fails("wrong-use", "convert", "a.flm", "s.##.vpb", "--start", "98", exit_code=2)
        self.assertEqual(os.listdir("."), ["a.flm"])

    def test_what_exists_is_replaced_only_when_asked(self):
        self.film()
        self.write("b.ei", b"old")
        self.assert_fails("exists", "convert", "a.flm", "b.ei")
        with open("b.ei", "rb") as file:
            self.assertEqual(file.read(), b"old")
        self.run_tool("convert", "a.flm", "b.ei", "--overwrite")
        self.assertEqual(self.run_json("info", "b.ei")["input"]["frames"], 5)

    def test_a_failed_conversion_leaves_nothing_behind(self):
        data, _ = filmstrip(8, 6, 3)
        self.write("a.flm", data)
        self.write("b.ei", b"old")
        self.run_tool("convert", "a.flm", "b.ei", "--overwrite", "--frames", "0-9", code=1)
        self.assertEqual(sorted(os.listdir(".")), ["a.flm", "b.ei"])
        with open("b.ei", "rb") as file:
            self.assertEqual(file.read(), b"old")

    def test_a_frame_cut_by_the_end_of_the_file_is_damage(self):
        data, _ = filmstrip(8, 6, 3)
        self.write("a.flm", data[8 * 22 * 4 * 2:])   # the trailer stands, the frames before it do not
        self.run_tool("convert", "a.flm", "b.ei", "--frames", "2", code=3)

    def test_compare_tells_the_first_frame_that_differs(self):
        self.film("a.flm", frames=4)
        data, _ = filmstrip(8, 6, 4)
        changed = bytearray(data)
        changed[8 * 22 * 4 * 2] ^= 8   # red of the first pixel of frame 2
        self.write("b.flm", changed)
        comparison = self.run_json("compare", "a.flm", "b.flm", code=4)["comparison"]
        self.assertEqual(comparison["firstDifferent"], 2)
        self.assertEqual(comparison["channels"]["red"]["largest"], 8)
        self.assertEqual(comparison["channels"]["blue"]["largest"], 0)
        self.run_tool("compare", "a.flm", "b.flm", "--tolerance", "8")

    def test_the_manual_and_completions_name_every_command(self):
        for form in ("man", "bash", "zsh", "fish"):
            out, _ = self.run_tool("--generate", form)
            for command in ("info", "sheet", "frame", "convert", "compare", "formats"):
                self.assertIn(command, out, form)


if __name__ == "__main__":
    COMMAND = sys.argv[2:] + [os.path.abspath(sys.argv[1])]
    unittest.main(argv=sys.argv[:1])
