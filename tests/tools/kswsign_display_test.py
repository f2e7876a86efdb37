"""kswsign verify and display: what a signature says, to people and to programs; and the command line."""

import base64
import json
import pathlib
import plistlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from signing import Identity, WithSigners, directory_of, put_together  # noqa: E402

KEYS = [
    "identifier", "team", "format", "source", "requirement", "entitlements", "informationPropertyList", "constraint",
    "valid", "anchor", "certificates", "status", "statusText",
]  # fmt: skip
VERBS = ["sign", "verify", "display", "strip"]


class Displaying(WithSigners):
    def json(self, path):
        text = self.kswsign("display", "--json", path).stdout
        self.assertTrue(text.isascii())
        facts = json.loads(text)
        self.assertEqual(list(facts), KEYS)
        return facts

    def rows(self, path):
        lines = self.kswsign("display", path).stdout.splitlines()
        return dict(line.split("  ", 1) for line in lines)

    def test_gives_programs_all_that_the_signer_said(self):
        tool = self.elf()
        rights = {"com.example.network": True, "com.example.groups": ["a", "b"], "com.example.blob": b"\x01\xff"}
        rights_file = self.file("rights.plist", plistlib.dumps(rights))
        self.sign(tool, "--team", "TEAM000001", "--entitlements", rights_file,
                  "--requirement", "anchor  trusted and team \"TEAM000001\"")  # fmt: skip
        facts = self.json(tool)
        self.assertEqual((facts["identifier"], facts["team"]), ("com.example.tool", "TEAM000001"))
        self.assertEqual((facts["format"], facts["source"]), ("elf executable", "embedded"))
        self.assertEqual(facts["requirement"], 'anchor trusted and team "TEAM000001"')
        self.assertEqual(facts["entitlements"], rights | {"com.example.blob": "01ff"})
        self.assertIsNone(facts["informationPropertyList"])
        self.assertIn(b"TEAM000001", base64.b64decode(facts["constraint"], validate=True))
        self.assertEqual((facts["valid"], facts["anchor"]), (True, "trusted"))
        self.assertEqual([facts["status"], facts["statusText"]], [None, None])
        self.assertEqual([found["organizations"] for found in facts["certificates"]], [["Example Ltd"]] * 2)
        encoded = [base64.b64decode(found["encoded"], validate=True) for found in facts["certificates"]]
        files = [self.signer.certificate, self.authority.certificate]
        self.assertEqual(encoded, [certificate_bytes(path) for path in files])

    def test_gives_null_for_what_the_signer_did_not_say(self):
        script = self.file("script", b"#!/bin/sh\n")
        self.kswsign("sign", "--ad-hoc", "--identifier", "x", script)
        self.assertEqual(
            self.json(script),
            dict.fromkeys(KEYS) | {
                "identifier": "x", "format": "generic script", "source": "ad-hoc", "valid": True, "anchor": "none",
                "certificates": [],
            },
        )  # fmt: skip

    def test_makes_a_requirement_of_team_or_organization(self):
        tool = self.elf()
        self.sign(tool)
        said = 'anchor trusted and identifier "com.example.tool" and '
        self.assertEqual(self.json(tool)["requirement"], said + 'certificate leaf[subject.O] = "Example Ltd"')
        self.sign(tool, "--team", "T")
        self.assertEqual(self.json(tool)["requirement"], said + 'team "T"')

    def test_tells_the_makers_own(self):
        maker = Identity(self.certificates, "maker")
        self.trust(maker, "usr/share/kestrelwood/trust/maker")
        tool = self.elf()
        self.sign(tool, identity=Identity(self.certificates, "made", maker))
        self.assertEqual(self.json(tool)["anchor"], "maker")

    def test_shows_a_bundle_with_its_information(self):
        app = self.folder / "Tool.app"
        self.file("Tool.app/Contents/Linux/Tool", b"#!/bin/sh\n")
        self.file("Tool.app/Contents/Info.plist", plistlib.dumps({"QCBundleIdentifier": "com.example.bundle"}))
        self.sign(app)
        facts = self.json(app)
        self.assertEqual(facts["format"], "bundle with generic script")
        self.assertEqual(facts["informationPropertyList"], {"QCBundleIdentifier": "com.example.bundle"})

    def test_shows_people_one_fact_a_line(self):
        tool = self.elf()
        rights = {"list": [1, {"a": 2}], "inner": {"key": "value"}, "empty": {}}
        rights_file = self.file("rights.plist", plistlib.dumps(rights))
        self.sign(tool, "--entitlements", rights_file)
        rows = {name: value.strip() for name, value in self.rows(tool).items()}
        self.assertEqual(
            list(rows),
            [*KEYS[:5], "entitlements empty", "entitlements inner key", "entitlements list", *KEYS[6:10],
             "certificates 1 organizations", "certificates 2 organizations", *KEYS[11:]],
        )  # fmt: skip
        self.assertEqual((rows["identifier"], rows["team"], rows["valid"]), ("com.example.tool", "-", "yes"))
        self.assertEqual((rows["entitlements inner key"], rows["entitlements list"]), ("value", '1 {"a":2}'))
        self.assertEqual(rows["certificates 1 organizations"], "Example Ltd")

    def test_never_prints_what_a_terminal_would_obey(self):
        tricky = "a\x1b]0;x\x07\u009b\u202e\nvalid  yes"
        signer = Identity(self.certificates, "tricky", self.authority, organization="Ev\x1b[2Jil\u202e")
        tool = self.elf()
        # Not in XML, which has no such characters.
        rights = plistlib.dumps({"name": tricky, tricky: True}, fmt=plistlib.FMT_BINARY)
        rights_file = self.file("rights.plist", rights)
        self.sign(tool, "--entitlements", rights_file, "--ad-hoc", status=2)
        self.sign(tool, "--entitlements", rights_file, "--requirement", "anchor trusted", identity=signer)
        text = self.kswsign("display", tool).stdout
        self.assertTrue(all(letter == "\n" or letter.isprintable() for letter in text), text)
        self.assertIn(r"Ev\x1b[2Jil\u202e", text)
        self.assertIn(r"a\x1b]0;x\x07\u009b\u202e\x0avalid  yes", text)
        self.assertEqual([line for line in text.splitlines() if line.startswith("valid")],
                         [f"{'valid':{text.index('com.example.tool') - text.index('identifier')}}yes"])  # fmt: skip
        facts = self.json(tool)
        self.assertEqual(facts["entitlements"], {"name": tricky, tricky: True})
        self.assertEqual(facts["certificates"][0]["organizations"], ["Ev\x1b[2Jil\u202e"])

    def test_shows_what_is_not_valid_and_says_why(self):
        tool = self.elf()
        self.sign(tool, identity=Identity(self.certificates, "stranger", section="signer"))
        facts = self.json(tool)
        self.assertEqual((facts["identifier"], facts["valid"], facts["status"]), ("com.example.tool", False, -70023))
        self.assertEqual(facts["statusText"], "the signer's chain leads to no trusted certificate")
        self.assertEqual((facts["anchor"], facts["certificates"]), (None, None))
        self.assertEqual(self.rows(tool)["valid"].strip(), "no")

    def test_of_what_has_no_signature_that_can_be_read_fails(self):
        tool = self.elf()
        damaged = self.file("damaged", put_together(b"code", b"no directory", None))
        control = self.file("control", put_together(b"code", directory_of(b"code", "a\x1b[2J"), None))
        for path, text in [
            (tool, "the code is not signed (-67062)"),
            (damaged, "the signature's code directory is malformed"),
            (control, "the signature's code directory is malformed"),
            (self.folder / "absent", "there is no such file"),
        ]:
            with self.subTest(path=path.name):
                done = self.kswsign("display", "--json", path, status=1)
                self.assertTrue(done.stderr.startswith(f"kswsign: {path}: {text}"), done.stderr)
                self.assertEqual((done.stdout, done.stderr.count("\n")), ("", 1))
                self.assertNotIn("\x1b", done.stderr)


