"""Tests of the tool's JSON: every subcommand, done and failed, against docs/kqclip.schema.json. (run_json validates each
answer; the other test files of the tool do so as well.)"""
import json
import os
import pathlib
import re

import jsonschema

from tool import SCHEMA, TREE, ToolTest, VALIDATOR, main


class JsonTest(ToolTest):
    def test_the_schema_is_one(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)

    def test_the_schema_refuses_what_is_wrong(self):
        self.film()
        good = self.run_json("info", "a.flm")
        for change in ({"exitCode": 7}, {"ok": False}, {"warnings": ["text"]}, {"command": "look"}, {"extra": 1},
                       {"missing": "1-"}, {"damaged": "three"}, {"exitCode": 1}, {"error": {"code": "x", "message": "y"}}):
            self.assertFalse(VALIDATOR.is_valid({**good, **change}), change)
        del good["input"]["alpha"]
        self.assertFalse(VALIDATOR.is_valid(good))

    def test_every_subcommand_done(self):
        self.film(alpha=True)
        for arguments in (("formats",), ("info", "a.flm"), ("sheet", "a.flm", "o.png"), ("frame", "a.flm", "1", "p.png"),
                          ("convert", "a.flm", "o.ei"), ("convert", "a.flm", "s.##.vpb"), ("compare", "a.flm", "a.flm"),
                          ("convert", "a.flm", "x.ei", "--dry-run"), ("fonts",), ("text", "Title", "o.svg")):
            answer = self.run_json(*arguments)
            self.assertEqual(answer["command"], arguments[0])
            self.assertEqual(answer["warnings"], [])

    def test_every_subcommand_done_with_something_missing(self):
        self.stills([1, 2, 4])
        for arguments in (("info", "shot.####.vpb"), ("sheet", "shot.####.vpb", "o.png"),
                          ("frame", "shot.####.vpb", "3", "p.png", "--missing", "hold"),
                          ("convert", "shot.####.vpb", "o.flm", "--missing", "hold"),
                          ("compare", "shot.####.vpb", "shot.####.vpb")):
            self.assertEqual(self.run_json(*arguments, code=3)["missing"], "3", arguments)
        self.assertEqual(self.run_json("text", "\u4e00", "o.svg", code=3)["warnings"][0]["code"], "substituted-characters")

    def test_every_subcommand_failed(self):
        self.film()
        os.mkdir("empty")
        self.write("bad.flm", bytes(100))
        self.film("wide.flm", width=16)
        for code, exit_code, arguments in (
                ("wrong-use", 2, ("formats", "more")), ("wrong-use", 2, ("formats", "--modules", "none")),
                ("not-found", 1, ("info", "none.flm")), ("damaged", 1, ("info", "bad.flm")),
                ("no-frames", 1, ("info", "empty")), ("wrong-use", 2, ("info",)),
                ("wrong-use", 2, ("info", "a.flm", "--alpha", "much")), ("wrong-use", 2, ("info", "a.flm", "--matte", "red")),
                ("too-large", 1, ("sheet", "a.flm", "o.png", "--cell", "32767x32767")),
                ("wrong-use", 2, ("sheet", "a.flm", "o.png", "--columns", "0")),
                ("missing-frames", 1, ("frame", "a.flm", "9", "o.png")), ("wrong-use", 2, ("frame", "a.flm", "x", "o.png")),
                ("unknown-format", 1, ("convert", "a.flm", "o.xyz")), ("exists", 1, ("convert", "a.flm", "a.flm")),
                ("exists", 1, ("convert", "a.flm", "empty", "--write-extension", "flm", "--overwrite")),
                ("wrong-use", 2, ("convert", "a.flm", "o.ei", "--size", "0x1")),
                ("wrong-use", 2, ("convert", "a.flm", "o.ei", "--frames", "1-2x0")),
                ("different-size", 1, ("compare", "a.flm", "wide.flm")), ("not-found", 1, ("compare", "a.flm", "b.flm")),
                ("wrong-use", 2, ("fonts", "--progress", "loud")), ("no-such-font", 1, ("text", "T", "o.svg", "--font", "-")),
                ("wrong-use", 2, ("text", "T"))):
            answer = self.run_json(*arguments, code=exit_code)
            self.assertEqual((answer["error"]["code"], answer["command"]), (code, arguments[0]), arguments)

    def test_a_command_line_without_a_subcommand_is_told_in_json(self):
        self.assertIsNone(self.run_json(code=2)["command"])
        self.assertIsNone(self.run_json("look", code=2)["command"])

    def test_each_error_is_one_line_of_text_too(self):
        for arguments in (("look",), ("info",), ("info", "a", "--alpha", "x"), ("convert", "a", "b", "--start", "-1")):
            out, err = self.run_tool(*arguments, code=2)
            self.assertEqual((out, err.count("\n")), ("", 1), err)
            self.assertRegex(err, r"^kqclip: .*--help' tells more\n$")

    def test_alpha_and_how_it_was_found(self):
        self.film(alpha=True)
        alpha = self.run_json("info", "a.flm")["input"]["alpha"]
        self.assertEqual(alpha["source"], "guessed")
        given = self.run_json("info", "a.flm", "--alpha", "premultiplied", "--matte", "ff0080")["input"]["alpha"]
        self.assertEqual((given["mode"], given["source"]), ("premultiplied", "given"))
        self.assertEqual([round(c * 255) for c in given["matte"]], [255, 0, 128])
        self.stills([1])
        self.assertEqual(self.run_json("info", "shot.0001.vpb")["input"]["alpha"]["source"], "no alpha channel")

    def test_video_sizes_have_their_pixel_aspect(self):
        self.film(width=720, height=486, frames=1)
        self.assertEqual(self.run_json("info", "a.flm")["input"]["pixelAspect"], 0.9)

    def test_what_a_module_says_is_in_the_answer(self):
        self.write("refused.ifm", b"no library")
        said = self.run_json("formats", "--modules", ".")["said"]
        self.assertEqual([line for line in said if "refused.ifm" in line], said)
        self.assertTrue(said)

    def test_progress_is_json_too(self):
        self.film(frames=3)
        shape = {"$ref": "#/$defs/progress", "$defs": SCHEMA["$defs"]}
        for arguments in (("convert", "a.flm", "o.ei"), ("sheet", "a.flm", "o.png"), ("compare", "a.flm", "a.flm")):
            _, err = self.run_tool(*arguments, "--progress", "json")
            lines = [json.loads(line) for line in err.splitlines()]
            for line in lines:
                jsonschema.Draft202012Validator(shape).validate(line)
            self.assertEqual((lines[-1]["progress"]["done"], lines[-1]["progress"]["percent"]), (3, 100))

    def test_the_schema_lists_every_code_of_the_sources(self):
        folder = os.path.join(TREE, "apps", "kqclip")
        text = "".join(pathlib.Path(folder, name).read_text(encoding="utf-8")
                       for name in sorted(os.listdir(folder)) if name.endswith(".cpp"))
        errors = set(re.findall(r'(?<!Library)Failure\(\s*"([a-z-]+)"', text)) | set(re.findall(r'return \{"([a-z-]+)", "', text))
        errors |= set(re.findall(r'error = \{\{"code", "([a-z-]+)"\}', text)) | {"wrong-use", "disk-full"}
        warnings = set(re.findall(r'Warn\("([a-z-]+)"', text))
        notes = set(re.findall(r'Note\("([a-z-]+)"', text))
        self.assertEqual(notes, set(SCHEMA["properties"]["notes"]["items"]["properties"]["code"]["enum"]))
        self.assertEqual(errors, set(SCHEMA["$defs"]["errorCode"]["enum"]))
        self.assertEqual(warnings, set(SCHEMA["properties"]["warnings"]["items"]["properties"]["code"]["enum"]))

    def test_help_and_manual_tell_every_exit_code(self):
        codes = [str(code) for code in SCHEMA["properties"]["exitCode"]["enum"]]
        texts = [self.run_tool("--help")[0], self.run_tool("convert", "--help")[0]]
        for text in texts:
            for code in codes:
                self.assertRegex(text, rf"\n  {code} +\w")
        manual, _ = self.run_tool("--generate", "man")
        for code in codes:
            self.assertIn(f".TP\n.B {code}\n", manual)

    def test_the_guide_tells_every_code(self):
        with open(os.path.join(TREE, "docs", "kqclip.md"), encoding="utf-8") as file:
            guide = file.read()
        kinds = [SCHEMA["properties"][list]["items"]["properties"]["code"]["enum"] for list in ("warnings", "notes")]
        for code in sum(kinds, SCHEMA["$defs"]["errorCode"]["enum"]):
            self.assertIn(f"`{code}`", guide)
        for code in SCHEMA["properties"]["warnings"]["items"]["properties"]["code"]["enum"]:
            self.assertIn(f"`{code}`", guide)


if __name__ == "__main__":
    main()
