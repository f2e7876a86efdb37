"""kswctl add, remove and the verbs that change one bit, against a real daemon."""

import json
import os
import pathlib
import sys
import threading
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import ITEM_KEYS, LiveDaemon, WithDaemon, WithFolder  # noqa: E402

ENABLED, ALLOWED, HIDDEN = 1, 2, 4
CHANGES = {
    "disable": (ENABLED, False), "enable": (ENABLED, True), "disallow": (ALLOWED, False), "allow": (ALLOWED, True),
    "hide": (HIDDEN, True), "unhide": (HIDDEN, False),
}  # fmt: skip
ANSWER_KEYS = ["code", "message", "item"]


class Adding(WithDaemon):
    def file(self, name):
        (self.folder / name).touch()
        return self.folder / name

    def test_prints_the_item_as_register_does(self):
        path = self.file("letter.txt")
        answer = self.json("add", path)
        self.assertEqual(list(answer), ANSWER_KEYS)
        self.assertEqual((answer["code"], answer["message"]), (0, "no error"))
        item = answer["item"]
        self.assertEqual(list(item), ITEM_KEYS)
        self.assertEqual((item["identifier"], item["url"], item["name"]), (path.as_uri(), path.as_uri(), path.name))
        self.assertEqual((item["typeText"], item["uid"]), ("user item", os.getuid()))
        self.assertEqual(item["disposition"] & (ENABLED | ALLOWED), ENABLED | ALLOWED)
        self.assertEqual(self.json("show", item["uuid"])["identifier"], item["identifier"])

    def test_prints_a_table_for_people(self):
        fields = dict(line.split(None, 1) for line in self.kswctl("add", self.file("table.txt")).stdout.splitlines())
        self.assertEqual(list(fields), ["code", "message", *ITEM_KEYS])

    def test_takes_a_path_from_where_it_stands(self):
        path = self.file("here.txt")
        for text in ["here.txt", "./here.txt", f"../{self.folder.name}/here.txt"]:
            with self.subTest(text=text):
                item = json.loads(self.kswctl("add", text, "--json", cwd=self.folder).stdout)["item"]
                self.assertEqual(item["identifier"], path.as_uri())

    def test_takes_a_file_url_and_any_other(self):
        path = self.file("with blank.txt")
        self.assertEqual(self.json("add", path.as_uri())["item"]["name"], "with blank.txt")
        item = self.json("add", "https://example.com/feed?x=1")["item"]
        self.assertEqual((item["identifier"], item["url"]), ("https://example.com/feed?x=1",) * 2)

    def test_takes_a_name_that_looks_like_a_url_by_its_path(self):
        path = self.file("a:b")
        item = json.loads(self.kswctl("add", "./a:b", "--json", cwd=self.folder).stdout)["item"]
        self.assertEqual(item["name"], path.name)

    def test_of_an_item_that_is_there_gives_its_record(self):
        path = self.file("twice.txt")
        first = self.json("add", path)["item"]
        again = self.json("add", path)
        self.assertEqual((again["code"], again["item"]["uuid"]), (0, first["uuid"]))

    def test_turns_on_an_item_that_was_turned_off(self):
        path = self.file("off.txt")
        uuid = self.json("add", path)["item"]["uuid"]
        self.json("disable", uuid)
        self.assertEqual(self.json("add", path)["item"]["uuid"], uuid)
        self.assertEqual(self.json("show", uuid)["disposition"] & ENABLED, ENABLED)

    def test_leaves_an_item_forbidden_that_was_forbidden(self):
        path = self.file("forbidden.txt")
        uuid = self.json("add", path)["item"]["uuid"]
        self.json("disallow", uuid)
        self.assertEqual(self.json("add", path)["item"]["disposition"] & ALLOWED, 0)
        self.assertEqual(self.json("show", uuid)["disposition"] & ALLOWED, 0)

    def test_of_a_file_that_is_not_there_fails(self):
        answer = self.json("add", self.folder / "absent", status=1)
        self.assertEqual((answer["code"], answer["item"]), (-98, None))


class Removing(WithDaemon):
    def test_removes_the_record(self):
        item = self.registered("com.example.gone")
        answer = self.json("remove", "8.com.example.gone")
        self.assertEqual(list(answer), ANSWER_KEYS)
        self.assertEqual((answer["code"], answer["message"], answer["item"]["uuid"]), (0, "no error", item["uuid"]))
        self.kswctl("show", item["uuid"], status=4)
        self.kswctl("remove", item["uuid"], status=4)

    def test_removes_a_record_of_the_system(self):
        item = self.registered("com.example.system", "--type", "daemon")
        self.kswctl("remove", item["uuid"])
        self.kswctl("show", item["uuid"], status=4)

    def test_prints_a_table_for_people(self):
        self.registered("com.example.table")
        fields = dict(line.split(None, 1) for line in self.kswctl("remove", "8.com.example.table").stdout.splitlines())
        self.assertEqual(list(fields), ["code", "message", *ITEM_KEYS])


