"""kswctl's verbs about the agent's items, and watch beside an agent."""

import json
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_agent import WithAgent  # noqa: E402
from live_daemon import WithDaemon  # noqa: E402

LOGIN_KEYS = ["identifier", "name", "path", "url", "type", "typeText", "hidden"]
BACKGROUND_KEYS = [*LOGIN_KEYS[:-1], "userElection", "userElectionText"]


class WithFile(WithAgent):
    def setUp(self):
        super().setUp()
        self.file = self.folder / "Notes.txt"
        self.file.write_text("x")

    def tearDown(self):
        for item in self.json("login-items", "list"):
            self.kswctl("login-items", "remove", item["identifier"])


class LoginItems(WithFile):
    def test_are_added_listed_and_removed(self):
        added = self.json("login-items", "add", self.file)
        self.assertEqual(list(added), LOGIN_KEYS)
        self.assertEqual((added["name"], added["path"], added["hidden"]), ("Notes.txt", str(self.file), False))
        self.assertEqual(added["url"], self.file.as_uri())
        listed = self.json("login-items", "list")
        self.assertEqual(listed, [added])
        self.assertEqual((added["type"], added["typeText"]), (1, "user item"))
        self.assertIn("Notes.txt", self.kswctl("login-items", "list").stdout)
        self.assertEqual(self.json("login-items", "remove", added["identifier"][:6]), listed[0])
        self.assertEqual(self.json("login-items", "list"), [])

    def test_are_opened_hidden_when_asked_to(self):
        self.assertTrue(self.json("login-items", "add", "--hidden", self.file)["hidden"])
        self.assertTrue(self.json("login-items", "list")[0]["hidden"])

    def test_have_names_that_no_terminal_obeys(self):
        evil = self.folder / "evil\x1b[2J"
        evil.write_text("x")
        added = self.kswctl("login-items", "add", evil).stdout
        listed = self.kswctl("login-items", "list").stdout
        for text in [added, listed]:
            self.assertIn(r"evil\x1b[2J", text)
            self.assertNotIn("\x1b", text)

    def test_are_named_by_path_and_name_too(self):
        for name in [self.file, "Notes.txt"]:
            self.kswctl("login-items", "add", self.file)
            self.kswctl("login-items", "remove", name)

    def test_that_are_not_there_have_a_status_of_their_own(self):
        done = self.kswctl("login-items", "remove", "nothing", status=4)
        self.assertEqual(done.stderr, "kswctl: no item has the identifier, path or name 'nothing'\n")

    def test_are_files_that_are_there(self):
        done = self.kswctl("login-items", "add", self.folder / "none", status=1)
        self.assertIn(f"kswctl: '{self.folder}/none' is no file that is there\n", done.stderr)

    def test_of_a_file_that_moved_have_its_place_now(self):
        self.kswctl("login-items", "add", self.file)
        moved = self.file.rename(self.folder / "Moved.txt")
        item = self.json("login-items", "list")[0]
        self.assertEqual((item["path"], item["url"]), (str(self.file), moved.as_uri()))


class BackgroundItems(WithFile):
    def test_are_listed_allowed_and_disallowed(self):
        record = self.registered("com.example.background")
        items = {item["identifier"]: item for item in self.json("background-items", "list")}
        item = items[record["uuid"]]
        self.assertEqual(list(item), BACKGROUND_KEYS)
        self.assertEqual((item["name"], item["userElection"]), (record["name"], 1))
        self.assertEqual(item["path"], str(self.folder / "com.example.background.plist"))
        forbidden = self.json("background-items", "disallow", record["uuid"])
        self.assertEqual((forbidden["userElection"], forbidden["userElectionText"]), (2, "disallowed"))
        self.assertEqual(self.json("show", record["uuid"])["disposition"] & 2, 0)
        self.kswctl("background-items", "allow", item["path"])
        self.assertEqual(self.json("show", record["uuid"])["disposition"] & 2, 2)

    def test_that_are_not_there_have_a_status_of_their_own(self):
        self.kswctl("background-items", "allow", "nothing", status=4)


class Watching(WithFile):
    def watch(self, *arguments):
        watch = self.background("kswctl", "watch", *arguments)
        self.assertEqual(watch.line("stderr"), "kswctl: watching")
        return watch

    def until(self, watch, wanted):
        """The first change that `wanted` says yes to."""
        while True:
            line = watch.line()
            self.assertNotEqual(line, "", "the change did not come")
            change = json.loads(line)
            if wanted(change):
                return change

    def test_tells_of_the_agents_lists_and_of_the_daemons(self):
        record = self.registered("com.example.watched")
        watch = self.watch("--json")
        added = self.json("login-items", "add", self.file)
        change = self.until(watch, lambda change: "loginItem" in change)
        self.assertEqual(
            (change["change"], change["loginItem"]["identifier"]), ("added", added["identifier"]))
        self.kswctl("background-items", "disallow", record["uuid"])
        seen = set()
        while seen != {"item", "backgroundItem"}:
            change = self.until(watch, lambda change: change["change"] == "changed")
            seen |= {"item", "backgroundItem"} & set(change)
        self.kswctl("login-items", "remove", added["identifier"])
        change = self.until(watch, lambda change: "loginItem" in change)
        self.assertEqual(change["change"], "removed")

    def test_tells_in_lines(self):
        watch = self.watch()
        added = self.json("login-items", "add", self.file)
        self.assertEqual(
            watch.line(), f"added  login item  {added['identifier']}  Notes.txt  {self.file}  visible")


class WithoutAnAgent(WithDaemon):
    def test_there_is_an_exit_status(self):
        for words in [["login-items", "list"], ["background-items", "list"], ["login-items", "remove", "x"],
                      ["background-items", "allow", "x"], ["login-items", "add", "/etc/passwd"]]:  # fmt: skip
            with self.subTest(words=words):
                done = self.kswctl(*words, status=6)
                self.assertIn("kswctl: no agent or daemon answers", done.stderr)
                self.assertEqual(done.stdout, "")


if __name__ == "__main__":
    unittest.main()
