"""kswctl list and show against a real daemon: what is recorded, and which item is meant."""

import json
import os
import pathlib
import plistlib
import sys
import unittest
import uuid

import cbor2

TESTS = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(TESTS / "support"), str(TESTS / "servers")]
from live_daemon import EVERY_USER, ITEM_KEYS, WithDaemon  # noqa: E402
from wire_stranger_test import MANAGER, Peer, register_job  # noqa: E402

LISTED_KEYS = [*ITEM_KEYS, "container"]
HOSTILE = "evil\x1b[2J\n  Disposition: \u009b\u202e\\x"
ESCAPED = r"evil\x1b[2J\x0a  Disposition: \u009b\u202e\\x"


def archived_user_item(identifier):
    fields = {"uuid": uuid.uuid4(), "identifier": identifier, "disposition": 3, "type": 1}
    return cbor2.dumps({"root": cbor2.CBORTag(27, ["KSWItem", fields])})


class Listing(WithDaemon):
    def setUp(self):
        super().setUp()
        for record in self.json("list"):
            if record["typeText"] != "developer":
                self.kswctl("remove", record["uuid"])

    def listed(self, *arguments):
        return {record["identifier"]: record for record in self.json("list", *arguments)}

    def test_shows_every_key_of_an_item_and_its_container(self):
        item = self.registered("com.example.keys", ProgramArguments=["/bin/true", "-x"])
        record = self.listed()["8.com.example.keys"]
        self.assertEqual(list(record), LISTED_KEYS)
        self.assertEqual(record, item | {"container": "Unknown Developer"})

    def test_shows_null_for_an_item_without_container(self):
        self.registered("com.example.contained")
        developer = self.listed("--type", "developer")["Unknown Developer"]
        self.assertEqual(list(developer), LISTED_KEYS)
        self.assertIsNone(developer["container"])

    def test_holds_the_items_of_the_system_too(self):
        self.registered("com.example.agent")
        self.registered("com.example.daemon", "--type", "daemon")
        listed = self.listed()
        self.assertEqual(listed["8.com.example.agent"]["uid"], os.getuid())
        self.assertEqual(listed["16.com.example.daemon"]["uid"], EVERY_USER)
        containers = [one for one in self.json("list") if one["identifier"] == "Unknown Developer"]
        self.assertEqual(sorted(one["uid"] for one in containers), [os.getuid(), EVERY_USER])

    def test_of_another_user_holds_what_is_theirs_and_the_systems(self):
        self.registered("com.example.mine")
        self.registered("com.example.theirs", "--uid", "4711")
        self.registered("com.example.daemon", "--type", "daemon")
        theirs = self.listed("--uid", "4711")
        self.assertEqual(theirs["8.com.example.theirs"]["uid"], 4711)
        self.assertIn("16.com.example.daemon", theirs)
        self.assertNotIn("8.com.example.mine", theirs)
        system = self.listed("--uid", "system")
        self.assertIn("16.com.example.daemon", system)
        self.assertNotIn("8.com.example.theirs", system)
        self.kswctl("remove", "8.com.example.theirs", "--uid", "4711")

    def test_keeps_to_the_kinds_asked_for(self):
        self.registered("com.example.agent")
        self.registered("com.example.daemon", "--type", "daemon")
        (self.folder / "document").touch()
        added = self.json("add", self.folder / "document")["item"]["identifier"]
        self.assertEqual(list(self.listed("--type", "agent")), ["8.com.example.agent"])
        self.assertEqual(list(self.listed("--type", "user-item")), [added])
        both = self.listed("--type", "daemon,user-item")
        self.assertEqual(set(both), {"16.com.example.daemon", added})

    def test_knows_the_name_of_every_kind(self):
        for kind in ["user-item", "app", "login-item", "agent", "daemon", "developer", "lodestar", "shelf-tile",
                     "input-method", "smart-card", "color-picker", "glimpse"]:  # fmt: skip
            with self.subTest(kind=kind):
                self.kswctl("list", "--type", kind)

    def test_of_nothing_is_an_empty_array_and_an_empty_table(self):
        self.assertEqual(self.json("list", "--type", "glimpse"), [])
        self.assertEqual(self.kswctl("list", "--type", "glimpse").stdout, "")

    def test_prints_a_table_for_people(self):
        self.registered("com.example.row")
        lines = self.kswctl("list", "--type", "agent").stdout.splitlines()
        self.assertEqual(lines[0].split(), ["identifier", "type", "disposition", "name"])
        self.assertEqual(len(lines), 2)
        self.assertRegex(lines[1], r"^8\.com\.example\.row +legacy agent +"
                                   r"\[enabled, allowed, visible, not notified\] +\S")  # fmt: skip
        for column in ["type", "disposition", "name"]:
            self.assertNotEqual(lines[1][lines[0].index(column)], " ")

    def test_escapes_what_a_terminal_would_obey(self):
        register_job(self.daemon, HOSTILE)
        (self.folder / HOSTILE).touch()
        self.json("add", self.folder / HOSTILE)
        table = self.kswctl("list").stdout
        self.assertIn(f"8.{ESCAPED}", table)
        self.assertTrue(any(line.endswith(f"  {ESCAPED}") for line in table.splitlines()), table)
        for text in [table, self.kswctl("list", "--json").stdout]:
            self.assertNotRegex(text, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]")
        self.assertEqual(self.listed()[f"8.{HOSTILE}"]["identifier"], f"8.{HOSTILE}")

    def test_shows_a_thousand_items(self):
        peer = Peer(self.daemon.socket_path(MANAGER))
        self.addCleanup(peer.close)
        identifiers = [f"https://example.com/{number:04}" for number in range(1000)]
        for identifier in identifiers:
            self.assertEqual(peer.call("addItem:uid:reply:", archived_user_item(identifier), 4712), [0])
        self.assertEqual(set(self.listed("--uid", "4712", "--type", "user-item")), set(identifiers))
        self.assertEqual(len(self.kswctl("list", "--uid", "4712", "--type", "user-item").stdout.splitlines()), 1001)
        changed = self.json("disallow", identifiers[-1], "--uid", "4712")
        self.assertEqual((changed["code"], changed["item"]["disposition"]), (-93, 1))
        done = self.kswctl("show", "https://", "--uid", "4712", status=2)
        self.assertEqual(len(done.stderr.splitlines()), 22)
        self.assertEqual(done.stderr.splitlines()[-1], "  and 980 more")


