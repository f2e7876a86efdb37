"""kswctl inspect and kswctl import: what jobs stand for, and whole folders of them registered, which may take long."""

import json
import os
import pathlib
import plistlib
import pty
import re
import select
import shutil
import signal
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import REQUEST_SECONDS, LiveDaemon, WithDaemon, program  # noqa: E402
from signing import WithSigners  # noqa: E402

INSPECTED_KEYS = [
    "identifier", "name", "developerName", "type", "typeText", "flags", "flagsText", "disposition", "dispositionText",
    "url", "executablePath", "programArguments", "launcher", "modificationDate", "executableModificationDate", "sha256",
    "bundleIdentifier", "associatedBundleIdentifiers", "teamIdentifier", "designatedRequirement",
    "lightweightRequirement", "vouchingApplication", "container", "containerURL", "developer", "iconURL",
]  # fmt: skip
CLAIMS = "AssociatedBundleIdentifiers"


class Inspecting(WithSigners):
    def job(self, name, **keys):
        return self.file(name, plistlib.dumps(keys))

    def app(self, path, identifier="com.example.tool", team="TEAM123"):
        """A signed application, installed when its path is that of a folder of the host."""
        contents = path / "Contents"
        (contents / "Linux").mkdir(parents=True)
        information = {"QCBundleIdentifier": identifier, "QCBundleExecutable": "tool", "QCBundleDisplayName": "The Tool"}
        (contents / "Info.plist").write_bytes(plistlib.dumps(information, fmt=plistlib.FMT_BINARY))
        (contents / "Linux/tool").write_text("#!/bin/sh\n")
        (contents / "Linux/tool").chmod(0o755)
        if team:
            self.sign(path, "--team", team, identifier=identifier)
        return path

    def inspect(self, *arguments):
        done = self.tool("kswctl", "inspect", *arguments, "--json")
        self.assertTrue(done.stdout.isascii())
        found = json.loads(done.stdout)
        self.assertEqual(list(found), [*INSPECTED_KEYS, "absent"])
        self.assertEqual(list(found["absent"]), [key for key in INSPECTED_KEYS if found[key] is None])
        return found

    def test_a_legacy_job_of_nobodys_program(self):
        tool = self.file("bin/tool", b"#!/bin/sh\n")
        found = self.inspect(self.job("job.plist", Label="a.b", ProgramArguments=[str(tool), "-v"]))
        self.assertEqual((found["identifier"], found["name"], found["developer"]), ("8.a.b", "tool", "Unknown Developer"))
        self.assertEqual((found["executablePath"], found["programArguments"]), (str(tool), [str(tool), "-v"]))
        self.assertEqual((found["typeText"], found["disposition"]), ("legacy agent", 3))
        absent = found["absent"]
        for field in ["developerName", "teamIdentifier", "designatedRequirement", "lightweightRequirement"]:
            self.assertRegex(absent[field], rf"^{tool}: .* \(-67062\)$")
        self.assertEqual(absent["container"], "a legacy job is in no application")
        self.assertEqual(absent["vouchingApplication"], "the job claims no application")
        self.assertEqual(absent["sha256"], "the job gives none")

    def test_a_job_that_an_application_vouches_for(self):
        app = self.app(self.host / "Applications/Vouching.app", identifier="com.example.vouching")
        self.addCleanup(shutil.rmtree, app)
        tool = self.elf()
        self.sign(tool, "--team", "TEAM123")
        found = self.inspect(
            self.job("job.plist", Label="a.b", Program=str(tool), **{CLAIMS: ["com.example.vouching"]}), "--type", "daemon"
        )
        self.assertEqual((found["identifier"], found["developerName"]), ("16.a.b", "Example Ltd"))
        self.assertEqual((found["teamIdentifier"], found["developer"]), ("TEAM123", "Example Ltd"))
        self.assertEqual(found["associatedBundleIdentifiers"], ["com.example.vouching"])
        self.assertEqual(found["vouchingApplication"], app.as_uri() + "/")
        self.assertIn("com.example.tool", found["designatedRequirement"])

    def test_claims_that_come_to_nothing_say_why(self):
        tool = self.elf()
        job = self.job("job.plist", Label="a.b", Program=str(tool), **{CLAIMS: "com.example.nowhere"})
        why = "the job claims applications, but its program has no team"
        self.assertEqual(self.inspect(job)["absent"]["vouchingApplication"], why)
        self.sign(tool, "--team", "TEAM123")
        why = "no application that the job claims is installed and of its team"
        self.assertEqual(self.inspect(job)["absent"]["associatedBundleIdentifiers"], why)

    def test_a_job_in_an_application(self):
        app = self.app(self.folder / "Tool.app")
        job = self.job("Tool.app/Contents/Library/Agents/a.plist", Label="a.b", BundleProgram="Contents/Linux/tool")
        found = self.inspect(job, "--app", app)
        self.assertEqual((found["identifier"], found["typeText"], found["name"]), ("8.a.b", "agent", "tool"))
        self.assertEqual((found["url"], found["executablePath"]), ("Contents/Library/Agents/a.plist", "Contents/Linux/tool"))
        self.assertEqual((found["container"], found["containerURL"]), ("2.com.example.tool", app.as_uri() + "/"))
        self.assertEqual((found["teamIdentifier"], found["developerName"]), ("TEAM123", "Example Ltd"))
        self.assertRegex(found["executableModificationDate"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$")

    def test_a_program_outside_of_its_application_is_none(self):
        app = self.app(self.folder / "Tool.app")
        self.sign(self.elf(), "--team", "TEAM123")
        job = self.job("Tool.app/Contents/a.plist", Label="a.b", BundleProgram="../tool")
        found = self.inspect(job, "--app", app)
        self.assertEqual((found["executablePath"], found["teamIdentifier"]), (None, None))
        self.assertEqual(found["absent"]["executablePath"], "../tool: lies outside of the application")

    def test_a_job_file_that_a_link_finds_outside_is_not_the_applications(self):
        app = self.app(self.folder / "Tool.app")
        inside = self.job("Tool.app/Contents/a.plist", Label="a.inside")
        outside = self.job("outside.plist", Label="a.outside")
        (app / "Contents/link.plist").symlink_to(inside.name)
        (app / "Contents/stray.plist").symlink_to("../../" + outside.name)
        self.assertEqual(self.inspect(app / "Contents/link.plist", "--app", app)["identifier"], "8.a.inside")
        done = self.tool("kswctl", "inspect", app / "Contents/stray.plist", "--app", app, status=2)
        self.assertIn("is not inside the application", done.stderr)

    def test_a_login_item_in_an_application(self):
        app = self.app(self.folder / "Tool.app")
        helper = self.app(app / "Contents/Library/Helper.app", identifier="com.example.helper")
        found = self.inspect(helper, "--app", app, "--type", "login-item")
        self.assertEqual((found["identifier"], found["name"]), ("4.com.example.helper", "The Tool"))
        self.assertEqual((found["bundleIdentifier"], found["teamIdentifier"]), ("com.example.helper", "TEAM123"))

    def test_a_login_item_that_is_a_job_file_is_no_job(self):
        app = self.app(self.folder / "Tool.app")
        job = self.job("Tool.app/Contents/a.plist", Label="a.b", BundleProgram="Contents/Linux/tool")
        absent = self.inspect(job, "--app", app, "--type", "login-item")["absent"]
        self.assertRegex(absent["identifier"], r"a.plist: .* \(-67062\)$")
        self.assertEqual(absent["executablePath"], "it is the program itself")

    def test_a_job_that_only_opens_an_application(self):
        app = self.app(self.folder / "Tool.app")
        found = self.inspect(self.job("job.plist", Label="a.b", ProgramArguments=["open", "-a", str(app)]))
        self.assertEqual((found["launcher"], found["name"], found["executablePath"]), (True, "The Tool", str(app)))
        self.assertEqual((found["teamIdentifier"], found["developerName"]), ("TEAM123", "Example Ltd"))

    def test_a_table_says_in_its_place_why_a_fact_is_absent(self):
        job = self.job("job.plist", Label="a.b", Program="/gone/\u202etool")
        rows = dict(line.split(None, 1) for line in self.tool("kswctl", "inspect", job).stdout.splitlines())
        self.assertEqual(list(rows), INSPECTED_KEYS)
        self.assertEqual(rows["executablePath"], r"/gone/\u202etool")
        self.assertEqual(rows["executableModificationDate"], r"- (/gone/\u202etool: No such file or directory)")

    def test_what_is_no_job_is_a_failure(self):
        for content, says in [(b"<plist>", "broken.plist: "), (plistlib.dumps({}), "'Label' is missing")]:
            done = self.tool("kswctl", "inspect", self.file("broken.plist", content), status=1)
            self.assertIn(says, done.stderr)
            self.assertEqual(done.stdout, "")
        self.tool("kswctl", "inspect", "--type", "glimpse", "x", status=2)

    def test_a_hostile_job_is_an_item_without_that_fact_or_an_error(self):
        many = ["/nowhere/tool", *map(str, range(9_999))]
        found = self.inspect(self.job("many.plist", Label="a.b", ProgramArguments=many))
        self.assertEqual(found["programArguments"], many)
        for keys, says in [
            ({"Label": "a\nb"}, "'Label' has control characters"), ({"Label": "x" * 70_000}, "longer than 65536 bytes"),
            ({"Program": "x" * (1 << 20)}, "File too large"), ({"ProgramArguments": "open"}, "not an array of strings"),
        ]:  # fmt: skip
            job = self.file("hostile.plist", plistlib.dumps({"Label": "a.b"} | keys, fmt=plistlib.FMT_BINARY))
            self.assertIn(says, self.tool("kswctl", "inspect", job, status=1).stderr)


class Importing(WithDaemon):
    def imported(self, *arguments, status=0):
        """Outcome and message by the file's name."""
        lines = self.json("import", *arguments, status=status)
        self.assertTrue(all(list(line) == ["file", "outcome", "identifier", "message"] for line in lines))
        return {pathlib.Path(line["file"]).name: (line["outcome"], line["message"]) for line in lines}

    def test_registers_every_job_of_the_folders(self):
        self.job("one", place="Agents", Program="/bin/true")
        self.job("two", place="Daemons", Program="/bin/true")
        lines = self.json("import", self.folder / "Agents", self.folder / "Daemons")
        self.assertEqual([line["outcome"] for line in lines], ["registered", "registered"])
        self.assertEqual([line["identifier"] for line in lines], ["8.one", "16.two"])
        identifiers = {item["identifier"] for item in self.json("list")}
        self.assertLessEqual({"8.one", "16.two"}, identifiers)

    def test_says_of_each_file_what_came_of_it(self):
        self.job("good", Program="/bin/true")
        self.job("same", file="good-again", Program="/bin/true")
        self.job("same", file="same", Program="/bin/true")
        (self.folder / "broken.plist").write_bytes(b"<plist>")
        (self.folder / "gone.plist").symlink_to("nowhere")
        (self.folder / "folder.plist").mkdir()
        (self.folder / "notes.txt").touch()
        told = self.imported(self.folder, self.folder / "absent", status=3)
        self.assertEqual(told.pop("good.plist")[0], "registered")
        self.assertEqual(told.pop("good-again.plist")[0], "registered")
        self.assertEqual(told.pop("same.plist"), ("failed", f"has the label of {self.folder}/good-again.plist"))
        self.assertEqual(told.pop("folder.plist"), ("skipped", "is no file"))
        self.assertEqual(told.pop("notes.txt"), ("skipped", "its name does not end in .plist"))
        self.assertEqual(told.pop("absent"), ("failed", "No such file or directory"))
        self.assertEqual({outcome for outcome, _ in told.values()}, {"failed"})
        self.assertEqual(sorted(told), ["broken.plist", "gone.plist"])

    def test_changes_nothing_the_second_time(self):
        for number in range(3):
            self.job(f"again.{number}", Program="/bin/true")
        self.imported(self.folder, "--type", "daemon")
        before = self.json("list")
        self.imported(self.folder, "--type", "daemon")
        self.assertEqual(self.json("list"), before)

    def test_prints_a_line_for_each_file_of_a_table(self):
        self.job("com.example.table", Program="/bin/true")
        (self.folder / "a\x1b[2J").touch()
        lines = self.kswctl("import", self.folder).stdout.splitlines()
        self.assertEqual(lines[0].split(), ["file", "outcome", "identifier", "message"])
        self.assertIn(r"a\x1b[2J  ", lines[1])
        self.assertIn("  registered  8.com.example.table", lines[2])

    def test_of_an_empty_folder_is_done_at_once(self):
        self.assertEqual(self.imported(self.folder), {})
        self.kswctl("import", status=2)


class Beside:
    """kswctl at work, its standard error on a terminal of its own; what it shows there is read as it comes."""

    def __init__(self, daemon, *arguments):
        self.mine, its = pty.openpty()
        self.process = subprocess.Popen([program("kswctl"), *map(str, arguments)], env=daemon.environment(),
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=its, text=True)  # fmt: skip
        os.close(its)
        self.shown = ""

    def piece(self):
        """What is shown next; empty at the end."""
        if not select.select([self.mine], [], [], REQUEST_SECONDS)[0]:
            raise TimeoutError(f"nothing is shown after {self.shown!r}")
        try:
            return os.read(self.mine, 65536).decode()
        except OSError:  # its other end is closed
            return ""

    def wait_for(self, text):
        while text not in self.shown:
            piece = self.piece()
            if not piece:
                raise EOFError(f"{text!r} was not shown: {self.shown!r}")
            self.shown += piece

    def end(self):
        """What it has told on standard output, and its exit status."""
        told = self.process.communicate(timeout=REQUEST_SECONDS)[0]
        while piece := self.piece():
            self.shown += piece
        return told, self.process.returncode

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.communicate()
        os.close(self.mine)


class WorkThatTakesLongerThanASecond(WithDaemon):
    def beside(self, *arguments):
        beside = Beside(self.daemon, *arguments)
        self.addCleanup(beside.close)
        return beside

    def test_is_shown_on_a_terminal_and_nowhere_else(self):
        self.job("com.example.long", Program="/bin/true")
        long = {("import", self.folder, "--json"): "Registering the jobs: 0 of 1, 1 s",
                ("dump", "--json"): "The daemon writes its records out: 1 s"}  # fmt: skip
        self.daemon.process.send_signal(signal.SIGSTOP)  # until the daemon goes on, nothing is answered
        try:
            quiet = [self.background("kswctl", *arguments) for arguments in long]
            shown = [self.beside(*arguments) for arguments in long]
            for beside, line in zip(shown, long.values(), strict=True):
                beside.wait_for("\r" + line)
        finally:
            self.daemon.process.send_signal(signal.SIGCONT)
        for beside, line, other in zip(shown, long.values(), quiet, strict=True):
            told, status = beside.end()
            self.assertEqual(status, 0)
            self.assertRegex(beside.shown, r"\r *\r$")
            self.assertEqual(re.sub(r"\d+ s", "1 s", beside.shown).replace("\r" + line, "").strip(), "")
            said, complained = other.process.communicate(timeout=REQUEST_SECONDS)
            self.assertEqual((len(json.loads(said)), complained), (len(json.loads(told)), b""))


class WithoutADaemon(WithDaemon):
    @classmethod
    def setUpClass(cls):
        cls.daemon = LiveDaemon()
        cls.addClassCleanup(shutil.rmtree, cls.daemon.root)

    def test_every_file_is_told_all_the_same(self):
        for number in range(3):
            self.job(f"job.{number}", Program="/bin/true")
        lines = self.json("import", self.folder, status=6)
        self.assertEqual([line["message"] for line in lines], ["no daemon answers"] * 3)
        done = self.daemon.run("kswctl", "import", self.folder)
        self.assertEqual(done.returncode, 6)
        self.assertEqual(done.stderr.count("kswctl: "), 1, done.stderr)


if __name__ == "__main__":
    unittest.main()
