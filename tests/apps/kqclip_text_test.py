"""Tests of `fonts` and `text`: the curves, drawn by a program of other make, beside the same line from the same font file
drawn by another.

The SVG is rendered by librsvg, the reference by ImageMagick through FreeType, which fits letters to whole pixels. So
both draw eight times as large, are cut to their ink and brought down to size, softened a little and then compared:
the ink's box may differ by 2 pixels a side, the mean difference over the box may be 3 of 255. Two different letters of
one width are 20 and more apart; the test of the test shows it.
"""
import os
import shutil
import subprocess
import sys
import xml.etree.ElementTree as xml

from tool import ToolTest, main

MEAN = 3.0     # of 255
SIDE = 2       # pixels
LARGE = 8      # times

# Run with KQCLIP_TEST_PICTURES=FOLDER to keep the pictures and look at them.
KEPT = os.environ.get("KQCLIP_TEST_PICTURES")


PAPER = (640, 96)   # pixels, larger than any line here


def ink(name, command):
    """The picture that `command` draws as grey rows, cut to its ink and laid into the corner of the paper."""
    large = "x".join(str(side * LARGE) for side in PAPER)
    done = subprocess.run([*command, "-background", "white", "-alpha", "remove", "-colorspace", "gray", "-depth", "8",
                           "-bordercolor", "white", "-border", "64", "-trim", "+repage", "-gravity", "northwest",
                           "-extent", large, "-filter", "Box", "-resize", f"{100 / LARGE}%", "pgm:-"], capture_output=True)
    if done.returncode != 0:
        raise AssertionError(done.stderr.decode())
    head, size, most, pixels = done.stdout.split(b"\n", 3)
    width, height = map(int, size.split())
    assert (head, most, width, height) == (b"P5", b"255", *PAPER), (head, most, size)
    if KEPT:
        subprocess.run(["convert", "pgm:-", os.path.join(KEPT, name + ".png")], input=done.stdout, check=True)
    return [pixels[y * width:(y + 1) * width] for y in range(height)]


def box(rows):
    """Width and height of the ink; its left top is the paper's."""
    width = max(x for row in rows for x in range(len(row)) if row[x] < 128) + 1
    return width, max(y for y in range(len(rows)) if min(rows[y]) < 128) + 1


def softened(rows):
    """Each pixel the mean of the nine around it."""
    wide = [b"\xff" + row + b"\xff" for row in (b"\xff" * len(rows[0]), *rows, b"\xff" * len(rows[0]))]
    return [[sum(sum(row[x:x + 3]) for row in wide[y:y + 3]) / 9 for x in range(len(rows[0]))] for y in range(len(rows))]


def difference(a, b):
    """The mean difference over the box of the ink."""
    width, height = (max(sides) for sides in zip(box(a), box(b)))
    total = sum(abs(p - q) for one, two in zip(softened(a)[:height], softened(b)[:height])
                for p, q in zip(one[:width], two[:width]))
    return total / (width * height)