class Showing(WithDaemon):
    def test_dumps_the_record_line_by_line(self):
        item = self.registered("com.example.dump")
        lines = [line.strip() for line in self.kswctl("show", "8.com.example.dump").stdout.splitlines()]
        self.assertIn(f"UUID: {item['uuid']}", lines)
        self.assertIn("Type: legacy agent (0x10008)", lines)
        self.assertIn("Flags: [ legacy ] (0x1)", lines)
        self.assertIn("Disposition: [enabled, allowed, visible, not notified] (0x3)", lines)
        self.assertIn("Identifier: 8.com.example.dump", lines)
        self.assertIn(f"URL: {item['url']}", lines)
        self.assertIn("Executable Path: /bin/true", lines)
        self.assertIn("Parent Identifier: Unknown Developer", lines)

    def test_names_the_children_of_a_container(self):
        self.registered("com.example.child")
        self.assertRegex(self.kswctl("show", "Unknown Developer").stdout, r"(?m)^ +#\d+: 8\.com\.example\.child$")

    def test_prints_the_object_of_the_list(self):
        self.registered("com.example.object")
        shown = self.json("show", "8.com.example.object")
        self.assertEqual(list(shown), LISTED_KEYS)
        self.assertIn(shown, self.json("list"))

    def test_lets_no_text_pose_as_a_line(self):
        register_job(self.daemon, HOSTILE, HOSTILE)
        (self.folder / HOSTILE).touch()
        added = self.json("add", self.folder / HOSTILE)["item"]
        for item, field in [(f"8.{HOSTILE}", f"Identifier: 8.{ESCAPED}"), (f"8.{HOSTILE}", f"Path: {ESCAPED}"),
                            (added["uuid"], f"Name: {ESCAPED}"), ("Unknown", f": 8.{ESCAPED}")]:  # fmt: skip
            with self.subTest(field=field):
                dump = self.kswctl("show", item).stdout
                self.assertRegex(dump, r"(?m)" + field.replace("\\", "\\\\").replace("[", r"\[") + "$")
                self.assertNotRegex(dump, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]")
        titles = [line.split(":")[0].strip() for line in self.kswctl("show", added["uuid"]).stdout.splitlines()]
        self.assertEqual(titles.count("Disposition"), 1)


