"""Tests of what the command-line tool does with stills: one by one, as sequences, damaged, and of longer extensions."""
import glob
import os
import shutil
import struct
import zlib

from tool import COMMAND, TREE, ToolTest, film_of, is_native, main, pictures_of

SEEDS = os.path.join(TREE, "tests", "modules", "stills")


def pixels_of(width, height, number):
    """A picture that tells `number` in each pixel: red, green, blue, alpha."""
    return b"".join(bytes([number, x * 5 % 256, y * 7 % 256, 255]) for y in range(height) for x in range(width))


def png_of(width, height, number):
    """The same as a PNG file without packing."""
    rgba = pixels_of(width, height, number)
    rows = b"".join(b"\0" + b"".join(rgba[i:i + 3] for i in range(y * width * 4, (y + 1) * width * 4, 4))
                    for y in range(height))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    head = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(rows, 0)) + chunk(b"IEND", b"")


class KqclipStillsTest(ToolTest):
    @staticmethod
    def environment(**more):
        modules = os.path.join(os.path.dirname(COMMAND[-1]), "modules")
        return {**os.environ, "KQCLIP_MODULES": modules, **more}

    def seed(self, name, target=None):
        """A still of the folder, beside the test's files: a path that begins with a slash is an option on Windows."""
        target = target or name
        shutil.copyfile(os.path.join(SEEDS, name), target)
        return target

    def extensions(self):
        stills = [module for module in self.run_json("formats")["formats"] if module["name"] == "Stills"]
        self.assertEqual(len(stills), 1, "the module is beside the tool")
        return stills[0]["extensions"]

    def shots(self, numbers, width=24, height=10):
        for number in numbers:
            self.write(f"shot.{number:04d}.png", png_of(width, height, number))

    def test_info_tells_what_is_in_a_still(self):
        out, err = self.run_tool("info", self.seed("plain.png"))
        self.assertRegex(out, r"size: +19 x 13 pixels")
        self.assertEqual(err, "")
        clip = self.run_json("info", self.seed("alpha.png"))["input"]
        self.assertEqual((clip["format"], clip["width"], clip["height"], clip["frames"]), ("Stills", 19, 13, 1))
        self.assertEqual(clip["alpha"]["mode"], "straight")

    def test_every_still_of_a_kind_that_is_read_is_converted(self):
        done, extensions = 0, self.extensions()
        for name in sorted(os.listdir(SEEDS)):
            if not name.startswith("plain.") or name.rsplit(".", 1)[1] not in extensions:
                continue
            self.run_tool("convert", self.seed(name), "o.flm", "--overwrite")
            width, height, _, pictures = pictures_of(self.read("o.flm"))
            self.assertEqual((width, height, len(pictures)), (19, 13, 1), name)
            done += 1
        self.assertGreaterEqual(done, 4)

    def test_a_sequence_becomes_a_film_and_stills_again(self):
        self.shots([3, 4, 5])
        self.run_tool("convert", "shot.####.png", "o.flm")
        self.assertEqual(pictures_of(self.read("o.flm"))[3], [pixels_of(24, 10, number) for number in (3, 4, 5)])
        for extension in ("png", "tif", "bmp"):
            pattern = f"back{extension}.####.{extension}"
            self.run_tool("convert", "o.flm", pattern)
            self.assertEqual(len(glob.glob(f"back{extension}.*")), 3)
            self.assertTrue(self.run_json("compare", "o.flm", pattern)["comparison"]["equal"], extension)

    def test_straight_alpha_goes_round(self):
        picture = b"".join(bytes([x * 9, y * 11, 77, (x * 31 + y) % 256]) for y in range(9) for x in range(17))
        self.write("a.flm", film_of([picture], 17, 9))
        self.run_tool("convert", "a.flm", "a.png", "--alpha", "straight")
        self.run_tool("convert", "a.png", "b.flm")
        self.assertEqual(pictures_of(self.read("b.flm"))[3], [picture])

    def test_a_long_extension_is_read_and_written(self):
        self.seed("plain.tif", "a.tiff")
        self.assertEqual(self.run_json("info", "a.tiff")["input"]["width"], 19)
        self.run_tool("convert", "a.tiff", "b.jpeg")
        self.assertTrue(self.read("b.jpeg").startswith(b"\xff\xd8\xff"))
        self.assertEqual(self.run_json("info", "b.jpeg")["input"]["height"], 13)

    def test_the_contents_count_and_not_the_extension(self):
        self.seed("plain.bmp", "a.png")
        self.run_tool("convert", "a.png", "o.flm", "--single")
        self.run_tool("convert", self.seed("plain.bmp"), "p.flm")
        self.assertEqual(self.read("o.flm"), self.read("p.flm"))

    def test_a_cut_still_is_warned_of_and_its_rows_are_there(self):
        if not is_native():
            self.skipTest("the imaging component of Windows refuses a cut PNG")
        data = png_of(200, 300, 9)
        self.write("cut.png", data[:len(data) // 2])
        answer = self.run_json("convert", "cut.png", "o.flm", "--single", code=3)
        self.assertEqual([warning["code"] for warning in answer["warnings"]], ["damaged-frame"])
        self.assertIn("cut.png", answer["warnings"][0]["message"])
        rows = pictures_of(self.read("o.flm"))[3][0]
        self.assertEqual(rows[:200 * 100 * 4], pixels_of(200, 300, 9)[:200 * 100 * 4])

    def test_what_is_no_still_fails_with_its_name(self):
        self.write("text.png", b"This is no picture at all, but a line of text.\n")
        self.write("empty.png", b"")
        for name in ("text.png", "empty.png"):
            self.assert_fails("damaged", "info", name, "--single", says=(name,))
            self.assert_fails("damaged", "convert", name, "o.flm", "--single", says=(name,))
            self.assertFalse(os.path.exists("o.flm"))

    def test_a_still_that_is_not_there_is_not_found(self):
        self.assert_fails("not-found", "info", "none.png", says=("none.png",))

    def test_a_damaged_frame_of_a_sequence_stops_or_is_passed_over(self):
        self.shots([1, 2, 3])
        self.write("shot.0002.png", b"\x89PNG\r\n\x1a\n")
        self.assert_fails("damaged-frame", "convert", "shot.####.png", "o.flm", says=("shot.0002.png",))
        self.run_json("convert", "shot.####.png", "o.flm", "--missing", "hold", code=3)
        self.assertEqual(pictures_of(self.read("o.flm"))[3], [pixels_of(24, 10, number) for number in (1, 1, 3)])

    def test_a_frame_of_another_size_is_scaled_and_told(self):
        self.shots([1, 2, 3])
        self.write("shot.0002.png", png_of(48, 20, 2))
        answer = self.run_json("convert", "shot.####.png", "o.flm", code=3)
        self.assertEqual([warning["code"] for warning in answer["warnings"]], ["different-size"])
        width, height, _, pictures = pictures_of(self.read("o.flm"))
        self.assertEqual((width, height, [picture[0] for picture in pictures]), (24, 10, [1, 2, 3]))

    def test_a_kind_that_is_not_written_is_told_before_anything_is(self):
        self.shots([1])
        self.run_tool("convert", "shot.0001.png", "o.psd", code=1)
        self.assertEqual(os.listdir("."), ["shot.0001.png"])

    def test_a_still_is_replaced_only_when_told(self):
        self.write("new.png", png_of(24, 10, 1))
        before = png_of(24, 10, 2)
        self.write("old.png", before)
        self.assert_fails("exists", "convert", "new.png", "old.png")
        self.assertEqual(self.read("old.png"), before)
        self.run_tool("convert", "new.png", "old.png", "--overwrite")
        self.assertTrue(self.run_json("compare", "new.png", "old.png")["comparison"]["equal"])
        self.assertEqual(sorted(os.listdir(".")), ["new.png", "old.png"])

    def test_a_sheet_of_stills_shows_them(self):
        self.shots(range(6))
        self.run_tool("sheet", "shot.####.png", "sheet.png")
        self.assertTrue(self.read("sheet.png").startswith(b"\x89PNG"))


if __name__ == "__main__":
    main()