class TextTest(ToolTest):
    def fonts(self):
        return {font["name"]: font for font in self.run_json("fonts")["fonts"]}

    def font(self, name):
        """The file of a font that both programs draw from; its first face."""
        font = self.fonts().get(name)
        self.assertIsNotNone(font, f"the font {name} is not installed")
        if "file" not in font:
            self.skipTest("this host does not tell font files")
        return font["file"]

    def drawn(self, text, font, size=64):
        """The tool's line, drawn from its SVG."""
        self.run_tool("text", text, "o.svg", "--overwrite", "--font", font, "--size", str(LARGE * size), "--dpi", "72")
        subprocess.run(["rsvg-convert", "-b", "white", "-o", "o.png", "o.svg"], check=True)
        return ink(f"ours-{font}-{text}".replace(" ", "_").replace("/", "_"), ["convert", "o.png"])

    def reference(self, text, file, size=64):
        return ink(f"theirs-{os.path.basename(file)}-{text}".replace(" ", "_").replace("/", "_"),
                   ["convert", "-background", "white", "-fill", "black", "-font", file, "-pointsize", str(LARGE * size),
                    "-density", "72", "label:" + text])

    def test_a_line_looks_as_another_program_draws_it(self):
        for font, text in (("DejaVu Sans", "Hamburgefonstiv"), ("DejaVu Serif", "Quartz 0123"),
                           ("DejaVu Sans", "\u00c4\u00f6\u00fc \u00e9 & @"), ("DejaVu Sans Mono Bold", "pixel(42);")):
            file = self.font(font)
            ours, theirs = self.drawn(text, font), self.reference(text, file)
            sides, apart = (box(ours), box(theirs)), difference(ours, theirs)
            print(f"{font}, {text}: {sides[0]} and {sides[1]} pixels, mean difference {apart:.2f}", file=sys.stderr)
            for one, other in zip(*sides):
                self.assertLessEqual(abs(one - other), SIDE, (font, text, sides))
            self.assertLessEqual(apart, MEAN, (font, text))

    def test_the_comparison_sees_another_letter(self):
        file = self.font("DejaVu Sans Mono Bold")
        ours = self.drawn("pixel", "DejaVu Sans Mono Bold")
        for other in ("pixek", "pikel"):
            self.assertGreater(difference(ours, self.reference(other, file)), 2 * MEAN, other)
        self.assertGreater(difference(self.drawn("N", "DejaVu Sans"), self.reference("H", self.font("DejaVu Sans"))), 15)

    def test_kerning_moves_letters_together(self):
        self.font("DejaVu Sans")
        pair = self.run_json("text", "AV", "o.svg", "--overwrite", "--font", "DejaVu Sans")["output"]
        parts = [self.run_json("text", letter, "o.svg", "--overwrite", "--font", "DejaVu Sans")["output"]["advance"] for letter in "AV"]
        self.assertEqual(pair["kernedPairs"], 1)
        self.assertLess(pair["advance"], sum(parts))

    def test_size_and_resolution_scale_the_line(self):
        self.font("DejaVu Sans")
        small = self.run_json("text", "Title", "o.svg", "--overwrite", "--font", "DejaVu Sans", "--size", "20", "--dpi", "72")["output"]
        large = self.run_json("text", "Title", "o.svg", "--overwrite", "--font", "DejaVu Sans", "--size", "40", "--dpi", "144")["output"]
        self.assertAlmostEqual(large["advance"], 4 * small["advance"], delta=0.01 * large["advance"])

    def test_the_svg_is_well_formed_and_holds_its_ink(self):
        self.font("DejaVu Sans")
        self.run_tool("text", "A & B <\u00e9>", "o.svg", "--font", "DejaVu Sans")
        root = xml.parse("o.svg").getroot()
        self.assertEqual(root.tag, "{http://www.w3.org/2000/svg}svg")
        self.assertEqual(len(root.findall("{http://www.w3.org/2000/svg}path")), 6)
        left, top, width, height = map(float, root.get("viewBox").split())
        for path in root:
            numbers = [float(n) for n in path.get("d").translate(str.maketrans("MLCZ", "    ")).split()]
            self.assertTrue(left <= min(numbers[::2]) and max(numbers[::2]) <= left + width, path.get("d"))
            self.assertTrue(top <= min(numbers[1::2]) and max(numbers[1::2]) <= top + height, path.get("d"))

    def test_letters_that_fonts_are_not_asked_for_are_told(self):
        self.font("DejaVu Sans")
        _, err = self.run_tool("text", "a\u4e00b", "o.svg", "--font", "DejaVu Sans", code=3)
        self.assertEqual(err, "kqclip: characters beyond Latin-1 are drawn as question marks\n")
        ours, asked = self.read("o.svg"), self.run_tool("text", "a?b", "p.svg", "--font", "DejaVu Sans")
        self.assertEqual(ours, self.read("p.svg"))

    def test_fonts_are_listed_with_their_files(self):
        fonts = self.fonts()
        self.assertIn("DejaVu Sans", fonts)
        out, _ = self.run_tool("fonts")
        self.assertEqual(out.count("\n"), len(self.run_json("fonts")["fonts"]))
        self.assertRegex(out, r"(?m)^DejaVu Sans +")
        for font in fonts.values():
            if "file" in font and os.name == "posix" and font["file"].startswith("/"):
                self.assertTrue(os.path.exists(font["file"]), font)

    def test_a_folder_of_fonts_is_listed_too(self):
        file = self.font("DejaVu Sans")
        os.mkdir("folder")
        shutil.copyfile(file, "folder/copy.ttf")
        fonts = self.run_json("fonts", KQLIB_FONT_DIR=os.path.abspath("folder"))["fonts"]
        self.assertTrue([font for font in fonts if font.get("file", "").endswith("copy.ttf")] or
                        [font for font in fonts if font["name"] == "DejaVu Sans"])

    def test_an_unknown_font_is_told(self):
        self.assert_fails("no-such-font", "text", "T", "o.svg", "--font", "No Such Font", says=("kqclip fonts",))
        self.assertFalse(os.path.exists("o.svg"))


if __name__ == "__main__":
    main()
