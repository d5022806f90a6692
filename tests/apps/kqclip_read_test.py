"""Tests of how the tool finds and reads its input: names, numbers, gaps and pull-down of sequences."""
import os
import shutil

from tool import ToolTest, film_of, filmstrip, main, pictures_of

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

    # Pull-down of sequences.

    def test_pulldown_of_a_sequence_is_that_of_a_film(self):
        self.numbered("s.", range(1, 13))
        self.run_tool("convert", "s.####.vpb", "all.flm", "--rate", "30")
        for phase in "12345":
            for fields in "12":
                options = ("--pulldown", phase, "--fields", fields)
                wanted = self.frames_of("all.flm", *options)
                got = self.frames_of("s.####.vpb", *options)
                # The film's last frame is woven with black where its second half is behind the end.
                whole = len(wanted) - (int(phase) > 3)
                self.assertEqual((len(got), got[:whole]), (len(wanted), wanted[:whole]), options)
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

    # Help of the tests above.

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
        width, height = 64, 48
        films = []
        for n in range(32):   # a bright bar that moves three pixels a frame
            row = b"".join((b"\xff" if (x - 3 * n) % width < 12 else b"\x20") * 3 + b"\xff" for x in range(width))
            films.append(row * height)
        video = []
        for n in range(0, 32, 4):
            a, b, c, d = films[n:n + 4]
            after = films[n + 4] if n + 4 < 32 else d
            rows = lambda even, odd: b"".join((odd if y % 2 else even)[y * width * 4:(y + 1) * width * 4] for y in range(height))
            video += [a, b, c, rows(d, c), rows(after, d)]
        self.write("video.flm", film_of(video, width, height, 30))
        self.run_tool("convert", "video.flm", "v.##.vpb")

    def guessed(self, code=0):
        return self.run_json("info", "v.##.vpb", "--pulldown", "guess", code=code)["input"]["pulldown"]["phase"]


if __name__ == "__main__":
    main()
