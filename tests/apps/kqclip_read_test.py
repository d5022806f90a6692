"""Tests of how the tool finds and reads its input: names, numbers, gaps and pull-down of sequences."""
import os
import shutil
import struct
import zlib

from tool import COMMAND, ToolTest, film_of, filmstrip, is_native, main, pictures_of, telecined_film

LARGEST = 2147483647


class ReadTest(ToolTest):
    # Names.

    def test_brackets_in_names_are_letters(self):
        pictures = self.numbered("a[1]_", [1, 2, 3])
        for name in ("a[1]_####.vpb", "a[1]_0002.vpb", "a[1]_%04d.vpb", "."):
            clip = self.run_json("info", name)["input"]
            self.assertEqual((clip["frames"], clip["numbers"]["present"]), (3, "1-3"), name)
        self.assertEqual(self.frames_of("a[1]_####.vpb"), pictures)
        self.assertEqual(self.frames_of("a[1]_####.vpb", "--pulldown", "1"), pictures)
        self.assert_fails("wrong-use", "info", "a[1]_####.vpb", "--pulldown", "guess", exit_code=2, says=("a[1]_0001.vpb",))

    def test_brackets_behind_the_number_are_letters(self):
        self.numbered("b.", [1, 2], tail="[x].vpb")
        self.assertEqual(self.run_json("info", "b.0001[x].vpb")["input"]["frames"], 2)

    def test_the_last_run_of_digits_of_a_named_file_is_its_number(self):
        self.numbered("plate_20240105_", [1, 2], digits=3)
        self.numbered("plate_20240106_", [1, 2, 3], digits=3)
        clip = self.run_json("info", "plate_20240105_001.vpb")["input"]
        self.assertEqual((clip["numbers"]["present"], clip["name"]), ("1-2", "plate_20240105_[###].vpb"))
        self.assertEqual(self.run_json("info", "plate_20240106_002.vpb")["input"]["frames"], 3)

    def test_a_named_file_is_alone_when_asked(self):
        pictures = self.numbered("s.", [1, 2, 3])
        self.assertEqual(self.frames_of("s.0002.vpb", "--single"), pictures[1:2])

    def test_a_film_with_a_number_is_no_sequence(self):
        self.film("take.1.flm", frames=2)
        os.mkdir("one")
        shutil.copyfile("take.1.flm", "one/take.1.flm")
        self.film("take.2.flm", frames=3)
        self.assertEqual(self.run_json("info", "take.2.flm")["input"]["frames"], 3)
        self.assertEqual(self.run_json("info", "one")["input"]["numbers"]["present"], "0-1")
        self.assert_fails("ambiguous", "info", "take.#.flm", says=("take.1.flm",))

    def test_digits_alone_behind_the_dot_are_the_number(self):
        self.numbered("s.", [1, 2], tail="")
        self.assertEqual(self.run_json("info", "s.0001", "--extension", "vpb")["input"]["numbers"]["present"], "1-2")

    def test_two_files_of_one_number_are_told(self):
        pictures = self.numbered("f.", [1, 2], digits=2)
        self.numbered("f.", [1], digits=1, seed=9)
        answer = self.run_json("info", "f.##.vpb", code=3)
        self.assertEqual([warning["code"] for warning in answer["warnings"]], ["left-out"])
        self.assertIn("f.1.vpb", answer["warnings"][0]["message"])
        self.assertEqual(self.frames_of("f.##.vpb", code=3), pictures)

    # Numbers at the end of what a number can be.

    def test_the_largest_number_is_one(self):
        pictures = self.numbered("s.", [LARGEST - 1, LARGEST])
        self.assertEqual(self.frames_of("s.#.vpb"), pictures)
        self.assert_fails("wrong-use", "convert", "s.#.vpb", "o.flm", "--split-fields", "--fields", "1", exit_code=2,
                          says=("2147483646",))
        self.run_json("compare", "s.#.vpb", "s.#.vpb", "--missing", "hold")

    def test_larger_numbers_are_told(self):
        self.numbered("s.", [1, 2, LARGEST + 1])
        for name in ("s.#.vpb", "s.0001.vpb", "."):
            answer = self.run_json("info", name, code=3)
            self.assertEqual((answer["input"]["frames"], answer["warnings"][0]["code"]), (2, "left-out"), name)
            self.assertIn(f"s.{LARGEST + 1}.vpb", answer["warnings"][0]["message"])

    def test_a_file_whose_number_is_too_large_is_read_alone(self):
        os.mkdir("one")
        os.mkdir("two")
        self.numbered("one/t_", [20240105123456])
        self.numbered("two/t_", [20240105123456, 20240105123457])
        for name in ("one/t_20240105123456.vpb", "one/t_#.vpb", "one"):
            self.assertEqual(self.run_json("info", name)["input"]["frames"], 1, name)
        self.assertEqual(self.run_json("info", "two/t_20240105123456.vpb", code=3)["input"]["frames"], 1)
        self.run_json("info", "two/t_20240105123456.vpb", "--single")
        self.assert_fails("not-found", "info", "two", says=("2147483647", "--single"))

    def test_fields_of_a_sequence_are_those_of_a_film(self):
        self.numbered("s.", [1, 2, 3])
        self.run_tool("convert", "s.####.vpb", "all.flm")
        for fields in "12":
            options = ("--fields", fields, "--split-fields")
            self.assertEqual(self.frames_of("s.####.vpb", *options), self.frames_of("all.flm", *options))

    # Pull-down of sequences.

    def test_pulldown_of_a_sequence_is_that_of_a_film(self):
        self.numbered("s.", range(1, 13))
        self.run_tool("convert", "s.####.vpb", "all.flm", "--rate", "30")
        for phase in "12345":
            for fields in "12":
                options = ("--pulldown", phase, "--fields", fields)
                wanted = self.frames_of("all.flm", *options)
                got = self.frames_of("s.####.vpb", *options)
                # A film's last frame may need pictures behind its end, and is black there.
                self.assertEqual(len(got), 10 if phase in "12" else 9, options)
                self.assertEqual(got, wanted[:len(got)], options)
        os.remove("s.0012.vpb")
        os.remove("s.0011.vpb")
        counts = [self.run_json("info", "s.####.vpb", "--pulldown", phase)["input"]["frames"] for phase in "12345"]
        self.assertEqual(counts, [8, 8, 8, 8, 7])
        self.assertEqual(self.run_json("info", "s.####.vpb", "--pulldown", "1")["input"]["rate"], 24)

    def test_a_gap_does_not_shift_the_phase(self):
        self.numbered("s.", range(1, 11))
        wanted = self.frames_of("s.####.vpb", "--pulldown", "1")
        self.assertEqual(len(wanted), 8)
        # The frames that each file is part of: the fourth and fifth of a group make one.
        for file, frame in ((2, 1), (4, 3), (5, 3), (7, 5)):
            os.rename(f"s.{file:04d}.vpb", "away")
            for arguments in (("convert", "s.####.vpb", "no.flm"), ("frame", "s.####.vpb", str(frame), "no.png")):
                self.assert_fails("missing-frames", *arguments, "--pulldown", "1", says=(f"no frame {frame} ",))
            answer = self.run_json("info", "s.####.vpb", "--pulldown", "1", code=3)
            self.assertEqual((answer["missing"], answer["input"]["numbers"]["missing"]), (str(frame), str(frame)))
            got = self.frames_of("s.####.vpb", "--pulldown", "1", "--missing", "skip", code=3)
            self.assertEqual(got, wanted[:frame] + wanted[frame + 1:], file)
            held = self.frames_of("s.####.vpb", "--pulldown", "1", "--missing", "hold", code=3)
            self.assertEqual(held, wanted[:frame] + wanted[frame - 1:frame] + wanted[frame + 1:], file)
            os.rename("away", f"s.{file:04d}.vpb")

    def test_a_damaged_file_damages_the_frame_it_is_part_of(self):
        self.numbered("s.", range(1, 11))
        wanted = self.frames_of("s.####.vpb", "--pulldown", "1")
        self.write("s.0005.vpb", b"damaged")
        self.assertEqual(self.run_json("info", "s.####.vpb", "--pulldown", "1", code=3)["damaged"], "3")
        self.assert_fails("damaged-frame", "convert", "s.####.vpb", "o.flm", "--pulldown", "1", says=("frame 3",))
        got = self.frames_of("s.####.vpb", "--pulldown", "1", "--missing", "skip", code=3)
        self.assertEqual(got, wanted[:3] + wanted[4:])

    def test_a_gap_does_not_shift_the_guessed_phase(self):
        self.telecined()
        self.assertEqual(self.guessed(), 1)
        os.remove("v.03.vpb")   # the longest part begins at 4
        self.assertEqual(self.guessed(code=3), 1)
        for number in (0, 1, 2):
            os.remove(f"v.{number:02d}.vpb")
        os.remove("v.04.vpb")   # the first file is the first of its group again
        self.assertEqual(self.guessed(), 1)
        os.remove("v.05.vpb")
        self.assertEqual(self.guessed(), 2)

    def test_numbers_too_far_apart_for_pulldown_are_told(self):
        self.numbered("s.", [1, 2, LARGEST])
        self.assert_fails("missing-frames", "info", "s.#.vpb", "--pulldown", "1", says=("too far apart",))

    # Compare.

    def test_two_named_stills_of_a_sequence_are_compared_as_such(self):
        self.numbered("s.", [1, 2, 3])
        os.mkdir("t")
        for number in (1, 2, 3):
            shutil.copyfile(f"s.{number:04d}.vpb", f"t/s.{number:04d}.vpb")
        answer = self.run_json("compare", "s.0001.vpb", "s.0002.vpb", code=4)
        self.assertEqual((answer["comparison"]["compared"], answer["left"]["frames"]), (1, 1))
        self.assertEqual(self.compared("s.0001.vpb", "s.0001.vpb"), 1)
        self.assertEqual(self.compared("s.0001.vpb", os.path.join("t", "s.0002.vpb")), 3)
        self.run_tool("compare", "s.0001.vpb", os.path.join("t", "s.0002.vpb"), "--single", code=4)
        self.assertEqual(self.compared("s.0002.vpb", os.path.join("t", "s.0002.vpb"), "--single"), 1)

    def test_a_skipped_frame_does_not_slide_the_pairs(self):
        self.numbered("s.", [1, 2, 3, 4])
        self.run_tool("convert", "s.####.vpb", "all.flm")
        os.remove("s.0002.vpb")
        answer = self.run_json("compare", "s.####.vpb", "all.flm", "--frames", "1-4", "--frames-b", "0-3", "--missing", "skip", code=3)
        self.assertEqual((answer["comparison"]["compared"], answer["comparison"]["equal"], answer["missing"]), (3, True, "2"))

    def test_compare_fills_gaps_as_told(self):
        self.numbered("s.", [1, 2, 3, 4])
        self.run_tool("convert", "s.####.vpb", "all.flm")
        os.remove("s.0003.vpb")
        for policy in ("hold", "nearest", "black"):
            self.run_tool("convert", "s.####.vpb", f"{policy}.flm", "--missing", policy, code=3)
            answer = self.run_json("compare", "s.####.vpb", f"{policy}.flm", "--missing", policy, code=3)["comparison"]
            self.assertEqual((answer["compared"], answer["equal"]), (4, True), policy)
        answer = self.run_json("compare", "s.####.vpb", "all.flm", "--missing", "hold", code=4)["comparison"]
        self.assertEqual((answer["compared"], answer["firstDifferent"]), (4, 3))

    def test_compare_takes_its_input_as_told(self):
        picture, = self.film("a.flm", frames=1, alpha=True)
        plain = b"".join(picture[i:i + 3] + b"\xff" for i in range(0, len(picture), 4))
        self.write("plain.flm", film_of([plain], 8, 6))
        self.run_tool("compare", "a.flm", "plain.flm", "--alpha", "straight", code=4)
        self.run_tool("compare", "a.flm", "plain.flm", "--alpha", "none")
        self.run_tool("compare", "plain.flm", "a.flm", "--alpha", "straight", "--alpha-b", "none")
        answer = self.run_json("compare", "a.flm", "a.flm", "--alpha", "straight", "--invert-alpha-b", code=4)
        self.assertEqual((answer["left"]["alpha"]["inverted"], answer["right"]["alpha"]["inverted"]), (False, True))
        answer = self.run_json("compare", "a.flm", "a.flm", "--matte", "ff0000", "--alpha-b", "none", code=4)
        self.assertEqual(answer["right"]["alpha"]["mode"], "none")
        os.rename("plain.flm", "plain.bin")
        self.run_tool("compare", "a.flm", "plain.bin", "--alpha", "none", "--extension-b", "flm")

    def test_compare_removes_the_pulldown_of_one(self):
        self.numbered("s.", range(0, 10))
        self.run_tool("convert", "s.####.vpb", "film.flm", "--pulldown", "1")
        self.assertEqual(self.compared("s.####.vpb", "film.flm", "--pulldown", "1", "--pulldown-b", "0"), 8)

    def test_clips_of_different_sizes_are_no_comparison(self):
        self.film("a.flm")
        self.film("b.flm", width=16)
        self.assert_fails("different-size", "compare", "a.flm", "b.flm", says=("8 x 6", "16 x 6", "--size"))

    def test_the_hint_names_the_list_of_b(self):
        self.film("a.flm", frames=5)
        self.film("b.flm", frames=3)
        self.assert_fails("missing-frames", "compare", "a.flm", "b.flm", "--frames", "3", says=("'b.flm'", "--frames-b"))
        self.assert_fails("wrong-use", "compare", "a.flm", "b.flm", "--frames", "3", "--frames-b", "x", exit_code=2, says=("--frames-b: 'x'",))
        _, err = self.run_tool("compare", "a.flm", "b.flm", "--frames", "9", code=1)
        self.assertNotIn("--frames-b", err)

    # What takes the place of a frame that cannot be read.

    def test_the_nearest_frame_is_near_by_number(self):
        pictures = self.numbered("s.", [1, 5, 6, 20])
        self.write("s.0005.vpb", b"damaged")
        got = self.frames_of("s.####.vpb", "--frames", "1,5,6", "--missing", "nearest", code=3)
        self.assertEqual(got, [pictures[0], pictures[2], pictures[2]])
        got = self.frames_of("s.####.vpb", "--frames", "4-5", "--missing", "hold", code=3)
        self.assertEqual(got, [pictures[0], pictures[0]])
        # 1 and 20 stand equally near to 6 in the list.
        self.write("s.0006.vpb", b"damaged")
        self.assertEqual(self.frames_of("s.####.vpb", "--frames", "6", "--missing", "nearest", code=3), [pictures[0]])

    def test_a_damaged_first_frame_follows_the_policy(self):
        pictures = self.numbered("s.", [1, 2, 3])
        self.write("s.0001.vpb", b"damaged")
        black = b"\0\0\0\xff" * 48
        for name in ("s.####.vpb", "s.0002.vpb"):
            self.assert_fails("cannot-read", "convert", name, "o.flm", says=("s.0001.vpb",))
            for policy, first in (("skip", []), ("nearest", pictures[1:2]), ("hold", [black]), ("black", [black])):
                self.assertEqual(self.frames_of(name, "--missing", policy, code=3), first + pictures[1:], policy)
        self.assertEqual(self.run_json("info", "s.####.vpb", "--missing", "skip", code=3)["damaged"], "1")
        self.write("s.0002.vpb", b"damaged")
        self.write("s.0003.vpb", b"damaged")
        self.assert_fails("cannot-read", "info", "s.####.vpb", "--missing", "skip", says=("s.0003.vpb",))

    # Rates, extensions, words.

    def test_rates_are_numbers_or_fractions(self):
        self.film()
        for text, rate in (("24000/1001", 24000 / 1001), ("23.976", 23.976), ("50", 50.0)):
            clip = self.run_json("info", "a.flm", "--rate", text)["input"]
            self.assertEqual((clip["rate"], clip["rateSource"]), (rate, "given"))
        for text in ("nan", "inf", "0", "-1", "24/0", "24/", "/2", "1e9", "24/1001x", "0/0"):
            self.assert_fails("wrong-use", "info", "a.flm", f"--rate={text}", exit_code=2, says=("--rate", "24000/1001"))

    def test_an_assumed_rate_is_told(self):
        self.numbered("s.", [1, 2])
        self.film(rate=30)
        self.assertRegex(self.run_tool("info", "s.#.vpb")[0], r"rate: +30 frames a second \(assumed\)\n")
        self.assertRegex(self.run_tool("info", "a.flm")[0], r"rate: +30 frames a second\n")
        self.assertEqual(self.run_json("info", "s.#.vpb")["input"]["rateSource"], "assumed")
        self.assertEqual(self.run_json("info", "a.flm")["input"]["rateSource"], "the file")
        self.assertEqual(self.run_json("info", "s.#.vpb")["input"]["rate"], 30)

    def test_pulldown_has_the_rate_that_was_told(self):
        self.film(frames=10, rate=25)
        self.assertEqual(self.run_json("info", "a.flm", "--rate", "30", "--pulldown", "1")["input"]["rate"], 24)

    def test_a_guess_that_finds_nothing_is_told(self):
        self.write("a.flm", film_of([b"\x55\x66\x77\xff" * 48] * 5, 8, 6))
        self.assertRegex(self.run_tool("info", "a.flm", "--pulldown", "guess")[0], r"pull-down: +none found\n")
        self.assertIn("no pull-down was found", self.run_tool("convert", "a.flm", "b.flm", "--pulldown", "guess")[0])
        self.assertNotIn("pull-down", self.run_tool("info", "a.flm")[0])

    def test_an_extension_may_have_its_dot_and_capitals(self):
        self.film("a.bin")
        for extension in ("flm", ".flm", "FLM", ".Flm"):
            self.assertEqual(self.run_json("info", "a.bin", "--extension", extension)["input"]["frames"], 5)

    def test_an_unknown_command_is_told_with_those_that_there_are(self):
        self.assert_fails("wrong-use", "convrt", "a.flm", exit_code=2, says=("no command 'convrt'", "formats, info, sheet", "--help"))
        self.assert_fails("wrong-use", exit_code=2, says=("no command is given", "convert"))
        self.assert_fails("wrong-use", "--loud", exit_code=2, says=("before '--loud'",))

    def test_control_characters_do_not_break_the_answer(self):
        if not is_native():
            self.skipTest("names of files hold no control characters there")
        self.assert_fails("not-found", "info", "no\nsuch\x1b[31m\x07.flm", says=("no such?[31m?.flm",))
        self.film("a\nb\x01.flm")
        self.assertEqual(self.run_json("info", "a\nb\x01.flm")["input"]["path"], "a\nb\x01.flm")
        self.run_json("info", "a\nb\x01.flm", "--frames", "9", code=1)

    # With the module for stills.

    def test_alpha_that_the_first_frame_has_not_is_told(self):
        self.needs_stills()
        opaque = [bytes([n * 9 % 256, 50, 99, 255]) for n in range(48)]
        clear = [pixel[:3] + bytes([n * 5]) for n, pixel in enumerate(opaque)]
        self.png("p.1.png", opaque, False)
        self.png("p.2.png", clear, True)
        self.png("p.3.png", opaque, True)
        for command in (("info", "p.#.png"), ("convert", "p.#.png", "o.flm", "--overwrite")):
            answer = self.run_json(*command, code=3, **self.stills_folder())
            self.assertEqual({warning["code"] for warning in answer["warnings"]}, {"lost-alpha"})
            self.assertIn("p.2.png", answer["warnings"][0]["message"])
        self.assertEqual(pictures_of(self.read("o.flm"))[3], [b"".join(opaque)] * 3)
        self.run_json("convert", "p.#.png", "o.flm", "--alpha", "straight", "--overwrite", **self.stills_folder())
        self.assertEqual(pictures_of(self.read("o.flm"))[3], [b"".join(opaque), b"".join(clear), b"".join(opaque)])
        self.run_json("convert", "p.#.png", "o.flm", "--alpha", "none", "--overwrite", **self.stills_folder())

    def test_the_reason_of_the_last_of_many_frames_is_told(self):
        self.needs_stills()
        self.png("p.0000.png", [b"\0\0\0\xff"] * 48, False)
        for n in range(1, 1101):
            self.write(f"p.{n:04d}.png", b"damaged")
        answer = self.run_json("info", "p.####.png", code=3, **self.stills_folder())
        self.assertEqual(len(answer["warnings"]), 1100)
        for warning in answer["warnings"]:
            self.assertIn("the module says: ", warning["message"])

    # Help of the tests above.

    def compared(self, *arguments):
        return self.run_json("compare", *arguments)["comparison"]["compared"]

    def stills_folder(self):
        return {"KQCLIP_MODULES": os.path.join(os.path.dirname(COMMAND[-1]), "modules")}

    def needs_stills(self):
        if not os.path.exists(os.path.join(self.stills_folder()["KQCLIP_MODULES"], "stills.ifm")):
            self.skipTest("the module for stills is not built here")

    def png(self, name, pixels, alpha):
        """A PNG of 8 x 6 pixels, with an alpha channel or without."""
        def chunk(kind, data):
            return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))
        rows = b"".join(b"\0" + b"".join(pixel if alpha else pixel[:3] for pixel in pixels[y * 8:y * 8 + 8]) for y in range(6))
        head = struct.pack(">IIBBBBB", 8, 6, 8, 6 if alpha else 2, 0, 0, 0)
        self.write(name, b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) + chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))

    def numbered(self, head, numbers, digits=4, tail=".vpb", seed=1):
        """Writes head NNNN tail for these numbers; what each reads back as."""
        _, pictures = filmstrip(8, 6, len(numbers), seed=seed)
        back = []
        for number, picture in zip(numbers, pictures):
            self.write("one.film", film_of([picture], 8, 6))
            self.run_tool("convert", "one.film", "one.vpb", "--extension", "flm", "--overwrite")
            self.run_tool("convert", "one.vpb", "back.film", "--single", "--write-extension", "flm", "--overwrite")
            os.replace("one.vpb", f"{head}{number:0{digits}d}{tail}")
            back.append(pictures_of(self.read("back.film"))[3][0])
        os.remove("one.film")
        os.remove("back.film")
        return back

    def frames_of(self, source, *options, code=0):
        """The pictures that a conversion to Filmstrip gives."""
        self.run_json("convert", source, "o.film", "--write-extension", "flm", "--overwrite", *options, code=code)
        pictures = pictures_of(self.read("o.film"))[3]
        os.remove("o.film")
        return pictures

    def telecined(self):
        """Writes v.NN.vpb, a film with 3:2 pull-down of phase 1."""
        _, video = telecined_film()
        self.write("video.flm", film_of(video, 64, 48, 30))
        self.run_tool("convert", "video.flm", "v.##.vpb")

    def guessed(self, code=0):
        return self.run_json("info", "v.##.vpb", "--pulldown", "guess", code=code)["input"]["pulldown"]["phase"]


if __name__ == "__main__":
    main()