def certificate_bytes(path):
    lines = path.read_text().splitlines()
    return base64.b64decode("".join(lines[lines.index("-----BEGIN CERTIFICATE-----") + 1 : -1]))


class Verifying(WithSigners):
    def test_says_whose_the_signature_is(self):
        tool = self.elf()
        self.sign(tool)
        done = self.kswsign("verify", tool)
        self.assertEqual((done.stdout, done.stderr), ("valid, signed by whom this host trusts\n", ""))
        self.kswsign("sign", "--ad-hoc", "--identifier", "x", tool)
        done = self.kswsign("verify", tool)
        self.assertEqual((done.stdout, done.stderr), ("valid, signed ad hoc: nobody answers for it\n", ""))

    def test_says_why_a_file_is_not_valid(self):
        unsigned = self.elf("unsigned")
        altered = self.file("altered", b"some code")
        self.sign(altered)
        altered.write_bytes(b"S" + altered.read_bytes()[1:])
        strange = self.elf("strange")
        self.sign(strange, identity=Identity(self.certificates, "other", section="signer"))
        for path, text in [
            (unsigned, "the code is not signed (-67062)"),
            (altered, "the code differs from what was signed (-70012)"),
            (strange, "the signer's chain leads to no trusted certificate (-70023)"),
        ]:
            with self.subTest(path=path.name):
                done = self.kswsign("verify", path, status=1)
                self.assertEqual((done.stdout, done.stderr), ("", f"kswsign: {path}: {text}\n"))

    def test_of_a_path_that_a_terminal_would_obey_is_harmless(self):
        done = self.kswsign("verify", self.folder / "\x1b[2J", status=1)
        self.assertIn(r"\x1b[2J", done.stderr)
        self.assertNotIn("\x1b", done.stderr)


