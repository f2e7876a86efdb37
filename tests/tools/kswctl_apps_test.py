"""kswctl apps: which applications a user has. No daemon is there."""

import json
import os
import pathlib
import plistlib
import shutil
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import EVERY_USER  # noqa: E402
from signing import WithSigners  # noqa: E402

KEYS = ["identifier", "name", "path", "team", "placeholder"]


class Apps(WithSigners):
    def environment(self):
        return super().environment() | {"HOME": "/home/me"}

    def add(self, path, identifier, executable=True, **information):
        self.addCleanup(shutil.rmtree, self.host / path.split("/")[0], ignore_errors=True)
        app = self.host / path
        (app / "Contents" / "Linux").mkdir(parents=True)
        information = {"QCBundleIdentifier": identifier, "QCBundleExecutable": "tool"} | information
        (app / "Contents" / "Info.plist").write_bytes(plistlib.dumps(information, fmt=plistlib.FMT_BINARY))
        if executable:
            (app / "Contents" / "Linux" / "tool").write_text("#!/bin/sh\n")
        return app

    def apps(self, *arguments):
        done = self.tool("kswctl", "apps", *arguments)
        self.assertEqual(done.stderr, "")
        return done.stdout

    def json(self, *arguments):
        return json.loads(self.apps("--json", *arguments))["apps"]

    def test_are_printed_with_every_key(self):
        whole = self.add("Applications/Tool.app", "com.example.tool", QCBundleDisplayName="The Tool")
        half = self.add("opt/maker/Half.app", "com.example.half", executable=False)
        own = self.add("home/me/Applications/Own.app", "com.example.own")
        apps = self.json()
        self.assertTrue(all(list(app) == KEYS for app in apps))
        self.assertEqual([list(app.values()) for app in apps], [
            ["com.example.tool", "The Tool", str(whole), None, False],
            ["com.example.half", "Half", str(half), None, True],
            ["com.example.own", "Own", str(own), None, False],
        ])  # fmt: skip

    def test_name_the_team_that_has_signed_them(self):
        app = self.add("Applications/Tool.app", "com.example.tool")
        self.sign(app, "--team", "TEAM123")
        self.assertEqual(self.json()[0]["team"], "TEAM123")
        with open(app / "Contents" / "Linux" / "tool", "r+b") as tool:
            tool.write(b"!")
        self.assertIsNone(self.json()[0]["team"])

    def test_of_every_user_are_the_systems(self):
        self.add("Applications/Tool.app", "com.example.tool")
        self.add("home/me/Applications/Own.app", "com.example.own")
        for uid in ["system", EVERY_USER]:
            self.assertEqual([app["identifier"] for app in self.json("--uid", uid)], ["com.example.tool"])
        self.assertEqual(len(self.json("--uid", os.getuid())), 2)

    def test_are_printed_as_a_table(self):
        self.add("Applications/Tool.app", "com.example.tool", QCBundleName="\x1b[2J\u202e")
        lines = self.apps().splitlines()
        self.assertEqual(lines[0].split(), KEYS)
        self.assertEqual(lines[1].split()[0], "com.example.tool")
        self.assertEqual(lines[1].split()[-2:], ["-", "no"])
        self.assertNotIn("\x1b", lines[1])
        self.assertNotIn("\u202e", lines[1])

    def test_are_none_where_there_are_no_folders(self):
        self.assertEqual((self.apps(), self.json()), ("", []))


if __name__ == "__main__":
    unittest.main()
