"""kswsign signing and stripping real files: what becomes of them, and what another tool says of the signature."""

import os
import pathlib
import plistlib
import stat
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import NOBODY  # noqa: E402
from signing import Identity, WithSigners, directory_of, openssl, put_together, read_cbor, taken_apart  # noqa: E402

SCRIPT = b"#!/bin/sh\necho \"$0 says $1\" | sed 's/.*says/says/'\nexit 3\n"


def output_of(*arguments):
    done = subprocess.run([*map(str, arguments)], capture_output=True, text=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


def bundle(folder, name="Tool.app", **information):
    app = folder / name
    (app / "Contents" / "Linux").mkdir(parents=True)
    information = {"QCBundleIdentifier": "com.example.bundle", "QCBundleExecutable": "tool"} | information
    (app / "Contents" / "Info.plist").write_bytes(plistlib.dumps(information))
    tool = app / "Contents" / "Linux" / "tool"
    tool.write_bytes(pathlib.Path("/bin/echo").read_bytes())
    tool.chmod(0o755)
    return app


class Signing(WithSigners):
    def test_says_nothing_when_all_is_done(self):
        done = self.sign(self.elf())
        self.assertEqual((done.stdout, done.stderr), ("", ""))

    def test_leaves_a_program_running_as_before(self):
        tool = self.elf()
        self.sign(tool)
        self.assertEqual(output_of(tool, "still", "here"), (0, "still here\n", ""))

    def test_leaves_a_script_running_as_before(self):
        script = self.file("script", SCRIPT)
        self.sign(script)
        self.assertEqual(output_of(script, "hello"), (3, "says hello\n", ""))

    def test_goes_through_the_main_executable_of_a_bundle(self):
        app = bundle(self.folder)
        self.sign(app)
        self.kswsign("verify", app)
        self.assertEqual(output_of(app / "Contents" / "Linux" / "tool", "x"), (0, "x\n", ""))
        (app / "Contents" / "Info.plist").write_bytes(plistlib.dumps({"QCBundleExecutable": "tool"}))
        self.assertIn("(-70013)", self.kswsign("verify", app, status=1).stderr)

    def test_replaces_an_older_signature(self):
        tool = self.elf()
        self.sign(tool, identifier="com.example.old")
        self.sign(tool, identifier="com.example.new")
        code, directory, _ = taken_apart(tool.read_bytes())
        self.assertEqual(code, pathlib.Path("/bin/echo").read_bytes())
        self.assertIn(b"com.example.new", directory)

    def test_again_gives_the_same_bytes_where_the_algorithm_does(self):
        for key in ["rsa", "ed25519"]:
            with self.subTest(key=key):
                signer = Identity(self.certificates, f"repeated-{key}", self.authority, key=key)
                first = self.elf("first")
                self.sign(first, identity=signer)
                second = self.elf("second")
                self.sign(second, identity=signer)
                self.assertEqual(first.read_bytes(), second.read_bytes())
                self.sign(first, identity=signer)
                self.assertEqual(first.read_bytes(), second.read_bytes())
                self.kswsign("verify", first)

    def test_keeps_mode_and_owner(self):
        tool = self.elf()
        owner = NOBODY if os.geteuid() == 0 else os.geteuid()
        os.chown(tool, owner, -1)
        tool.chmod(0o4751)
        self.sign(tool)
        facts = tool.stat()
        self.assertEqual((stat.S_IMODE(facts.st_mode), facts.st_uid), (0o4751, owner))

    def test_replaces_the_file_and_leaves_its_other_names_alone(self):
        tool = self.elf()
        other = self.folder / "other"
        other.hardlink_to(tool)
        inode = tool.stat().st_ino
        self.sign(tool)
        self.assertNotEqual(tool.stat().st_ino, inode)
        self.assertEqual(other.stat().st_ino, inode)
        self.assertEqual(other.read_bytes(), pathlib.Path("/bin/echo").read_bytes())
        self.assertEqual({path.name for path in self.folder.iterdir()}, {"tool", "other"})

    def test_in_a_folder_that_cannot_be_written_leaves_the_file_alone(self):
        closed = self.file("closed/tool", b"some code")
        closed.parent.chmod(0o555)
        self.folder.chmod(0o755)
        done = self.tool_as_nobody("kswsign", "sign", "--ad-hoc", "--identifier", "x", closed)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, r"^kswsign: .*: the signed file cannot be written: .* \(-70045\)\n$")
        self.assertEqual(closed.read_bytes(), b"some code")
        self.assertEqual([path.name for path in closed.parent.iterdir()], ["tool"])

    def test_of_a_file_that_may_not_be_read_is_not_permitted(self):
        secret = self.file("secret", b"some code", mode=0)
        self.folder.chmod(0o755)
        for arguments in [["sign", "--ad-hoc", "--identifier", "x"], ["verify"], ["display"], ["strip"]]:
            with self.subTest(arguments=arguments):
                done = self.tool_as_nobody("kswsign", *arguments, secret)
                self.assertEqual(done.returncode, 5, done.stderr)
                self.assertIn("reading is not permitted", done.stderr)

    def test_with_a_key_that_may_not_be_read_is_not_permitted(self):
        key = self.file("key", b"", mode=0)
        self.folder.chmod(0o755)
        done = self.tool_as_nobody("kswsign", "sign", "--key", key, "--chain", key, "--identifier", "x", "/bin/true")
        self.assertEqual((done.returncode, done.stderr), (5, f"kswsign: {key}: Permission denied\n"))

    def test_takes_the_key_from_a_pipe(self):
        tool = self.elf()
        done = subprocess.Popen(["cat", self.signer.key], stdout=subprocess.PIPE)
        with done:
            self.kswsign(
                "sign", "--key", "/dev/stdin", "--chain", self.signer.chain, "--identifier", "x", tool,
                stdin=done.stdout,
            )  # fmt: skip
        self.kswsign("verify", tool)

    def test_needs_a_key_and_certificates_that_belong_together(self):
        tool = self.elf()
        before = tool.read_bytes()
        mail = Identity(self.certificates, "mail", self.authority, section="mail")
        large = self.file("large", bytes((1 << 20) + 1))
        signer = self.signer
        for key, chain, said in [
            (self.folder / "absent", signer.chain, "absent: No such file or directory"),
            (self.folder, signer.chain, "Is a directory"),
            (large, signer.chain, "large: larger than 1 MiB"),
            (signer.key, large, "large: larger than 1 MiB"),
            (signer.chain, signer.chain, "the key cannot be used for signing (-70041)"),
            (signer.key, signer.key, "the certificates cannot be used for signing (-70042)"),
            (mail.key, signer.chain, "the key does not belong to the first certificate (-70043)"),
            (mail.key, mail.chain, "a certificate is not meant for signing code (-70020)"),
        ]:
            with self.subTest(key=key, chain=chain):
                done = self.kswsign("sign", "--key", key, "--chain", chain, "--identifier", "x", tool, status=1)
                self.assertIn(said, done.stderr)
                self.assertEqual(tool.read_bytes(), before)

    def test_refuses_what_it_cannot_say_in_a_signature(self):
        tool = self.elf()
        before = tool.read_bytes()
        self.file("text", b"no property list")
        self.file("list", plistlib.dumps(["no", "dictionary"]))
        for arguments, status in [
            (["--requirement", "anchor nowhere"], -70046),
            (["--requirement", ""], -70046),
            (["--entitlements", self.folder / "text"], -50),
            (["--entitlements", self.folder / "list"], -50),
            (["--team", "a\nb"], -50),
            (["--team", "x" * 1025], -50),
        ]:
            with self.subTest(arguments=arguments):
                self.assertIn(f"({status})", self.sign(tool, *arguments, status=1).stderr)
                self.assertEqual(tool.read_bytes(), before)

    def test_refuses_an_identifier_with_control_characters(self):
        tool = self.elf()
        done = self.sign(tool, identifier="com.example\x1b[2J", status=1)
        self.assertIn("(-50)", done.stderr)
        self.assertNotIn("\x1b", done.stderr)

    def test_of_what_is_no_code_fails(self):
        os.mkfifo(self.folder / "fifo")
        self.file("empty", b"")
        for name, status in [("absent", -70001), (".", -70004), ("fifo", -70004), ("empty", -70044)]:
            with self.subTest(name=name):
                self.assertIn(f"({status})\n", self.sign(self.folder / name, status=1).stderr)


