"""kswctl about what belongs to the system: settings, switches of subsystems, and who is notified of what."""

import datetime
import os
import pathlib
import plistlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import EVERY_USER, LiveDaemon, WithDaemon, WithFolder  # noqa: E402

FLAGS = ["rosterMigrated", "pellucidLoginItemsMigrated", "almanacItemsImported"]
SETTINGS_KEYS = ["uid", "generation", *FLAGS, "enablementStatus"]


def fields(text):
    return dict(line.split(None, 1) for line in text.splitlines())


class Settings(WithDaemon):
    def test_of_a_user_who_has_none_say_no_to_everything(self):
        settings = self.json("settings", "show", "--uid", "4001")
        self.assertEqual(list(settings), SETTINGS_KEYS)
        self.assertEqual((settings["uid"], settings["generation"]), (4001, 0))
        self.assertEqual([settings[flag] for flag in FLAGS], [False, False, False])
        self.assertEqual(settings["enablementStatus"], {})

    def test_are_what_the_word_alone_means(self):
        self.assertEqual(self.json("settings")["uid"], os.getuid())
        self.assertEqual(self.json("settings", "--uid", "4002"), self.json("settings", "show", "--uid", "4002"))
        self.assertEqual(fields(self.kswctl("settings").stdout)["rosterMigrated"], "no")

    def test_are_changed_one_by_one(self):
        for number, flag in enumerate(FLAGS):
            settings = self.json("settings", "set", flag, "on", "--uid", "4003")
            self.assertEqual((settings[flag], settings["generation"]), (True, number + 1))
            self.assertEqual(self.json("settings", "--uid", "4003"), settings)
        self.assertFalse(self.json("settings", "set", FLAGS[1], "off", "--uid", "4003")[FLAGS[1]])

    def test_are_of_no_other_name_and_on_or_off(self):
        self.kswctl("settings", "set", "generation", "on", status=2)
        self.kswctl("settings", "set", FLAGS[0], "maybe", status=2)
        self.kswctl("settings", "set", FLAGS[0], status=2)


class Subsystems(WithDaemon):
    def test_are_switched_on_and_off_and_forgotten(self):
        self.assertFalse(self.json("subsystem", "have", "glimpse")["set"])
        self.kswctl("subsystem", "get", "glimpse", status=4)
        for turn, enabled in [("on", True), ("off", False)]:
            answer = self.json("subsystem", "set", "glimpse", turn)
            self.assertEqual(answer["subsystem"], "KSWSubsystemGlimpse")
            self.assertEqual((answer["uid"], answer["enabled"]), (os.getuid(), enabled))
            self.assertEqual(self.json("subsystem", "get", "glimpse")["enabled"], enabled)
        self.assertTrue(self.json("subsystem", "have", "KSWSubsystemGlimpse")["set"])
        self.assertFalse(self.json("subsystem", "reset", "glimpse")["set"])
        self.kswctl("subsystem", "get", "glimpse", status=4)

    def test_of_the_system_are_switched_for_everybody(self):
        self.assertEqual(self.json("subsystem", "set", "cron", "on")["uid"], EVERY_USER)
        self.assertTrue(self.json("subsystem", "get", "cron")["enabled"])
        self.assertFalse(self.json("subsystem", "have", "cron", "--uid", "4001")["set"])

    def test_that_nobody_knows_belong_to_the_user_who_is_named(self):
        self.assertEqual(self.json("subsystem", "set", "other", "on", "--uid", "4001")["subsystem"], "other")
        self.assertTrue(self.json("subsystem", "get", "other", "--uid", "4001")["enabled"])
        self.kswctl("subsystem", "get", "other", status=1)

    def test_are_called_what_people_call_them(self):
        # The host root has no texts, so the name is its key.
        self.assertEqual(self.json("subsystem", "have", "cron")["name"], "KSW_SUBSYSTEM_CRON")
        self.assertRegex(self.kswctl("subsystem", "have", "cron").stdout, r"(?m)^set +(yes|no)$")

    def test_need_a_verb_a_name_and_a_turn(self):
        for arguments in [[], ["get"], ["set", "cron"], ["set", "cron", "maybe"]]:
            self.kswctl("subsystem", *arguments, status=2)


