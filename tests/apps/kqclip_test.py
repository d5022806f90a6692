"""Tests of the command-line tool: what it prints, writes and answers, on files made here byte by byte."""
import os
import shutil
import struct
import subprocess
import zlib

from tool import COMMAND, ToolTest, film_of, filmstrip, main, pictures_of, telecined_film, vpb


class KqclipTest(ToolTest):
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

    # Names of every script, with blanks and quotes, as arguments and in what is printed.

    def test_names_beyond_ascii_are_read_written_and_printed(self):
        name = "gr\u00fc\u00df \u6620\u753b \U0001f3ac"
        self.film(f"{name}.flm", frames=3)
        os.mkdir(f"{name} out")
        self.assertIn(name, self.run_tool("info", f"{name}.flm")[0])
        self.assertEqual(self.run_json("info", f"{name}.flm")["input"]["frames"], 3)
        self.run_tool("convert", f"{name}.flm", os.path.join(f"{name} out", f"{name}.ei"))
        self.run_tool("convert", f"{name}.flm", f"{name}.###.vpb")
        self.assertTrue(os.path.exists(f"{name}.002.vpb"))
        self.assertTrue(self.run_json("compare", f"{name}.flm", os.path.join(f"{name} out", f"{name}.ei"))
                        ["comparison"]["equal"])
        self.run_tool("sheet", f"{name}.flm", f"{name}.png")
        self.assertTrue(os.path.exists(f"{name}.png"))
        _, err = self.run_tool("info", f"{name} none.flm", code=1)
        self.assertIn(f"{name} none.flm", err)

    def test_quotes_and_blanks_of_arguments_survive(self):
        answer = self.run_json("info", "no 'such' file  here.flm", code=1)
        self.assertIn("no 'such' file  here.flm", answer["error"]["message"])

    def test_the_manual_and_completions_name_every_command(self):
        for form in ("man", "bash", "zsh", "fish"):
            out, _ = self.run_tool("--generate", form)
            for command in ("info", "sheet", "frame", "convert", "compare", "formats"):
                self.assertIn(command, out, form)

    # Frames that are there in part, damaged, or of another size.

    def test_a_list_of_negative_numbers_is_held_from_the_first(self):
        pictures = self.film()
        self.run_tool("convert", "a.flm", "b.flm", "--frames", "-10--5", "--missing", "hold", code=3)
        self.assertEqual(pictures_of(self.read("b.flm"))[3], [pictures[0]] * 6)

    def test_lists_choose_the_pictures_that_they_name(self):
        pictures = self.film(frames=12)
        for text, wanted in (("1-9x2", [1, 3, 5, 7, 9]), ("11,0,5", [11, 0, 5]), ("3-1,7", [3, 2, 1, 7])):
            self.run_tool("convert", "a.flm", "b.flm", "--frames", text, "--overwrite")
            self.assertEqual(pictures_of(self.read("b.flm"))[3], [pictures[i] for i in wanted], text)

    def test_each_policy_puts_its_picture_into_a_gap(self):
        pictures = self.film(frames=6)
        self.sequence(pictures, [1, 2, 5])
        black = b"\0\0\0\xff" * 48
        for policy, wanted in (("hold", [1, 2, 2, 2, 5]), ("nearest", [1, 2, 2, 5, 5]), ("skip", [1, 2, 5])):
            self.assertEqual(self.converted("--missing", policy), [self.known[i] for i in wanted], policy)
        self.assertEqual(self.converted("--missing", "black"),
                         [self.known[1], self.known[2], black, black, self.known[5]])

    def test_a_damaged_frame_follows_the_policy(self):
        self.sequence(self.film(frames=4), [0, 1, 2, 3])
        self.write("s.02.vpb", b"damaged")
        self.assert_fails("damaged-frame", "convert", "s.##.vpb", "o.flm", says=("frame 2", "s.02.vpb", "--missing"))
        self.assertFalse(os.path.exists("o.flm"))
        known, black = self.known, b"\0\0\0\xff" * 48
        self.assertEqual(self.converted("--missing", "hold"), [known[0], known[1], known[1], known[3]])
        self.assertEqual(self.converted("--missing", "nearest"), [known[0], known[1], known[1], known[3]])
        self.assertEqual(self.converted("--missing", "skip"), [known[0], known[1], known[3]])
        self.assertEqual(self.converted("--missing", "black"), [known[0], known[1], black, known[3]])

    def test_damage_is_never_exit_0(self):
        self.sequence(self.film(frames=3), [0, 1, 2])
        self.write("s.01.vpb", b"damaged")
        self.assertEqual(self.run_json("info", "s.##.vpb", code=3)["damaged"], "1")
        self.assertEqual(self.run_json("sheet", "s.##.vpb", "o.png", code=3)["damaged"], "1")
        self.run_json("frame", "s.##.vpb", "1", "p.png", code=1)
        self.run_json("compare", "s.##.vpb", "s.##.vpb", code=1)
        self.run_json("compare", "s.##.vpb", "s.##.vpb", "--missing", "skip", code=3)
        self.run_json("convert", "s.##.vpb", "o.flm", "--missing", "skip", "--dry-run")

    def test_a_frame_of_another_size_is_told_and_scaled(self):
        self.still("t.1.vpb", 8, 6)
        self.still("t.2.vpb", 16, 12, seed=3)
        self.still("t.3.vpb", 8, 6)
        answer = self.run_json("convert", "t.#.vpb", "o.flm", code=3)
        self.assertEqual((answer["otherSize"], answer["warnings"][0]["code"]), ("2", "different-size"))
        self.run_tool("convert", "t.2.vpb", "alone.flm", "--single", "--size", "8x6")
        self.assertEqual(pictures_of(self.read("o.flm"))[3][1], pictures_of(self.read("alone.flm"))[3][0])
        self.assertEqual(self.run_json("info", "t.#.vpb", code=3)["otherSize"], "2")
        _, err = self.run_tool("info", "t.#.vpb", code=3)
        self.assertRegex(err, r"^kqclip: frame 2 of 't.#.vpb' \(t.2.vpb\) has 16 x 12 pixels, the clip has 8 x 6 .*\n$")

    def test_a_folder_of_two_clips_asks_for_one(self):
        os.mkdir("two")
        self.still("two/a.1.vpb", 8, 6)
        self.still("two/b.1.vpb", 8, 6)
        self.assert_fails("ambiguous", "info", "two", says=("a.[#].vpb", "b.[#].vpb"))

    # How the input is taken, seen in what comes out.

    def test_alpha_is_taken_as_told(self):
        picture, = self.film(frames=1, alpha=True)
        pixels = [picture[i:i + 4] for i in range(0, len(picture), 4)]
        wanted = {
            "none": [p[:3] + b"\xff" for p in pixels],
            "straight": pixels,
            "grey": [bytes([0, 0, 0, sum(p[:3]) // 3]) for p in pixels],
        }
        for mode, result in wanted.items():
            self.assertEqual(self.converted("--alpha", mode, source="a.flm"), [b"".join(result)], mode)
        inverted = [p[:3] + bytes([255 - p[3]]) for p in pixels]
        self.assertEqual(self.converted("--alpha", "straight", "--invert-alpha", source="a.flm"), [b"".join(inverted)])

    def test_a_matte_is_taken_out(self):
        picture, = self.film(frames=1, alpha=True)
        matte = (0x20, 0x40, 0x60)

        def unmatted(p):
            if p[3] == 0:
                return p
            sums = [c * 255 - (255 - p[3]) * m for c, m in zip(p, matte)]
            return bytes([max(0, min(255, abs(v) // p[3] * (1 if v > 0 else -1))) for v in sums] + [p[3]])
        wanted = b"".join(unmatted(picture[i:i + 4]) for i in range(0, len(picture), 4))
        for more in (("--alpha", "premultiplied"), ()):
            self.assertEqual(self.converted("--matte", "204060", *more, source="a.flm"), [wanted])
        self.assertEqual(self.run_json("info", "a.flm", "--matte", "204060")["input"]["alpha"]["source"], "given")
        self.assert_fails("wrong-use", "info", "a.flm", "--matte", "204060", "--alpha", "none", exit_code=2)

    def test_alpha_is_written_as_asked(self):
        picture, = self.film(frames=1, alpha=True)
        stored, = self.converted("--alpha", "straight", "--write-alpha", "premultiplied", source="a.flm")
        for i in range(0, len(picture), 4):
            self.assertEqual(stored[i + 3], picture[i + 3])
            for c in range(3):
                self.assertLessEqual(abs(stored[i + c] - picture[i + c] * picture[i + 3] / 255), 1.0)
        opaque, = self.converted("--alpha", "straight", "--write-alpha", "none", source="a.flm")
        self.assertEqual(set(opaque[3::4]), {255})

    def test_fields_become_frames(self):
        width, height = 4, 6
        pictures = self.film(width=width, height=height, frames=2, rate=25)

        def field(picture, keep):
            rows = [picture[y * width * 4:(y + 1) * width * 4] for y in range(height)]
            mean = lambda y: bytes((a + b) >> 1 for a, b in zip(rows[y - 1], rows[y + 1]))
            if keep == 0:
                rows = [rows[y] if y % 2 == 0 else rows[y - 1] if y + 1 == height else mean(y) for y in range(height)]
            else:
                rows = [rows[y] if y % 2 else rows[1] if y == 0 else mean(y) for y in range(height)]
            return b"".join(rows)
        for order, first in (("1", 0), ("2", 1)):
            wanted = [field(picture, row) for picture in pictures for row in (first, 1 - first)]
            got = self.converted("--fields", order, "--split-fields", source="a.flm")
            self.assertEqual(got, wanted, order)
            self.assertEqual(pictures_of(self.read("o.flm"))[2], 50)
        self.assertEqual(self.converted("--fields", "1", source="a.flm"), pictures)
        self.assert_fails("wrong-use", "convert", "a.flm", "p.flm", "--split-fields", exit_code=2, says=("--fields",))

    def test_pulldown_of_a_known_phase_is_removed(self):
        pictures = self.film(width=4, height=4, frames=10, rate=30)

        def woven(a, b, first):   # rows from `first` on, every second, of a; the others of b
            return b"".join((a if y % 2 == first else b)[y * 16:y * 16 + 16] for y in range(4))
        for fields, first in (("2", 0), ("1", 1)):
            wanted = pictures[0:3] + [woven(pictures[3], pictures[4], first)]
            wanted += pictures[5:8] + [woven(pictures[8], pictures[9], first)]
            self.assertEqual(self.converted("--pulldown", "1", "--fields", fields, source="a.flm"), wanted, fields)
            self.assertEqual(pictures_of(self.read("o.flm"))[2], 24)
        wanted = [woven(pictures[2], pictures[3], 0), pictures[4]]
        self.assertEqual(self.converted("--pulldown", "2", "--fields", "2", source="a.flm")[2:4], wanted)

    def test_pulldown_is_guessed_and_removed(self):
        films, video = telecined_film()
        self.write("a.flm", film_of(video, 64, 48, 30))
        clip = self.run_json("info", "a.flm", "--pulldown", "guess")["input"]
        self.assertEqual((clip["pulldown"]["source"], clip["pulldown"]["phase"], clip["rate"]), ("guessed", 1, 24.0))
        self.assertEqual(self.converted("--pulldown", "guess", source="a.flm"), films)

    def test_rate_and_size_come_out(self):
        self.film(width=8, height=6, frames=2, rate=24)
        self.run_tool("convert", "a.flm", "b.flm", "--rate", "50", "--size", "4x3")
        width, height, rate, pictures = pictures_of(self.read("b.flm"))
        self.assertEqual((width, height, rate, len(pictures)), (4, 3, 50, 2))

    def test_the_extension_of_the_input_can_be_told(self):
        self.film()
        os.rename("a.flm", "a.bin")
        self.assert_fails("unknown-format", "info", "a.bin")
        self.assertEqual(self.run_json("info", "a.bin", "--extension", "flm")["input"]["frames"], 5)
        self.run_tool("convert", "a.bin", "b.bin", "--extension", "flm", "--write-extension", "flm")
        self.assertEqual(pictures_of(self.read("b.bin"))[3], pictures_of(self.read("a.bin"))[3])

    # Outputs.

    def test_a_sequence_is_written_into_a_new_folder(self):
        self.film(frames=3)
        out, _ = self.run_tool("convert", "a.flm", "new/deep/s.%02d.vpb")
        self.assertIn("3 files", out)
        self.assertEqual(sorted(os.listdir("new/deep")), ["s.00.vpb", "s.01.vpb", "s.02.vpb"])
        self.run_tool("convert", "a.flm", "other/s.##.vpb", "--frames", "0-9", code=1)
        self.assertFalse(os.path.exists("other"))

    def test_a_still_is_written_alone(self):
        self.film(frames=3)
        self.run_tool("convert", "a.flm", "one.vpb", "--frames", "1")
        self.assertEqual(self.run_json("info", "one.vpb")["input"]["frames"], 1)
        self.assert_fails("wrong-use", "convert", "a.flm", "many.vpb", exit_code=2, says=("####",))

    def test_overwriting_tells_what_stays(self):
        self.film(frames=6)
        self.run_tool("convert", "a.flm", "s.##.vpb")
        before = self.read("s.05.vpb")
        output = self.run_json("convert", "a.flm", "s.##.vpb", "--frames", "1-3", "--overwrite")["output"]
        self.assertEqual((output["replaced"], output["others"]), (3, "0,4-5"))
        self.assertEqual(self.read("s.05.vpb"), before)

    def test_a_clip_may_replace_itself(self):
        pictures = self.film(frames=4)
        self.run_tool("convert", "a.flm", "a.flm", "--frames", "3-0", "--overwrite")
        self.assertEqual(pictures_of(self.read("a.flm"))[3], pictures[::-1])

    def test_a_dry_run_writes_nothing(self):
        self.film(frames=3)
        out, _ = self.run_tool("convert", "a.flm", "new/s.##.vpb", "--dry-run")
        self.assertIn("would write 3 frames", out)
        self.assertEqual(os.listdir("."), ["a.flm"])

    def test_a_sheet_or_frame_does_not_replace_its_input(self):
        self.stills([1, 2])
        os.rename("shot.0001.vpb", "shot.1.png")
        os.rename("shot.0002.vpb", "shot.2.png")
        for command in (("sheet", "shot.1.png"), ("frame", "shot.#.png", "1")):
            self.run_json(*command, "shot.2.png", "--extension", "vpb", code=2)

    def test_a_frame_keeps_its_pixels(self):
        pictures = self.film(width=5, height=3, frames=2, alpha=True)
        self.run_tool("frame", "a.flm", "1", "o.png", "--alpha", "straight")
        self.assertEqual(png_pixels(self.read("o.png")), pictures[1])

    def test_compare_matches_sequences_by_number(self):
        self.sequence(self.film(frames=4), [0, 1, 2, 3])
        for number in (0, 1, 3):
            shutil.copyfile(f"s.{number:02d}.vpb", f"t.{number:02d}.vpb")
        comparison = self.run_json("compare", "s.##.vpb", "t.##.vpb", code=4)["comparison"]
        self.assertEqual((comparison["compared"], comparison["onlyLeft"], comparison["firstDifferent"]), (3, "2", None))
        self.run_tool("compare", "s.##.vpb", "t.##.vpb", "--frames", "0-1")
        os.rename("t.01.vpb", "t.02.vpb")
        self.run_tool("convert", "s.##.vpb", "u.##.vpb", "--frames", "0-3", "--start", "7")
        self.run_json("compare", "s.##.vpb", "u.##.vpb", "--tolerance", "255")
        self.run_tool("compare", "s.##.vpb", "t.##.vpb", "--frames", "1", "--frames-b", "3", code=4)

    def test_an_answer_that_cannot_be_written_is_a_failure(self):
        if not os.path.exists("/dev/full"):
            self.skipTest("this host has no device that is always full")
        with open("/dev/full", "wb") as full:
            done = subprocess.run([*COMMAND, "formats"], stdout=full, stderr=subprocess.PIPE, env=self.environment())
        self.assertEqual(done.returncode, 1, done.stderr)

    # Help of the tests above.

    def module_folder(self):
        return os.path.join(os.path.dirname(COMMAND[-1]), "modules")

    def sequence(self, pictures, numbers):
        """Writes s.NN.vpb for these numbers; self.known is what each reads back as."""
        self.known = {}
        for number in numbers:
            self.write("one.flm", film_of([pictures[number]], 8, 6))
            self.run_tool("convert", "one.flm", f"s.{number:02d}.vpb", "--overwrite")
            self.run_tool("convert", f"s.{number:02d}.vpb", "back.flm", "--single", "--overwrite")
            self.known[number] = pictures_of(self.read("back.flm"))[3][0]

    def converted(self, *options, source="s.##.vpb"):
        """The pictures that a conversion to Filmstrip gives."""
        code = 3 if "--missing" in options else 0
        self.run_json("convert", source, "o.flm", "--overwrite", *options, code=code)
        return pictures_of(self.read("o.flm"))[3]


def png_pixels(data):
    """The pixels of an 8-bit RGBA PNG."""
    at, packed = 8, b""
    width, height = struct.unpack(">II", data[16:24])
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        if kind == b"IDAT":
            packed += data[at + 8:at + 8 + length]
        at += 12 + length
    raw, out, step = zlib.decompress(packed), bytearray(), width * 4
    above = bytes(step)
    for y in range(height):
        kind, row = raw[y * (step + 1)], bytearray(raw[y * (step + 1) + 1:(y + 1) * (step + 1)])
        for i in range(step):
            left, up = row[i - 4] if i >= 4 else 0, above[i]
            corner = above[i - 4] if i >= 4 else 0
            guess = left + up - corner
            nearest = min((abs(guess - left), 0, left), (abs(guess - up), 1, up), (abs(guess - corner), 2, corner))[2]
            row[i] = (row[i] + (0, left, up, (left + up) // 2, nearest)[kind]) & 255
        out += row
        above = bytes(row)
    return bytes(out)


if __name__ == "__main__":
    main()