class Cryptography(WithSigners):
    def test_has_no_configuration_file(self):
        tool = self.elf()
        pipe = self.folder / "openssl.cnf"
        os.mkfifo(pipe)
        # Whoever opened it would wait for its writer for ever.
        self.sign(tool, variables={"OPENSSL_CONF": str(pipe)})
        self.kswsign("verify", tool, variables={"OPENSSL_CONF": str(pipe)})


class Stripping(WithSigners):
    def test_restores_every_file_byte_for_byte(self):
        for path in [self.elf(), self.file("script", SCRIPT), self.file("other", bytes(range(256)))]:
            for who in [["--ad-hoc"], self.signer.arguments]:
                with self.subTest(path=path.name, who=who):
                    before = path.read_bytes()
                    self.kswsign("sign", *who, "--identifier", "x", path)
                    self.assertNotEqual(path.read_bytes(), before)
                    self.kswsign("strip", path)
                    self.assertEqual(path.read_bytes(), before)

    def test_restores_a_bundle_byte_for_byte(self):
        app = bundle(self.folder)
        before = {path: path.read_bytes() for path in app.rglob("*") if path.is_file()}
        self.sign(app)
        self.kswsign("strip", app)
        self.assertEqual({path: path.read_bytes() for path in app.rglob("*") if path.is_file()}, before)

    def test_of_a_file_without_a_signature_fails(self):
        tool = self.elf()
        self.assertEqual(self.kswsign("strip", tool, status=1).stderr,
                         f"kswsign: {tool}: the code is not signed (-67062)\n")  # fmt: skip