class Notifications(WithDaemon):
    def test_of_every_item_are_turned_on_and_off(self):
        self.assertEqual(self.json("notifications"), {"always": False})
        self.assertEqual(self.json("notifications", "always", "on"), {"always": True})
        self.assertEqual(self.json("notifications"), {"always": True})
        self.kswctl("notifications", "always", "off")
        self.assertRegex(self.kswctl("notifications").stdout, r"^always +no\n$")
        self.kswctl("notifications", "always", status=2)


class Roster(WithDaemon):
    def test_has_the_items_that_were_added(self):
        file = self.folder / "plan.txt"
        file.write_text("x")
        added = self.json("roster", "add", file)
        self.assertEqual(list(added), ["code", "message", "item"])
        item = added["item"]
        self.assertEqual((added["code"], item["typeText"], item["url"]), (0, "user item", file.as_uri()))
        self.assertEqual(item["disposition"] & 3, 3)
        self.assertIn(item["uuid"], [each["uuid"] for each in self.json("roster")])
        self.assertEqual(self.json("roster", "list", "--type", "app"), [])
        self.assertEqual(self.json("roster", "add", file)["item"]["uuid"], item["uuid"])
        self.assertRegex(self.kswctl("roster").stdout, r"^identifier +type +disposition +name\n")

    def test_changes_and_removes_an_item(self):
        uuid = self.json("roster", "add", "https://example.com/changed")["item"]["uuid"]
        answer = self.json("roster", "update", uuid, "--allowed", "off", "--hidden", "on")
        self.assertEqual((answer["code"], answer["item"]["disposition"] & 7), (-93, 5))
        self.assertEqual(self.json("show", uuid)["disposition"] & 7, 5)
        self.assertEqual(self.json("roster", "remove", uuid)["code"], 0)
        self.kswctl("roster", "remove", uuid, status=4)

    def test_has_items_of_the_system_too(self):
        item = self.json("roster", "add", "https://example.com/global", "--global")["item"]
        self.assertIn("global", item["flagsText"])
        self.kswctl("roster", "remove", item["uuid"])


class Managed(WithDaemon):
    def payload(self, **rule):
        return self.file_of({"Rules": [rule]})

    def file_of(self, payload):
        path = self.folder / "payload.plist"
        path.write_bytes(plistlib.dumps(payload))
        return path

    def test_payloads_are_stored_shown_and_removed(self):
        rules = {"Rules": [{"Match": "Label", "Value": "com.example.ruled", "Effect": "Disallow"}]}
        uuid = self.registered("com.example.ruled")["uuid"]
        answer = self.json("managed", "set", "com.example.rules", self.file_of(rules))
        self.assertEqual(answer, {"identifier": "com.example.rules", "payload": rules})
        self.assertEqual(self.json("managed", "show", "com.example.rules"), rules)
        ruled = self.json("show", uuid)
        self.assertEqual((ruled["disposition"] & 2, "managed" in ruled["flagsText"]), (0, True))
        self.json("managed", "remove", "com.example.rules")
        self.assertEqual(self.json("show", uuid)["disposition"] & 2, 2)
        for verb in ["show", "remove"]:
            self.kswctl("managed", verb, "com.example.rules", status=4)

    def test_payloads_may_leave_alone_what_there_is(self):
        uuid = self.registered("com.example.later")["uuid"]
        payload = self.payload(Match="Label", Value="com.example.later", Effect="Disallow")
        self.json("managed", "set", "later", payload, "--later")
        self.assertEqual(self.json("show", uuid)["disposition"] & 2, 2)
        self.json("managed", "remove", "later")

    def test_times_in_payloads_are_shown_as_rfc_3339_has_them(self):
        self.json("managed", "set", "dated", self.file_of({"since": datetime.datetime(2026, 1, 2, 3, 4, 5)}))
        self.assertEqual(self.json("managed", "show", "dated"), {"since": "2026-01-02T03:04:05Z"})

    def test_payloads_that_are_none_are_refused(self):
        self.kswctl("managed", "set", "odd", self.payload(Match="Nothing"), status=1)
        self.kswctl("managed", "show", "odd", status=4)

    def test_jobs_are_submitted_listed_and_removed(self):
        job = self.job("com.example.job", Program="/bin/true")
        self.assertEqual(self.json("managed", "jobs"), [])
        for removal in [["--remove", job], ["--remove-label", "com.example.job"]]:
            self.assertEqual(self.json("managed", "jobs", "--submit", job), {"code": 0, "message": "no error"})
            self.assertEqual([item["identifier"] for item in self.json("managed", "jobs")], ["16.com.example.job"])
            self.json("managed", "jobs", *removal)
            self.assertEqual(self.json("managed", "jobs"), [])
        self.assertEqual(self.json("managed", "jobs", "--remove", job, status=4)["code"], -95)