class NamingAnItem(WithDaemon):
    def setUp(self):
        super().setUp()
        self.one = self.registered("com.example.one")
        self.longer = self.registered("com.example.one.more")

    def found(self, text):
        return self.json("show", text)["uuid"]

    def test_works_with_an_identifier_even_if_others_begin_so(self):
        self.assertEqual(self.found("8.com.example.one"), self.one["uuid"])

    def test_works_with_the_beginning_of_an_identifier(self):
        self.assertEqual(self.found("8.com.example.one."), self.longer["uuid"])

    def test_works_with_a_uuid_in_either_case(self):
        self.assertEqual(self.found(self.one["uuid"]), self.one["uuid"])
        self.assertEqual(self.found(self.one["uuid"].lower()), self.one["uuid"])

    def test_works_with_the_beginning_of_a_uuid_in_either_case(self):
        uuid = self.longer["uuid"]
        self.assertEqual(self.found(uuid[:23]), uuid)
        self.assertEqual(self.found(uuid[:23].lower()), uuid)

    def test_does_not_work_with_another_case_or_middle_of_an_identifier(self):
        self.kswctl("show", "8.COM.EXAMPLE.ONE", status=4)
        self.kswctl("show", "example.one", status=4)

    def test_lists_the_candidates_of_an_ambiguous_beginning(self):
        for verb in ["show", "remove", "enable", "disable", "allow", "disallow", "hide", "unhide"]:
            with self.subTest(verb=verb):
                done = self.kswctl(verb, "8.com.example.o", status=2)
                self.assertEqual(done.stdout, "")
                complaint, *candidates = done.stderr.splitlines()
                self.assertEqual(complaint, "kswctl: '8.com.example.o' is ambiguous:")
                self.assertEqual(sorted(candidates), sorted(
                    f"  {item['uuid']}  {item['identifier']}" for item in [self.one, self.longer]))  # fmt: skip

    def test_of_an_unknown_one_ends_with_no_such_item(self):
        for verb in ["show", "remove", "enable", "disable", "allow", "disallow", "hide", "unhide"]:
            with self.subTest(verb=verb):
                done = self.kswctl(verb, "8.com.nobody\x1b", status=4)
                self.assertEqual(done.stdout, "")
                self.assertEqual(
                    done.stderr, "kswctl: no item's identifier or UUID begins with '8.com.nobody\\x1b'\n")

    def test_escapes_the_candidates(self):
        for number in range(2):
            register_job(self.daemon, f"{HOSTILE}{number}")
        done = self.kswctl("show", "8.evil", status=2)
        self.assertIn(f"8.{ESCAPED}1", done.stderr)
        self.assertNotRegex(done.stderr, "[\x00-\x09\x0b-\x1f\x7f-\x9f\u202e]")


class TheFeatureOff(WithDaemon):
    def test_is_said(self):
        flags = self.daemon.root / "etc/kestrelwood/features/Kestrelwood.plist"
        flags.parent.mkdir(parents=True)
        flags.write_bytes(plistlib.dumps({"ControlAutomaticAppLaunch": False}))
        for arguments in [["list"], ["watch"], ["show", "x"], ["add", "/etc/hostname"]]:
            with self.subTest(arguments=arguments):
                done = self.kswctl(*arguments, status=1)
                self.assertIn("ControlAutomaticAppLaunch is off", done.stderr)
        self.assertEqual(json.loads(self.kswctl("add", "/etc/hostname", "--json", status=1).stdout)["code"], -1)


if __name__ == "__main__":
    unittest.main()
