"""Tests of what the tool writes where, what it refuses to write, and what it says about it."""
import os

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


if __name__ == "__main__":
    main()