class Maintenance(WithDaemon):
    def test_garbage_is_collected_later(self):
        self.assertEqual(self.json("gc"), {"scheduled": True})

    def test_the_database_is_shown_and_erased(self):
        uuid = self.registered("com.example.shown")["uuid"]
        text = self.kswctl("dump").stdout
        self.assertIn(uuid, text)
        self.assertEqual(self.json("dump")["dump"].count(uuid), text.count(uuid))
        self.assertEqual(self.json("erase"), {"erased": True})
        self.kswctl("show", uuid, status=4)
        self.assertNotIn(uuid, self.kswctl("dump").stdout)


class AnotherUser(WithDaemon):
    """Only uid 0 can act as another user; as an ordinary user there is nobody else to be."""

    def test_may_look_at_and_change_what_is_its_own_only(self):
        if os.getuid() != 0:
            return
        payload = self.job("payload")
        for arguments in [["settings", "--uid", "0"], ["settings", "set", FLAGS[0], "on", "--uid", "0"],
                          ["subsystem", "get", "cron"], ["subsystem", "set", "cron", "on"],
                          ["subsystem", "reset", "cron"], ["notifications", "always", "on"],
                          ["roster", "add", "/a", "--global"], ["managed", "set", "a", payload], ["gc"], ["dump"],
                          ["managed", "jobs", "--submit", payload], ["erase"]]:  # fmt: skip
            with self.subTest(arguments=arguments):
                done = self.run_as_nobody(*arguments)
                self.assertEqual(done.returncode, 5, (done.stdout, done.stderr))
                self.assertIn("kswctl: permission denied\n", done.stderr)
        self.assertEqual(self.run_as_nobody("settings", "set", FLAGS[0], "on").returncode, 0)
        self.assertEqual(self.run_as_nobody("subsystem", "set", "glimpse", "on").returncode, 0)
        self.assertEqual(self.run_as_nobody("notifications").returncode, 0)
        self.assertFalse(self.json("settings")[FLAGS[0]])


class WithoutADaemon(WithFolder):
    def test_every_verb_says_so(self):
        daemon = LiveDaemon()
        self.addCleanup(daemon.__exit__)
        payload = self.job("payload")
        for arguments in [["settings"], ["settings", "set", FLAGS[0], "on"], ["subsystem", "have", "cron"],
                          ["subsystem", "get", "cron"], ["subsystem", "set", "cron", "on"],
                          ["subsystem", "reset", "cron"], ["notifications"], ["notifications", "always", "on"],
                          ["roster"], ["roster", "add", "/a"], ["roster", "remove", "a"],
                          ["roster", "update", "a", "--allowed", "on"], ["managed", "show", "a"],
                          ["managed", "set", "a", payload], ["managed", "remove", "a"], ["managed", "jobs"],
                          ["managed", "jobs", "--submit", payload], ["managed", "jobs", "--remove-label", "a"],
                          ["gc"], ["dump"], ["erase"]]:  # fmt: skip
            with self.subTest(arguments=arguments):
                done = daemon.run("kswctl", *arguments)
                self.assertEqual(done.returncode, 6, (done.stdout, done.stderr))
                self.assertIn("kswctl: no daemon answers", done.stderr)

    def test_wrong_usage_is_told_first(self):
        daemon = LiveDaemon()
        self.addCleanup(daemon.__exit__)
        for arguments in [["roster", "update", "a"], ["roster", "add", "/a", "--type", "agent"], ["managed"],
                          ["managed", "jobs", "--submit", "a", "--remove", "b"], ["dump", "extra"]]:  # fmt: skip
            with self.subTest(arguments=arguments):
                done = daemon.run("kswctl", *arguments)
                self.assertEqual(done.returncode, 2, (done.stdout, done.stderr))
                self.assertIn("Try 'kswctl --help'.", done.stderr)
        done = daemon.run("kswctl", "managed", "set", "a", "/nowhere.plist")
        self.assertEqual(done.returncode, 1, done.stderr)


if __name__ == "__main__":
    unittest.main()
