"""Tests of what the tool writes where, what it refuses to write, and what it says about it."""
import os
import re
import shutil
import subprocess
import sys

from tool import ToolTest, is_native, main

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
            for name in ("o.jpg", "o.flm", "o", "png"):
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

    def test_an_unfinished_folder_of_another_owner_is_left_alone(self):
        if not is_native() or os.geteuid() != 0:
            self.skipTest("only root can give a folder to another user")
        folder = self.left_complete()
        work = folder.replace("done", "work")
        os.rename(folder, work)
        os.chown(work, 12345, 12345)
        self.assert_left_alone(work)


if __name__ == "__main__":
    main()
