"""kswctl facts: who signed a file, a bundle, or what a process runs."""

import json
import os
import pathlib
import plistlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from signing import Identity, WithSigners  # noqa: E402

KEYS = [
    "signingIdentifier", "bundleIdentifier", "teamIdentifier", "developerName", "designatedRequirement", "sandboxed",
    "makerAnchored",
]  # fmt: skip
SANDBOX = plistlib.dumps({"com.velmont.security.app-sandbox": True})


class WithFacts(WithSigners):
    def facts(self, *arguments, status=0):
        """The facts; of code without a signature that holds those that are left, the status, and what is complained."""
        done = self.tool("kswctl", "facts", "--json", *arguments, status=status)
        self.assertTrue(done.stdout.isascii())
        facts = json.loads(done.stdout)
        if status == 0:
            self.assertEqual(list(facts), KEYS)
            self.assertEqual(done.stderr, "")
            return facts
        self.assertEqual(list(facts), [*KEYS, "status", "statusText"])
        self.assertRegex(done.stderr, r"^kswctl: .*: " + facts["statusText"] + rf" \({facts['status']}\)\n$")
        return {key: value for key, value in facts.items() if value is not None and key != "statusText"}


class FactsOfAFile(WithFacts):
    def test_are_what_its_signer_said(self):
        tool = self.elf()
        self.sign(tool, "--team", "TEAM000001")
        requirement = 'anchor trusted and identifier "com.example.tool" and team "TEAM000001"'
        self.assertEqual(self.facts(tool), {
            "signingIdentifier": "com.example.tool", "bundleIdentifier": None, "teamIdentifier": "TEAM000001",
            "developerName": "Example Ltd", "designatedRequirement": requirement, "sandboxed": False,
            "makerAnchored": False,
        })  # fmt: skip

    def test_tell_the_sandbox_that_its_entitlements_ask_for(self):
        script = self.file("script", b"#!/bin/sh\n")
        self.sign(script, "--entitlements", self.file("rights.plist", SANDBOX))
        self.assertIs(self.facts(script)["sandboxed"], True)

    def test_tell_the_makers_own_which_has_no_developer(self):
        maker = Identity(self.certificates, "maker")
        self.trust(maker, "usr/share/kestrelwood/trust/maker")
        tool = self.elf()
        self.sign(tool, identity=Identity(self.certificates, "made", maker, organization=" Velmont Inc."))
        facts = self.facts(tool)
        self.assertEqual((facts["makerAnchored"], facts["developerName"]), (True, None))

    def test_of_a_bundle_name_its_identifier(self):
        app = self.folder / "Tool.app"
        self.file("Tool.app/Contents/Linux/Tool", b"#!/bin/sh\n")
        self.file("Tool.app/Contents/Info.plist", plistlib.dumps({"QCBundleIdentifier": "com.example.bundle"}))
        self.sign(app)
        for path in [app, f"{app}/"]:
            facts = self.facts(path)
            self.assertEqual(facts["bundleIdentifier"], "com.example.bundle")
            self.assertEqual(facts["signingIdentifier"], "com.example.tool")

    def test_are_not_told_without_a_signature_that_holds(self):
        unsigned = self.elf("unsigned")
        sealed = self.elf("sealed")
        self.kswsign("sign", "--ad-hoc", "--identifier", "x", sealed)
        strange = self.elf("strange")
        self.sign(strange, identity=Identity(self.certificates, "strange", section="signer"))
        altered = self.file("altered", b"some code")
        self.sign(altered)
        altered.write_bytes(b"S" + altered.read_bytes()[1:])
        for path, status in [
            (unsigned, -67062), (sealed, -67062), (strange, -70023), (altered, -70012),
            (self.folder / "absent", -70001), (self.folder, -70004),
        ]:  # fmt: skip
            with self.subTest(path=path.name):
                self.assertEqual(self.facts(path, status=1), {"status": status})

    def test_of_one_that_may_not_be_read_are_not_permitted(self):
        secret = self.file("secret", b"some code", mode=0)
        self.folder.chmod(0o755)
        done = self.tool_as_nobody("kswctl", "facts", secret)
        self.assertEqual(done.returncode, 5)
        self.assertIn("reading is not permitted (-70002)", done.stderr)

    def test_are_found_from_where_the_caller_stands(self):
        self.sign(self.elf())
        done = self.tool("kswctl", "facts", "./tool", "--json", cwd=self.folder)
        self.assertEqual(json.loads(done.stdout)["signingIdentifier"], "com.example.tool")

    def test_are_a_table_for_people(self):
        tool = self.elf()
        signer = Identity(self.certificates, "tricky", self.authority, organization="Ev\x1b[2Jil\u202e")
        self.sign(tool, identity=signer)
        text = self.tool("kswctl", "facts", tool).stdout
        rows = dict(line.split(None, 1) for line in text.splitlines())
        self.assertEqual(list(rows), KEYS)
        self.assertEqual(rows["developerName"], r"Ev\x1b[2Jil\u202e")
        self.assertEqual((rows["teamIdentifier"], rows["makerAnchored"]), ("-", "no"))


