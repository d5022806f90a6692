"""Tests of what the tool writes where, what it refuses to write, and what it says about it."""
import os
import re
import shutil
import signal
import socket
import subprocess
import sys

from kqclip_test import png_pixels
from tool import COMMAND, ToolTest, is_native, main

ALARM = bytes((224, 122, 95))   # what a sheet marks damage with

WRITES = (("sheet", "a.flm", "o.png"), ("frame", "a.flm", "0", "o.png"), ("text", "Title", "o.svg"), ("convert", "a.flm", "o.ei"))


def named(arguments, name):
    """The same arguments with another output."""
    return (*arguments[:-1], name)


class WriteTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.film()

    # What is there is not replaced unasked.

    def test_every_subcommand_asks_for_overwrite(self):
        for arguments in WRITES:
            name = arguments[-1]
            self.write(name, b"old")
            self.assert_fails("exists", *arguments, says=("--overwrite",))
            self.assertEqual(self.read(name), b"old", arguments)
            self.run_tool(*arguments, "--overwrite")
            self.assertGreater(len(self.read(name)), 100, arguments)

    def test_only_regular_files_are_replaced(self):
        if not is_native():
            self.skipTest("the runner's host has no pipes and links to write to")
        self.write("kept", b"old")
        for arguments in WRITES:
            name = arguments[-1]
            for make, word in ((lambda: os.mkfifo(name), "regular"), (lambda: os.symlink("kept", name), "link"),
                               (lambda: os.symlink("nowhere", name), "link"), (lambda: os.mkdir(name), "folder")):
                make()
                kind = os.lstat(name).st_mode
                self.assert_fails("exists", *arguments, "--overwrite", says=(name, word))
                self.assertEqual(os.lstat(name).st_mode, kind)
                os.rmdir(name) if word == "folder" else os.remove(name)
        self.assertEqual(self.read("kept"), b"old")
        self.assertFalse(os.path.exists("nowhere"))

    def test_a_write_protected_file_is_not_replaced(self):
        for arguments in WRITES:
            self.write(arguments[-1], b"old")
            os.chmod(arguments[-1], 0o444)
            self.assert_fails("write-protected", *arguments, "--overwrite", says=(arguments[-1],))
            self.assertEqual(self.read(arguments[-1]), b"old")
            os.remove(arguments[-1])
        self.assertEqual(os.listdir("."), ["a.flm"])

    def test_a_device_is_not_replaced(self):
        if not is_native():
            self.skipTest("the runner's host has no devices among its files")
        kind = os.stat("/dev/null")
        self.assert_fails("exists", "convert", "a.flm", "/dev/null", "--write-extension", "flm", "--overwrite")
        self.assertEqual(os.stat("/dev/null").st_rdev, kind.st_rdev)

    def test_a_link_in_a_sequence_is_not_replaced(self):
        if not is_native():
            self.skipTest("the runner's host has no links")
        self.write("kept", b"old")
        os.symlink("kept", "s.2.vpb")
        self.assert_fails("exists", "convert", "a.flm", "s.#.vpb", "--overwrite", says=("s.2.vpb",))
        self.assertEqual((self.read("kept"), sorted(os.listdir("."))), (b"old", ["a.flm", "kept", "s.2.vpb"]))

    # The name tells the kind.

    def test_a_picture_is_called_png_and_a_line_of_text_svg(self):
        for arguments, right in zip(WRITES, (".png", ".png", ".svg")):
            for name in ("o.jpg", "o"):
                self.assert_fails("wrong-use", *named(arguments, name), exit_code=2, says=(name, right))
        self.assertEqual(os.listdir("."), ["a.flm"])
        self.run_tool("frame", "a.flm", "0", "O.PNG")

    # Moving into place.

    def sequence(self):
        for n in range(5):
            self.write(f"s.{n}.vpb", b"old")

    def test_a_move_that_fails_is_undone(self):
        if not is_native() or os.geteuid() != 0:
            self.skipTest("making a file that cannot be replaced takes the right to mount")
        self.sequence()
        os.remove("s.1.vpb")
        self.write("other", b"old")
        if subprocess.run(["mount", "--bind", "other", "s.3.vpb"], stderr=subprocess.DEVNULL).returncode != 0:
            self.skipTest("no right to mount here")
        try:
            self.assert_fails("cannot-write", "convert", "a.flm", "s.#.vpb", "--overwrite", says=("s.3.vpb", "as they were"))
        finally:
            subprocess.run(["umount", "s.3.vpb"], check=True)
        self.assertEqual(sorted(os.listdir(".")), ["a.flm", "other", "s.0.vpb", "s.2.vpb", "s.3.vpb", "s.4.vpb"])
        self.assertEqual({self.read(f"s.{n}.vpb") for n in (0, 2, 3, 4)}, {b"old"})

    def test_a_replaced_file_keeps_its_mode(self):
        if not is_native():
            self.skipTest("the runner's host has no such modes")
        self.sequence()
        for arguments in (*WRITES, ("convert", "a.flm", "s.#.vpb")):
            name = arguments[-1].replace("#", "2")
            for mode in (0o640, 0o604):
                self.write(name, b"old")
                os.chmod(name, mode)
                self.run_tool(*arguments, "--overwrite")
                self.assertNotEqual(self.read(name), b"old")
                self.assertEqual(os.stat(name).st_mode & 0o7777, mode, arguments)

    # Folders that have the names of those that killed runs leave.

    def left_complete(self, machine=None):
        dead = subprocess.Popen([sys.executable, "-c", ""])
        dead.wait()
        machine = machine or re.sub(r"[^A-Za-z0-9]", "_", os.uname().nodename)
        folder = f".kqclip-done-{machine}-{dead.pid}-0"
        os.mkdir(folder)
        self.write(os.path.join(folder, "s.2.vpb"), b"planted")
        return folder

    def test_a_complete_folder_of_the_user_is_moved_on(self):
        machine = None if is_native() else re.sub(r"[^A-Z0-9]", "_", socket.gethostname().split(".")[0].upper()[:15])
        folder = self.left_complete(machine)
        self.write("s.2.vpb", b"old")
        self.run_tool("info", "a.flm")
        self.assertEqual((self.read("s.2.vpb"), os.path.exists(folder)), (b"planted", False))

    def assert_left_alone(self, folder):
        self.write("s.2.vpb", b"old")
        self.run_tool("info", "a.flm")
        self.run_tool("convert", "a.flm", "p.ei", "--overwrite")
        self.assertEqual(self.read("s.2.vpb"), b"old")
        self.assertTrue(os.path.lexists(folder))

    def test_a_complete_folder_of_another_owner_is_left_alone(self):
        if not is_native() or os.geteuid() != 0:
            self.skipTest("only root can give a folder to another user")
        folder = self.left_complete()
        os.chown(folder, 12345, 12345)
        self.assert_left_alone(folder)
        os.chown(folder, 0, 0)
        os.chown(os.path.join(folder, "s.2.vpb"), 12345, 12345)
        self.assert_left_alone(folder)

    def test_a_complete_folder_behind_a_link_is_left_alone(self):
        if not is_native():
            self.skipTest("the runner's host has no links")
        folder = self.left_complete()
        os.rename(folder, "real")
        os.symlink("real", folder)
        self.assert_left_alone(folder)
        os.remove(folder)
        os.rename("real", folder)
        os.rename(os.path.join(folder, "s.2.vpb"), "secret")
        os.symlink(os.path.abspath("secret"), os.path.join(folder, "s.2.vpb"))
        self.assert_left_alone(folder)

    def test_a_complete_folder_of_another_machine_is_left_alone(self):
        folder = self.left_complete("elsewhere.")
        os.utime(folder, (0, 0))
        os.utime(os.path.join(folder, "s.2.vpb"), (0, 0))
        self.assert_left_alone(folder)

    def test_a_folder_of_a_process_of_the_same_number_is_completed(self):
        if not is_native():
            self.skipTest("the runner gives its programs other numbers")
        folder = self.left_complete()
        start = folder[:folder.rindex("-", 0, folder.rindex("-"))]
        script = f'mv "$1" "{start}-$$-0" && exec "$2" convert a.flm p.ei'
        done = subprocess.run(["sh", "-c", script, "sh", folder, *COMMAND], capture_output=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        self.assertEqual(self.read("s.2.vpb"), b"planted")

    def test_an_ignored_signal_stays_ignored(self):
        if not is_native():
            self.skipTest("the runner passes no signals on")
        script = 'trap "" HUP; exec "$1" convert a.flm o.ei --frames 0-3000000 --missing hold'
        run = subprocess.Popen(["sh", "-c", script, "sh", *COMMAND], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        while not any(name.startswith(".kqclip-work-") for name in os.listdir(".")):
            self.assertIsNone(run.poll())
        run.send_signal(signal.SIGHUP)
        with self.assertRaises(subprocess.TimeoutExpired):
            run.wait(0.3)
        run.send_signal(signal.SIGTERM)
        run.communicate(timeout=60)
        self.assertEqual(run.returncode, 130)

    def test_a_file_that_is_left_out_is_told_when_an_old_one_stays(self):
        self.run_tool("convert", "a.flm", "in.#.vpb")
        self.run_tool("convert", "a.flm", "out.#.vpb")
        old = self.read("out.2.vpb")
        self.write("in.2.vpb", b"damaged")
        output = self.run_json("convert", "in.#.vpb", "out.#.vpb", "--overwrite", "--missing", "skip", code=3)["output"]
        self.assertEqual((output["files"], output["replaced"], output["others"]), (4, 4, "2"))
        self.assertEqual(self.read("out.2.vpb"), old)

    def test_an_unfinished_folder_of_another_owner_is_left_alone(self):
        if not is_native() or os.geteuid() != 0:
            self.skipTest("only root can give a folder to another user")
        folder = self.left_complete()
        work = folder.replace("done", "work")
        os.rename(folder, work)
        os.chown(work, 12345, 12345)
        self.assert_left_alone(work)

    # What an output is called and numbered.

    def test_a_format_that_is_only_read_is_refused_early(self):
        formats = self.run_json("formats", **self.with_modules())["formats"]
        only_read = [e for module in formats for e in module["extensions"] if e not in module["written"]]
        for extension in only_read[:3]:
            self.assert_fails("unknown-format", "convert", "a.flm", f"o.{extension}", "--frames", "0", **self.with_modules(),
                              says=(f"no format module writes .{extension} files",))
        for module in formats:
            self.assertEqual(bool(module["written"]), module["writes"], module)
            self.assertLessEqual(set(module["written"]), set(module["extensions"]), module)
            for extension in module["written"][:3]:
                self.run_tool("convert", "a.flm", f"o.{extension}", "--frames", "0", "--dry-run", **self.with_modules())
        out, _ = self.run_tool("formats", **self.with_modules())
        if only_read:
            self.assertRegex(out, r"(?m)^Stills .* \.png.*; only reads( \.\w+)+$")

    def test_a_longer_word_is_not_the_extension_that_it_begins_with(self):
        self.assert_fails("unknown-format", "convert", "a.flm", "o.webpages", "--frames", "0", **self.with_modules(),
                          says=(".webpages files",))

    def test_any_name_takes_any_format(self):
        self.needs_stills()
        for extension in ("png", ".TIF"):
            for name, frames in (("shot", "0"), ("shot.img", "0"), ("f.#.img", "0-2")):
                self.run_tool("convert", "a.flm", name, "--write-extension", extension, "--frames", frames, "--overwrite",
                              **self.with_modules())
                head = self.read(name.replace("#", frames[-1]))[:4]
                self.assertIn(head, (b"\x89PNG",) if extension == "png" else (b"II*\0", b"MM\0*"), (name, extension))
        self.run_tool("convert", "a.flm", "film", "--write-extension", "ei")
        self.assertEqual(self.run_json("info", "film", "--extension", "ei")["input"]["frames"], 5)
        self.assertEqual([name for name in os.listdir(".") if name.startswith((".", "shot.img."))], [])

    def test_two_frames_of_one_name_are_refused(self):
        for frames in ("1,1", "0-2,1", "2-0,0"):
            self.assert_fails("wrong-use", "convert", "a.flm", "s.#.vpb", "--frames", frames, exit_code=2, says=("--start",))
        self.assertEqual(os.listdir("."), ["a.flm"])
        self.run_tool("convert", "a.flm", "s.#.vpb", "--frames", "1,1", "--start", "4")
        self.run_tool("convert", "a.flm", "o.ei", "--frames", "1,1")
        self.assertEqual(sorted(os.listdir(".")), ["a.flm", "o.ei", "s.4.vpb", "s.5.vpb"])

    def test_one_file_is_not_numbered(self):
        self.assert_fails("wrong-use", "convert", "a.flm", "o.ei", "--start", "1", exit_code=2, says=("--start", "o.ei"))
        self.assert_fails("wrong-use", "convert", "a.flm", "o.vpb", "--frames", "0", "--start", "1", exit_code=2)

    # What a format cannot hold.

    def test_a_rate_that_the_format_does_not_hold_is_noted(self):
        answer = self.run_json("convert", "a.flm", "o.flm", "--rate", "23.976")
        self.assertEqual([note["code"] for note in answer["notes"]], ["rate-changed"])
        self.assertIn("24 frames a second, not 23.976", answer["notes"][0]["message"])
        _, err = self.run_tool("convert", "a.flm", "o.flm", "--rate", "23.976", "--overwrite")
        self.assertRegex(err, r"^kqclip: note: 'o.flm' plays 24 .*\n$")
        for name, rate in (("o.flm", "25"), ("o.ei", "23.976"), ("s.#.vpb", "23.976")):
            self.assertEqual(self.run_json("convert", "a.flm", name, "--rate", rate, "--overwrite")["notes"], [], name)

    def test_alpha_that_the_format_does_not_hold_is_noted(self):
        self.film("alpha.flm", alpha=True)
        answer = self.run_json("convert", "alpha.flm", "s.#.vpb")
        self.assertEqual([note["code"] for note in answer["notes"]], ["alpha-dropped"])
        for arguments in (("a.flm", "s.#.vpb"), ("alpha.flm", "s.#.vpb", "--write-alpha", "none"), ("alpha.flm", "o.ei"),
                          ("alpha.flm", "o.flm")):
            self.assertEqual(self.run_json("convert", *arguments, "--overwrite")["notes"], [], arguments)

    def test_stills_note_alpha_too(self):
        self.needs_stills()
        self.film("alpha.flm", alpha=True)
        for extension, notes in (("png", []), ("jpg", ["alpha-dropped"])):
            answer = self.run_json("convert", "alpha.flm", "s.#." + extension, **self.with_modules())
            self.assertEqual([note["code"] for note in answer["notes"]], notes, extension)

    # Options and words.

    def test_sizes_and_colours_are_read_strictly(self):
        for size in ("8x6x", "8x6 ", " 8x6", "8x 6", "+8x6", "8X6", "8x", "x6", "8", "8x6.5", "99999999999x6", "0x8", "-8x6"):
            self.assertIn("WxH", self.run_tool("convert", "a.flm", "o.ei", "--size=" + size, code=2)[1])
        self.assert_fails("wrong-use", "sheet", "a.flm", "o.png", "--cell=8x6 ", exit_code=2, says=("--cell", "WxH"))
        self.assert_fails("wrong-use", "frame", "a.flm", "0", "o.png", "--size=8x6 ", exit_code=2, says=("--size", "WxH"))
        for matte in ("12345", "1234567", "12345g", " 12345", "0x1234", "+1+2+3", "##123456"):
            self.assertIn("RRGGBB", self.run_tool("info", "a.flm", "--matte=" + matte, code=2)[1])
        self.run_tool("info", "a.flm", "--matte", "#aBcDeF")
        self.assertEqual(os.listdir("."), ["a.flm"])

    def test_a_frame_is_chosen_by_its_number_alone(self):
        self.run_json("frame", "a.flm", "0", "o.png", "--frames", "1", code=2)
        self.assertNotIn("--frames ", self.run_tool("frame", "--help")[0])

    def test_one_is_not_many(self):
        self.film("one.flm", frames=1)
        self.assertIn("wrote 1 frame of 8", self.run_tool("convert", "one.flm", "o.ei")[0])
        self.assertIn("wrote 5 frames of 8", self.run_tool("convert", "a.flm", "p.ei")[0])
        self.assertIn("5 frames of 8 x 6 as Quantel VPB, 5 files", self.run_tool("convert", "a.flm", "s.#.vpb")[0])
        self.assertIn("a sheet of 1 frame:", self.run_tool("sheet", "one.flm", "o.png")[0])
        self.assertIn("wrote 1 character in", self.run_tool("text", "A", "o.svg")[0])
        self.assert_fails("exists", "convert", "a.flm", "s.#.vpb", says=("s.0.vpb and 4 more exist; --overwrite replaces them",))

    def test_a_reader_that_goes_away_is_no_failure(self):
        if not is_native():
            self.skipTest("the runner keeps the pipe open")
        for arguments in (("info", "a.flm"), ("formats", "--json"), ("convert", "a.flm", "o.ei")):
            ours, theirs = os.pipe()
            os.close(ours)
            done = subprocess.run([*COMMAND, *arguments], stdout=theirs, stderr=subprocess.PIPE, env=self.environment())
            os.close(theirs)
            self.assertEqual((done.returncode, done.stderr), (0, b""), arguments)

    # The sheet.

    def sheet(self, clip, *options, code=0):
        """The sheet's facts, its pixels and its number of warning-coloured ones."""
        facts = self.run_json("sheet", clip, "o.png", "--overwrite", *options, code=code)["output"]
        pixels = png_pixels(self.read("o.png"))
        return facts, pixels, sum(pixels[i:i + 3] == ALARM for i in range(0, len(pixels), 4))

    def test_the_number_of_columns_suits_the_count(self):
        self.film("wide.flm", width=64, height=36, frames=48)
        for count, columns in ((1, 1), (2, 2), (3, 3), (5, 3), (6, 3), (7, 4), (12, 4), (48, 8)):
            facts = self.run_json("sheet", "wide.flm", f"{count}.png", "--most", str(count))["output"]
            self.assertEqual(facts["columns"], columns, count)

    def test_a_long_title_ends_before_the_edge(self):
        name = "a title \u00e4\u00f6\u00fc that is longer than its sheet is wide, whatever font it is in.flm"
        self.film(name, width=64, height=36, frames=2)
        for cell in ("40x30", "192x144"):
            facts, pixels, _ = self.sheet(name, "--cell", cell)
            width = facts["width"]
            for y in range(70):
                row = pixels[y * width * 4:(y + 1) * width * 4]
                self.assertEqual(row[(width - 15) * 4:], row[-4:] * 15, (cell, y))
            self.assertTrue(any(pixels[i] > 150 for i in range(0, 40 * width * 4, 4)), "no title")

    def test_facts_stand_below_the_title(self):
        self.film("wide.flm", width=64, height=36, frames=2)
        facts, pixels, _ = self.sheet("wide.flm")
        for rows in (range(16, 38), range(44, 60)):   # the title; the facts
            inked = [y for y in rows if any(pixels[(y * facts["width"] + x) * 4] > 100 for x in range(16, facts["width"]))]
            self.assertTrue(inked, rows)

    def test_damaged_and_missing_frames_are_marked(self):
        self.stills([1, 2, 4, 5])
        whole, some = self.sheet("shot.####.vpb", "--frames", "1-2"), self.sheet("shot.####.vpb", code=3)
        self.assertEqual(whole[2], 0)
        gap = some[2]
        self.assertGreater(gap, 100)
        held = self.sheet("shot.####.vpb", "--frames", "1-5", "--missing", "hold", code=3)[2]
        self.assertGreater(held, 2 * (192 + 90))   # a border
        self.write("shot.0002.vpb", b"damaged")
        self.assertGreater(self.sheet("shot.####.vpb", code=3)[2], gap + 2 * (192 + 90))

    # Completions.

    def bash(self, *words):
        """What bash offers for the last word."""
        if not shutil.which("bash"):
            self.skipTest("there is no bash")
        self.write("kqclip.bash", self.run_tool("--generate", "bash")[0].encode())
        script = '. ./kqclip.bash; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _kqclip; printf "%s\\n" "${COMPREPLY[@]}"'
        done = subprocess.run(["bash", "--norc", "-c", script, "bash", "kqclip", *words], capture_output=True, check=True)
        self.assertEqual(done.stderr, b"")
        return done.stdout.decode().split()

    def test_bash_completes_commands_options_and_words(self):
        for words, wanted in ((["conv"], ["convert"]), (["convert", "a", "b", "--missing", "n"], ["nearest"]),
                              (["convert", "a", "b", "--missing", "=", "n"], ["nearest"]),
                              (["convert", "a", "b", "--overwrite", "--dry"], ["--dry-run"]),
                              (["convert", "--overwrite", "--json", "--missing", "bl"], ["black"]),
                              (["frame", "a", "1", "--fr"], []), (["text", "T", "--o"], ["--overwrite"])):
            self.assertEqual(self.bash(*words), wanted, words)

    def test_bash_leaves_file_names_to_the_shell(self):
        self.film("a film with blanks.flm")
        for words in (["info", "a"], ["convert", "--overwrite", "a"], ["info", "--size", "a"]):
            self.assertEqual(self.bash(*words), [], words)
        self.assertRegex(self.run_tool("--generate", "bash")[0], r"\ncomplete (-o bashdefault )?-o default -F _kqclip kqclip\n$")

    def test_fish_and_zsh_know_flags_from_options_with_values(self):
        fish, zsh = self.run_tool("--generate", "fish")[0], self.run_tool("--generate", "zsh")[0]
        self.assertIn(" -l overwrite -d 'Replace what exists, once the output is complete'\n", fish)
        self.assertIn(" -l missing -x -a 'error hold nearest black skip' -d '", fish)
        self.assertIn(" -l size -x -d '", fish)
        self.assertIn("'--overwrite[Replace what exists, once the output is complete]' ", zsh)
        self.assertIn("]:word:(error hold nearest black skip)'", zsh)
        for line in fish.splitlines()[1:]:
            self.assertRegex(line, r" -d '([^'\\]|\\')+'$")

    def test_fish_and_zsh_take_their_completions(self):
        tried = []
        for shell, check in (("fish", "fish --no-execute {}"), ("zsh", "zsh -n {}"), ("bash", "bash -n {}")):
            if not shutil.which(shell):
                continue
            self.write("completion", self.run_tool("--generate", shell)[0].encode())
            subprocess.run(check.format("completion").split(), check=True)
            tried.append(shell)
        if "fish" in tried:
            self.write("completion", self.run_tool("--generate", "fish")[0].encode())
            done = subprocess.run(["fish", "--no-config", "-c", 'source completion; complete -C "kqclip convert a b --over"'],
                                  capture_output=True, check=True)
            self.assertEqual(done.stdout.decode().split("\t")[0], "--overwrite")
        if not tried:
            self.skipTest("none of the shells is there")

    # Help of the tests above.

    @staticmethod
    def with_modules():
        return {"KQCLIP_MODULES": os.path.join(os.path.dirname(COMMAND[-1]), "modules")}

    def needs_stills(self):
        written = [e for module in self.run_json("formats", **self.with_modules())["formats"] for e in module["written"]]
        if not {"png", "jpg", "tif"} <= set(written):
            self.skipTest("no module of this build writes stills")


if __name__ == "__main__":
    main()
