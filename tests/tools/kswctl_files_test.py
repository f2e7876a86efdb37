"""kswctl identify and kswctl bookmark: what the host says of files. No daemon is asked."""

import json
import os
import pathlib
import plistlib
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import REQUEST_SECONDS, program  # noqa: E402
from signing import WithSigners  # noqa: E402

IDENTITY_KEYS = ["identifier", "name", "type", "typeText", "url", "reason"]


class WithFiles(WithSigners):
    def kswctl(self, *arguments, **options):
        return self.tool("kswctl", *arguments, **options)

    def json(self, *arguments, **options):
        done = self.kswctl(*arguments, "--json", **options)
        self.assertTrue(done.stdout.isascii())
        return json.loads(done.stdout)

    def job(self, name, label, **keys):
        return self.file(name, plistlib.dumps({"Label": label, **keys}))

    def app(self, name, **keys):
        executable = self.file(f"{name}/Contents/Linux/Tool", b"#!/bin/sh\n")
        self.file(f"{name}/Contents/Info.plist", plistlib.dumps({"QCBundleExecutable": "Tool"} | keys))
        return executable.parents[2]


class Identifying(WithFiles):
    def identify(self, *arguments, status=0):
        found = self.json("identify", *arguments, status=status)
        self.assertEqual(list(found), IDENTITY_KEYS)
        self.assertEqual(found["identifier"] is None, found["reason"] is not None)
        return found

    def test_a_file_makes_it_a_user_item_of_its_canonical_place(self):
        plan = self.file("my plan.txt", b"x")
        (self.folder / "link").symlink_to(plan)
        for path in [plan, self.folder / "link"]:
            found = self.identify(path)
            self.assertEqual((found["identifier"], found["typeText"]), (plan.as_uri(), "user item"))
            self.assertEqual((found["name"], found["url"]), (path.name, path.as_uri()))

    def test_a_job_file_takes_its_label_and_the_name_of_what_it_runs(self):
        job = self.job("job.plist", "com.example.job", Program="/usr/bin/true")
        found = self.identify(job)
        self.assertEqual((found["identifier"], found["name"]), ("8.com.example.job", "true"))
        self.assertEqual((found["type"], found["typeText"]), (0x10008, "legacy agent"))
        self.assertEqual(self.identify(job, "--type", "daemon")["identifier"], "16.com.example.job")
        self.assertEqual(self.identify(job, "--type", "user-item")["identifier"], job.as_uri())

    def test_a_job_is_named_after_the_outermost_application_around_its_executable(self):
        self.app("Outer.app", QCBundleDisplayName="The Outer")
        inner = self.app("Outer.app/Helpers/Inner.app", QCBundleDisplayName="The Inner")
        job = self.job("job.plist", "a.b", Program=str(inner / "Contents/Linux/Tool"))
        self.assertEqual(self.identify(job)["name"], "The Outer")

    def test_a_job_in_an_application_is_no_legacy_one(self):
        app = self.app("Tool.app")
        job = self.job("Tool.app/Contents/job.plist", "com.example.inside", BundleProgram="Contents/Linux/Tool")
        found = self.identify(job, "--app", app)
        self.assertEqual((found["identifier"], found["typeText"]), ("8.com.example.inside", "agent"))
        self.assertEqual(found["name"], "Tool")

    def test_code_takes_the_identifier_that_it_is_signed_with(self):
        app = self.app("Tool.app", QCBundleDisplayName="The Tool")
        helper = self.app("Tool.app/Contents/Helper.app")
        self.sign(helper, identifier="com.example.helper")
        self.sign(app)
        found = self.identify(app)
        self.assertEqual((found["identifier"], found["name"]), ("2.com.example.tool", "The Tool"))
        found = self.identify(helper, "--app", app)
        self.assertEqual((found["identifier"], found["typeText"]), ("4.com.example.helper", "login item"))
        for kind, number in [("shelf-tile", 0x80), ("glimpse", 0x800), ("lodestar", 0x40), ("input-method", 0x100)]:
            found = self.identify(helper, "--app", app, "--type", kind)
            self.assertEqual(found["identifier"], f"{number}.com.example.helper")
        self.assertEqual(self.identify(app, "--type", "smart-card")["identifier"], "512.com.example.tool")

    def test_what_has_none_says_why(self):
        app = self.app("Unsigned.app")
        broken = self.file("broken.plist", b"<plist>")
        unlabelled = self.file("unlabelled.plist", plistlib.dumps({"Program": "/bin/true"}))
        absent = self.folder / "absent"
        for path, says, name in [
            (app, r"\(-67062\)$", "Unsigned"), (broken, "broken.plist: ", "broken.plist"),
            (unlabelled, "'Label' is missing$", "unlabelled.plist"), (absent, "No such file or directory$", "absent"),
        ]:  # fmt: skip
            with self.subTest(path=path.name):
                found = self.identify(path, status=1)
                self.assertRegex(found["reason"], says)
                self.assertTrue(found["reason"].startswith(f"{path}: "))
                self.assertEqual(found["name"], name)
                done = self.kswctl("identify", path, status=1)
                self.assertEqual(done.stderr, f"kswctl: {found['reason']}\n")

    def test_a_table_is_printed_for_people(self):
        plan = self.file("a\x1b[2Jb\n.txt", b"x")
        rows = dict(line.split(None, 1) for line in self.kswctl("identify", plan).stdout.splitlines())
        self.assertEqual(list(rows), IDENTITY_KEYS)
        self.assertEqual((rows["name"], rows["reason"]), (r"a\x1b[2Jb\x0a.txt", "-"))

    def test_places_that_do_not_go_with_the_kind_are_wrong_usage(self):
        plan = self.file("plan.txt", b"x")
        app = self.app("Tool.app")
        inside = self.file("Tool.app/plan.txt", b"x")
        for arguments, says in [
            ([plan, "--type", "login-item"], "needs the application"), ([plan, "--type", "glimpse"], "needs the app"),
            ([inside, "--app", app], "is in no application"), ([plan, "--app", app], "is not inside the application"),
            ([app, "--app", app, "--type", "app"], "is in no other application"), ([], "PATH"), ([""], "PATH"),
            ([plan, "--type", "developer"], "--type"), ([plan, "--type", "agent,daemon"], "--type"),
        ]:  # fmt: skip
            with self.subTest(arguments=arguments):
                done = self.kswctl("identify", *arguments, status=2)
                self.assertIn(says, done.stderr)
                self.assertEqual(done.stdout, "")


