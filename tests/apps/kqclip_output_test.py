"""Tests of what the tool leaves on the disk when it is stopped, killed, or the disk is full."""
import json
import os
import re
import signal
import subprocess
import sys
import time

from tool import COMMAND, ToolTest, is_native, main

LONG = ("--frames", "0-9000000", "--missing", "hold")   # until it is stopped


class OutputTest(ToolTest):
    def left(self):
        return sorted(os.listdir("."))

    # Stopped by a signal or by Control-C.

    def needs_signals(self):
        if not is_native():
            self.skipTest("the runner of another platform passes no signals on")

    def stop(self, number, *arguments):
        """Starts the tool, sends it the signal once it is at work, and returns (exit code, output)."""
        process = subprocess.Popen([*COMMAND, *arguments, "--progress", "json", "--json"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, env=self.environment())
        self.assertIn(b"progress", process.stderr.readline())
        process.send_signal(number)
        out, _ = process.communicate(timeout=60)
        return process.returncode, json.loads(out)

    def test_a_signal_stops_cleanly(self):
        self.needs_signals()
        self.film(frames=2)
        self.write("o.ei", b"old")
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            code, answer = self.stop(number, "convert", "a.flm", "o.ei", "--overwrite", *LONG)
            self.assertEqual((code, answer["error"]["code"]), (130, "interrupted"))
            self.assertEqual(self.left(), ["a.flm", "o.ei"])
            self.assertEqual(self.read("o.ei"), b"old")

    def test_a_stopped_sequence_leaves_the_old_one_whole(self):
        self.needs_signals()
        self.film(frames=2)
        os.mkdir("s")
        for n in range(3):
            self.write(f"s/f.{n:07d}.vpb", b"old")
        code, _ = self.stop(signal.SIGINT, "convert", "a.flm", "s/f.#######.vpb", "--overwrite", "--frames", "0-200000", *LONG[2:])
        self.assertEqual(code, 130)
        self.assertEqual(sorted(os.listdir("s")), [f"f.{n:07d}.vpb" for n in range(3)])
        self.assertEqual({self.read(f"s/f.{n:07d}.vpb") for n in range(3)}, {b"old"})
        code, _ = self.stop(signal.SIGINT, "convert", "a.flm", "new/f.#######.vpb", "--frames", "0-200000", *LONG[2:])
        self.assertEqual((code, os.path.exists("new")), (130, False))

    def test_control_c_on_a_terminal(self):
        self.needs_signals()
        import pty
        self.film(frames=2)
        pid, terminal = pty.fork()
        if pid == 0:
            os.execvpe(COMMAND[0], [*COMMAND, "convert", "a.flm", "o.ei", *LONG], self.environment())
        shown = b""
        while b" left" not in shown:
            shown += os.read(terminal, 4096)
        os.write(terminal, b"\x03")
        try:
            while more := os.read(terminal, 4096):
                shown += more
        except OSError:
            pass   # the terminal has no more writers
        _, status = os.waitpid(pid, 0)
        self.assertEqual(os.waitstatus_to_exitcode(status), 130)
        text = shown.decode().replace("\r\n", "\n")
        self.assertRegex(text, r"\rconvert: \d+ of 9000001, \d+ %, [\d.]+ a second, [\d:]+( s)? left\x1b\[K")
        self.assertIn("\r\x1b[Kkqclip: ", text)
        self.assertTrue(text.endswith("\nkqclip: stopped; no unfinished output is left\n"), text)
        self.assertEqual(self.left(), ["a.flm"])

    def test_no_progress_where_nobody_looks(self):
        self.film(frames=2)
        _, err = self.run_tool("convert", "a.flm", "o.ei")
        self.assertEqual(err, "")

    # What killed runs left.

    def test_the_next_run_removes_what_a_killed_one_left(self):
        self.needs_signals()
        self.film(frames=2)
        process = subprocess.Popen([*COMMAND, "convert", "a.flm", "o.ei", "--progress", "json", *LONG],
                                   stderr=subprocess.PIPE, env=self.environment())
        process.stderr.readline()
        process.kill()
        process.communicate()
        self.assertTrue([name for name in self.left() if name.startswith(".kqclip-work-")])
        self.run_tool("convert", "a.flm", "p.ei")
        self.assertEqual(self.left(), ["a.flm", "p.ei"])

    def test_the_next_run_completes_a_move_that_was_cut_short(self):
        self.needs_signals()
        dead = subprocess.Popen([sys.executable, "-c", ""])
        dead.wait()
        self.film(frames=2)
        machine = re.sub(r"[^A-Za-z0-9]", "_", os.uname().nodename)
        folder = f".kqclip-done-{machine}-{dead.pid}-0"
        os.mkdir(folder)
        self.write(os.path.join(folder, "s.2.vpb"), b"new")
        self.write("s.1.vpb", b"new")
        self.write("s.2.vpb", b"old")
        self.run_tool("convert", "a.flm", "p.ei")
        self.assertEqual(self.left(), ["a.flm", "p.ei", "s.1.vpb", "s.2.vpb"])
        self.assertEqual(self.read("s.2.vpb"), b"new")

    def test_a_run_at_work_is_left_alone(self):
        self.needs_signals()
        self.film(frames=2)
        process = subprocess.Popen([*COMMAND, "convert", "a.flm", "o.ei", "--progress", "json", *LONG],
                                   stderr=subprocess.PIPE, env=self.environment())
        process.stderr.readline()
        self.run_tool("convert", "a.flm", "p.ei")
        at_work = [name for name in self.left() if name.startswith(".kqclip-work-")]
        process.terminate()
        process.communicate()
        self.assertEqual(len(at_work), 1)
        self.assertEqual((process.returncode, self.left()), (130, ["a.flm", "p.ei"]))

    def test_a_folder_of_another_machine_is_left_alone_for_a_day(self):
        self.film(frames=2)
        for name, hours in (("young", 1), ("old", 30)):
            os.mkdir(f".kqclip-work-elsewhere.{name}-1-0")
            when = time.time() - hours * 3600
            os.utime(f".kqclip-work-elsewhere.{name}-1-0", (when, when))
        self.run_tool("convert", "a.flm", "p.ei")
        self.assertEqual(self.left(), [".kqclip-work-elsewhere.young-1-0", "a.flm", "p.ei"])

    # A full disk.

    def full_disk(self, bytes_free):
        """A small file system of its own at ./disk; without the right to mount one, a limit on file sizes."""
        if not is_native():
            self.skipTest("the runner of another platform has no disk that can be filled")
        os.mkdir("disk")
        if os.geteuid() == 0 and subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={bytes_free}", "tmpfs", "disk"],
                                                stderr=subprocess.DEVNULL).returncode == 0:
            self.addCleanup(subprocess.run, ["umount", "disk"])
            return {}
        print("no right to mount a small disk: a limit on file sizes stands for it", file=sys.stderr)
        import resource

        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (4096, 4096))
        return {"preexec_fn": limit, "restore_signals": False}

    def fails_on(self, start, *arguments):
        done = subprocess.run([*COMMAND, *arguments], capture_output=True, timeout=120, **start,
                              env=self.environment(KQCLIP_MODULES=os.path.join(os.path.dirname(COMMAND[-1]), "modules")))
        text = done.stderr.decode()
        self.assertEqual((done.returncode, text.count("\n")), (1, 1), (arguments, text))
        self.assertIn("cannot write 'disk/", text.replace("cannot create", "cannot write"))
        if not start:
            self.assertIn("the disk is full", text, arguments)

    def test_a_full_disk_leaves_the_old_output_whole(self):
        start = self.full_disk(65536)
        self.film(width=160, height=120, frames=4)
        folder = os.path.join(os.path.dirname(COMMAND[-1]), "modules")
        formats = self.run_json("formats", KQCLIP_MODULES=folder)["formats"]
        tried = []
        for module in formats:
            for extension in module["extensions"] if module["writes"] else []:
                one = module["files"] == "one file a clip"
                target = f"disk/o.{extension}" if one else f"disk/o.0.{extension}"
                probe = ("convert", "a.flm", "probe." + extension, "--frames", "0", "--overwrite")
                if subprocess.run([*COMMAND, *probe], capture_output=True,
                                  env=self.environment(KQCLIP_MODULES=folder)).returncode != 0:
                    continue   # this extension is read only
                if os.path.getsize("probe." + extension) * 4 < 80000:
                    continue   # four such frames fit the disk
                self.write(target, b"old")
                self.fails_on(start, "convert", "a.flm", target if one else f"disk/o.#.{extension}", "--overwrite")
                self.assertEqual(self.read(target), b"old")
                self.assertEqual(os.listdir("disk"), [os.path.basename(target)])
                os.remove(target)
                tried.append(extension)
        print("full disk:", *tried, file=sys.stderr)
        self.assertTrue({"flm", "ei", "vpb"} <= set(tried), tried)

    def test_a_full_disk_is_told_of_sheets_frames_and_text(self):
        start = self.full_disk(65536)
        self.film(width=160, height=120, frames=4)
        for name, arguments in (("o.png", ("sheet", "a.flm", "disk/o.png")), ("o.png", ("frame", "a.flm", "0", "disk/o.png")),
                                ("o.svg", ("text", "Aa" * 200, "disk/o.svg", "--size", "48"))):
            self.write("disk/" + name, b"old")
            self.fails_on(start, *arguments, "--overwrite")
            self.assertEqual({self.read("disk/" + name) for name in os.listdir("disk")}, {b"old"})
            for name in os.listdir("disk"):
                os.remove("disk/" + name)

    def test_a_folder_that_cannot_be_written_is_told(self):
        self.film(frames=1)
        self.write("file", b"")
        answer = self.run_json("convert", "a.flm", "file/o.ei", code=1)
        self.assertIn(answer["error"]["code"], ("cannot-write", "cannot-create", "access-denied"))


if __name__ == "__main__":
    main()