class TheCommandLine(WithSigners):
    def test_prints_help_and_version_for_each_verb(self):
        for verb in [[], *([verb] for verb in VERBS)]:
            with self.subTest(verb=verb):
                self.assertRegex(self.kswsign(*verb, "--version").stdout, r"^kswsign \d+\.\d+\.\d+\n$")
                self.assertIn("Exit status: 0 done", self.kswsign(*verb, "--help").stdout)

    def test_that_is_wrong_ends_with_usage(self):
        tool = self.elf()
        key, chain, name = (["--key", self.signer.key], ["--chain", self.signer.chain], ["--identifier", "x"])
        for arguments in [
            [], ["nonsense"], ["verify"], ["verify", ""], ["verify", tool, "more"], ["verify", "--json", tool],
            ["display"], ["strip"], ["sign", tool], ["sign", *name, tool], ["sign", "--ad-hoc", tool],
            ["sign", "--ad-hoc", *name], ["sign", *key, *name, tool], ["sign", *chain, *name, tool],
            ["sign", "--ad-hoc", *key, *chain, *name, tool], ["sign", "--ad-hoc", "--identifier", "", tool],
            ["sign", "--ad-hoc", *name, "--team", "", tool], ["sign", "--ad-hoc", *name, "--nonsense", tool],
            ["sign", "--ad-hoc", *name, *name, tool],
        ]:  # fmt: skip
            with self.subTest(arguments=arguments):
                done = self.kswsign(*arguments, status=2)
                self.assertEqual(done.stdout, "")
                self.assertRegex(done.stderr, r"^kswsign: .*\nTry 'kswsign --help'\.\n$")
        self.assertEqual(tool.read_bytes(), pathlib.Path("/bin/echo").read_bytes())

    def test_takes_a_path_that_looks_like_an_option(self):
        self.file("--json", b"some code")
        done = self.kswsign("verify", "--", "--json", status=1, cwd=self.folder)
        self.assertIn("--json: the code is not signed", done.stderr)


if __name__ == "__main__":
    unittest.main()