class Bookmarking(WithFiles):
    def make(self, path, name=None):
        """A file with a bookmark of the path."""
        bookmark = self.folder / (name or f"{pathlib.Path(path).name}.bookmark")
        with open(bookmark, "wb") as out:
            done = subprocess.run(
                [program("kswctl"), "bookmark", "make", str(path)], env=self.environment(), stdout=out,
                stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=REQUEST_SECONDS,
            )  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return bookmark

    def resolve(self, bookmark, status=0):
        return self.kswctl("bookmark", "resolve", bookmark, status=status)

    def test_finds_a_file_where_it_is(self):
        plan = self.file("plan.txt", b"x")
        bookmark = self.make(plan)
        self.assertEqual(self.resolve(bookmark).stdout, f"{plan}\n")
        found = self.json("bookmark", "resolve", bookmark)
        self.assertEqual(found, {"path": str(plan), "url": plan.as_uri(), "stale": False})
        given = self.json("bookmark", "make", plan)
        self.assertEqual(given, {"bookmark": bookmark.read_bytes().hex()})

    def test_finds_a_file_that_was_moved_or_replaced(self):
        plan = self.file("plan.txt", b"x")
        bookmark = self.make(plan)
        moved = plan.rename(self.folder / "moved \n\x1b[2J.txt")
        self.assertEqual(self.resolve(bookmark).stdout, f"{moved}\n")
        self.assertIs(self.json("bookmark", "resolve", bookmark)["stale"], True)
        self.file("plan.txt", b"another")
        self.assertEqual(self.json("bookmark", "resolve", bookmark)["path"], str(plan))

    def test_keeps_bytes_that_are_no_characters(self):
        path = os.fsencode(self.folder) + b"/\xff%41 \xe9"
        pathlib.Path(os.fsdecode(path)).write_bytes(b"x")
        bookmark = self.make(os.fsdecode(path), "odd.bookmark")
        done = subprocess.run(
            [program("kswctl"), "bookmark", "resolve", bookmark], env=self.environment(), capture_output=True,
            timeout=REQUEST_SECONDS, check=True,
        )  # fmt: skip
        self.assertEqual(done.stdout, path + b"\n")

    def test_fails_with_the_reason_when_the_file_is_gone(self):
        plan = self.file("plan.txt", b"x")
        bookmark = self.make(plan)
        plan.unlink()
        done = self.resolve(bookmark, status=1)
        self.assertEqual(done.stdout, "")
        self.assertRegex(done.stderr, r"^kswctl: .+\n$")

    def test_fails_with_the_reason_when_the_file_lies_in_the_trash(self):
        places = {"XDG_DATA_HOME": str(self.host / "data")}
        trash = self.host / "data/Trash/files"
        trash.mkdir(parents=True, exist_ok=True)
        plan = self.file("apps/plan.txt", b"x")
        bookmark = self.make(plan)
        plan.rename(trash / "plan.txt")
        fresh = self.make(trash / "plan.txt", "fresh")
        for given in [bookmark, fresh]:
            done = self.kswctl("bookmark", "resolve", given, status=1, variables=places)
            self.assertEqual(done.stdout, "")
            self.assertRegex(done.stderr, r"^kswctl: .*bookmark resolved to URL in the trash\n$")

    def test_makes_one_of_a_file_that_is_not_there_yet(self):
        bookmark = self.make(self.folder / "later")
        self.resolve(bookmark, status=1)
        later = self.file("later", b"x")
        self.assertEqual(self.resolve(bookmark).stdout, f"{later}\n")

    def test_shows_what_is_recorded(self):
        app = self.app("Tool.app", QCBundleDisplayName="The Tool")
        bookmark = self.make(f"{app}/")
        shown = self.json("bookmark", "show", bookmark)
        self.assertEqual(shown, {
            "displayName": "The Tool", "isFileBookmark": True, "KSWResourcePath": str(app),
            "KSWResourceName": "Tool.app", "KSWResourceLocalizedName": "The Tool", "KSWResourceIsDirectory": True,
            "KSWResourceIsRegularFile": False, "KSWResourceIsPackage": True, "KSWResourceIsApplication": True,
            "KSWResourceIsExecutable": True, "KSWResourceIsVolume": False,
        })  # fmt: skip
        shutil.rmtree(app)
        self.assertEqual(self.json("bookmark", "show", bookmark), shown)
        rows = dict(line.split(None, 1) for line in self.kswctl("bookmark", "show", bookmark).stdout.splitlines())
        self.assertEqual((rows["displayName"], rows["KSWResourceIsVolume"]), ("The Tool", "no"))

    def test_keeps_addresses_in_the_net(self):
        bookmark = self.make("https://example.com/a?b", "net.bookmark")
        self.assertEqual(self.resolve(bookmark).stdout, "https://example.com/a?b\n")
        self.assertEqual(self.json("bookmark", "resolve", bookmark)["path"], None)

    def test_matches_bookmarks_of_the_same_file_only(self):
        plan = self.file("plan.txt", b"x")
        first = self.make(plan, "first")
        moved = plan.rename(self.folder / "moved.txt")
        same, replaced = self.make(moved, "same"), self.make(self.file("plan.txt", b"y"), "replaced")
        other = self.make(self.file("other.txt", b"x"))
        for one, two, says, status in [
            (first, first, "same file", 0), (first, same, "same file", 0), (first, replaced, "same path", 1),
            (first, other, "different", 1),
        ]:  # fmt: skip
            with self.subTest(says=says):
                done = self.kswctl("bookmark", "match", one, two, status=status)
                self.assertEqual((done.stdout, done.stderr), (f"{says}\n", ""))
        self.assertEqual(self.json("bookmark", "match", first, same), {"level": 0x8000, "match": "same file"})

    def test_says_what_is_no_bookmark(self):
        plan = self.file("plan.txt", b"x")
        bookmark = self.make(plan)
        large = self.file("large", bytes((1 << 20) + 1))
        for verb in ["show", "resolve", "match"]:
            for path, says in [
                (plan, "not a bookmark"), (self.file("empty", b""), "not a bookmark"), (large, "larger than 1 MiB"),
                (self.folder / "absent", "No such file or directory"), (self.folder, "Is a directory"),
            ]:  # fmt: skip
                with self.subTest(verb=verb, path=path.name):
                    other = [bookmark] if verb == "match" else []
                    done = self.kswctl("bookmark", verb, *other, path, status=1)
                    self.assertEqual(done.stdout, "")
                    self.assertEqual(done.stderr, f"kswctl: {path}: {says}\n")

    def test_is_not_written_to_a_terminal(self):
        plan = self.file("plan.txt", b"x")
        terminal, side = os.openpty()
        self.addCleanup(os.close, terminal)
        self.addCleanup(os.close, side)
        done = subprocess.run(
            [program("kswctl"), "bookmark", "make", str(plan)], env=self.environment(), stdout=side,
            stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, timeout=REQUEST_SECONDS,
        )  # fmt: skip
        self.assertEqual(done.returncode, 2)
        self.assertIn("nothing for a terminal", done.stderr)

    def test_says_when_it_cannot_be_written(self):
        plan = self.file("plan.txt", b"x")
        with open("/dev/full", "wb") as full:
            done = subprocess.run(
                [program("kswctl"), "bookmark", "make", str(plan)], env=self.environment(), stdout=full,
                stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, timeout=REQUEST_SECONDS,
            )  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (1, "kswctl: cannot write\n"))

    def test_needs_a_verb_and_its_files(self):
        plan = self.file("plan.txt", b"x")
        for arguments in [[], ["frobnicate"], ["make"], ["make", ""], ["show"], ["resolve"], ["match", plan],
                          ["match", plan, plan, plan], ["show", plan, plan]]:  # fmt: skip
            with self.subTest(arguments=arguments):
                self.assertIn("kswctl --help", self.kswctl("bookmark", *arguments, status=2).stderr)

    def test_has_help_for_every_verb(self):
        for verb in [[], ["make"], ["show"], ["resolve"], ["match"]]:
            with self.subTest(verb=verb):
                self.assertIn("Exit status", self.kswctl("bookmark", *verb, "--help").stdout)
                self.assertRegex(self.kswctl("bookmark", *verb, "--version").stdout, r"^kswctl \d+\.\d+\.\d+\n$")


if __name__ == "__main__":
    unittest.main()