class FactsOfAProcess(WithFacts):
    def running(self, path):
        """A copy of cat: it runs until its input ends, and has answered once before its facts are asked for."""
        process = subprocess.Popen([path], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(process.communicate)
        process.stdin.write(b"x")
        process.stdin.flush()
        self.assertEqual(os.read(process.stdout.fileno(), 1), b"x")
        return process

    def test_are_those_of_what_it_runs(self):
        tool = self.elf(source="/bin/cat")
        self.sign(tool, "--team", "TEAM000001")
        facts = self.facts("--pid", self.running(tool).pid)
        self.assertEqual(facts, self.facts(tool) | {"sandboxed": facts["sandboxed"]})
        self.assertIsInstance(facts["sandboxed"], bool)

    def test_stay_those_of_what_it_runs_when_its_file_is_replaced_or_removed(self):
        tool = self.elf(source="/bin/cat")
        self.sign(tool)
        process = self.running(tool)
        self.sign(tool, identifier="com.example.newer")
        self.assertEqual(self.facts(tool)["signingIdentifier"], "com.example.newer")
        self.assertEqual(self.facts("--pid", process.pid)["signingIdentifier"], "com.example.tool")
        tool.unlink()
        self.assertEqual(self.facts("--pid", process.pid)["signingIdentifier"], "com.example.tool")

    def test_without_a_signature_are_whether_it_is_in_a_sandbox(self):
        unsigned = self.running(self.elf(source="/bin/cat"))
        sealed = self.elf("sealed", source="/bin/cat")
        self.kswsign("sign", "--ad-hoc", "--identifier", "x", sealed)
        for process in [unsigned, self.running(sealed)]:
            facts = self.facts("--pid", process.pid, status=1)
            self.assertIsInstance(facts.pop("sandboxed"), bool)
            self.assertEqual(facts, {"status": -67062})

    def test_that_has_ended_are_those_of_no_item(self):
        process = subprocess.Popen(["true"])
        process.wait()
        done = self.tool("kswctl", "facts", "--pid", process.pid, "--json", status=4)
        self.assertEqual((done.stdout, done.stderr.count("\n")), ("", 1))
        self.assertIn(f"process {process.pid}: the process has ended", done.stderr)
        self.assertIn("(-70030)", done.stderr)

    def test_that_is_none_is_wrong_usage(self):
        for arguments in [["--pid", "0"], ["--pid", "-1"], ["--pid", "x"], ["--pid", "99999999999"], [""], [],
                          ["--pid", "1", "/bin/true"], ["--uid", "0", "/bin/true"]]:  # fmt: skip
            with self.subTest(arguments=arguments):
                self.assertEqual(self.tool("kswctl", "facts", *arguments, status=2).stdout, "")


if __name__ == "__main__":
    unittest.main()