class Changing(WithDaemon):
    def test_stores_one_bit_and_leaves_the_others(self):
        uuid = self.registered("com.example.bits")["uuid"]
        before = self.json("show", uuid)
        for verb, (bit, raised) in CHANGES.items():
            with self.subTest(verb=verb):
                answer = self.json(verb, uuid)
                self.assertEqual(list(answer), ANSWER_KEYS)
                self.assertEqual((answer["code"], answer["message"]), (-93, "record updated"))
                after = self.json("show", uuid)
                expected = before["disposition"] | bit if raised else before["disposition"] & ~bit
                self.assertEqual(after["disposition"], expected)
                self.assertEqual(after["generation"], before["generation"] + 1)
                self.assertEqual(after | {"container": None}, answer["item"] | {"container": None})
                before = after

    def test_of_what_is_so_already_says_that_there_is_nothing_to_change(self):
        item = self.registered("com.example.same")
        for verb in ["enable", "allow", "unhide"]:
            with self.subTest(verb=verb):
                answer = self.json(verb, item["uuid"])
                self.assertEqual((answer["code"], answer["message"]), (0, "nothing to change"))
                self.assertEqual(answer["item"], item)
        self.assertRegex(self.kswctl("enable", item["uuid"]).stdout, r"(?m)^message +nothing to change$")

    def test_decides_whether_the_job_may_load(self):
        job = self.job("com.example.decided", Program="/bin/true")
        self.json("register", job)
        for verb, status in [("disallow", 5), ("allow", 0), ("disable", 5), ("enable", 0)]:
            with self.subTest(verb=verb):
                self.kswctl(verb, "8.com.example.decided")
                self.json("may-load", job, status=status)

    def test_lets_a_daemon_of_the_system_launch(self):
        job = self.job("com.example.daemon", Program="/bin/true")
        self.json("register", job, "--type", "daemon")
        self.json("may-load", job, "--type", "daemon", status=5)
        self.assertEqual(self.json("allow", "16.com.example.daemon")["code"], -93)
        self.json("may-load", job, "--type", "daemon")

    def test_works_for_another_user(self):
        self.registered("com.example.theirs", "--uid", "4711")
        self.assertEqual(self.json("disallow", "8.com.example.theirs", "--uid", "4711")["item"]["uid"], 4711)
        self.assertEqual(self.json("show", "8.com.example.theirs", "--uid", "4711")["disposition"] & ALLOWED, 0)

    def test_survives_a_daemon_that_starts_anew(self):
        uuid = self.registered("com.example.kept")["uuid"]
        self.json("disallow", uuid)
        self.assertEqual(self.daemon.stop(), 0)
        self.daemon.start()
        self.assertEqual(self.json("show", uuid)["disposition"] & ALLOWED, 0)

    def test_goes_through_whoever_else_changes_the_item_meanwhile(self):
        uuid = self.registered("com.example.contended")["uuid"]
        wrong = []

        def change(*verbs):
            for verb in verbs * 8:
                done = self.daemon.run("kswctl", verb, uuid)
                if done.returncode != 0:
                    wrong.append((verb, done.stderr))

        others = [threading.Thread(target=change, args=verbs) for verbs in [("hide", "unhide"), ("disable", "enable")]]
        for other in others:
            other.start()
        change("disallow", "allow")
        for other in others:
            other.join()
        self.assertEqual(wrong, [])
        self.assertEqual(self.json("show", uuid)["disposition"] & (ENABLED | ALLOWED | HIDDEN), ENABLED | ALLOWED)


class AnotherUser(WithDaemon):
    """Only uid 0 can act as another user; as an ordinary user there is nobody else to be."""

    def test_may_look_at_and_change_what_is_its_own_only(self):
        if os.getuid() != 0:
            return
        self.registered("com.example.roots")
        daemon = self.registered("com.example.system", "--type", "daemon")["uuid"]
        for arguments in [["list", "--uid", "0"], ["show", "8.com.example.roots", "--uid", "0"],
                          ["disallow", "8.com.example.roots", "--uid", "0"], ["watch", "--uid", "0"],
                          ["remove", "8.com.example.roots", "--uid", "0"],
                          ["add", "https://example.com/", "--uid", "0"], ["list", "--uid", "system"],
                          ["allow", daemon], ["remove", daemon]]:  # fmt: skip
            with self.subTest(arguments=arguments):
                done = self.run_as_nobody(*arguments)
                self.assertEqual(done.returncode, 5, (done.stdout, done.stderr))
                self.assertIn("kswctl: permission denied\n", done.stderr)
        self.assertEqual(self.json("show", "8.com.example.roots")["disposition"] & ALLOWED, ALLOWED)
        self.assertEqual(self.json("show", daemon)["disposition"] & ALLOWED, 0)

    def test_may_do_with_its_own_items_what_it_likes(self):
        if os.getuid() != 0:
            return
        added = self.run_as_nobody("add", "https://example.com/own", "--json")
        self.assertEqual(added.returncode, 0, added.stderr)
        uuid = json.loads(added.stdout)["item"]["uuid"]
        for verb in ["show", *CHANGES, "remove"]:
            with self.subTest(verb=verb):
                self.assertEqual(self.run_as_nobody(verb, uuid).returncode, 0)
        self.assertEqual(self.run_as_nobody("show", uuid).returncode, 4)

    def test_is_told_in_json_what_it_may_not(self):
        if os.getuid() != 0:
            return
        done = self.run_as_nobody("add", "https://example.com/", "--uid", "0", "--json")
        self.assertEqual(json.loads(done.stdout), {"code": -97, "message": "permission denied", "item": None})


class WithoutADaemon(WithFolder):
    def test_add_says_so_in_json(self):
        daemon = LiveDaemon()
        self.addCleanup(daemon.__exit__)
        done = daemon.run("kswctl", "add", "https://example.com/", "--json")
        self.assertEqual(done.returncode, 6)
        answer = json.loads(done.stdout)
        self.assertEqual((answer["code"], answer["item"]), (-1, None))


if __name__ == "__main__":
    unittest.main()