class AnotherTool(WithSigners):
    """One that knows the message's form and docs/signatures.md, and nothing of ours."""

    def made(self, key, path):
        """A file signed with a key of the kind: the bytes of its directory and its message, in files too."""
        signer = Identity(self.certificates, f"made-{key}", self.authority, key=key)
        code = path.read_bytes()
        self.sign(path, "--team", "TEAM000001", identity=signer)
        found, directory, message = taken_apart(path.read_bytes())
        self.assertEqual(found, code)
        for number, value in read_cbor(directory_of(code))[0].items():
            self.assertEqual(read_cbor(directory)[0][number], value)
        (self.folder / "directory").write_bytes(directory)
        (self.folder / "message").write_bytes(message)
        return signer, directory, message

    def test_accepts_what_kswsign_made(self):
        untrusted = Identity(self.certificates, "nobody")
        verify = ["cms", "-verify", "-binary", "-inform", "DER", "-in", self.folder / "message", "-content",
                  self.folder / "directory", "-purpose", "any", "-CAfile"]  # fmt: skip
        for key in ["rsa", "p256"]:
            for path in [self.elf(), self.file("script", SCRIPT)]:
                with self.subTest(key=key, path=path.name):
                    _, directory, _ = self.made(key, path)
                    self.assertEqual(openssl(*verify, self.authority.certificate), directory)
                    with self.assertRaises(AssertionError):
                        openssl(*verify, untrusted.certificate)
                    (self.folder / "directory").write_bytes(directory + b"x")
                    with self.assertRaises(AssertionError):
                        openssl(*verify, self.authority.certificate)

    def test_accepts_the_signature_in_a_message_made_with_ed25519(self):
        # openssl does not verify such messages, but the signatures in them: the last bytes.
        signer, _, message = self.made("ed25519", self.elf())
        (self.folder / "signature").write_bytes(message[-64:])
        openssl(
            "pkeyutl", "-verify", "-rawin", "-certin", "-inkey", signer.certificate, "-in",
            self.folder / "directory", "-sigfile", self.folder / "signature",
        )  # fmt: skip

    def test_makes_what_kswsign_accepts(self):
        for code in [pathlib.Path("/bin/echo").read_bytes(), SCRIPT, b"something else"]:
            directory = directory_of(code, "com.example.stranger")
            (self.folder / "directory").write_bytes(directory)
            message = openssl(
                "cms", "-sign", "-binary", "-outform", "DER", "-in", self.folder / "directory", "-signer",
                self.signer.certificate, "-inkey", self.signer.key, "-certfile", self.authority.chain,
            )  # fmt: skip
            path = self.file("made", put_together(code, directory, message))
            self.kswsign("verify", path)
            self.assertIn("com.example.stranger", self.kswsign("display", path).stdout)
            path = self.file("altered", put_together(code + b"\n", directory, message))
            self.assertIn("(-70012)", self.kswsign("verify", path, status=1).stderr)
            path = self.file("sealed", put_together(code, directory, None))
            self.assertIn("ad hoc", self.kswsign("verify", path).stdout)


if __name__ == "__main__":
    unittest.main()
