"""kswctl watch against a real daemon: a line for each change, as long as somebody reads."""

import json
import os
import pathlib
import plistlib
import signal
import sys
import unittest

for folder in ["support", "servers"]:
    sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / folder))
from live_daemon import ITEM_KEYS, Background, LiveDaemon, WithDaemon  # noqa: E402
from wire_stranger_test import register_job  # noqa: E402

LISTED_KEYS = [*ITEM_KEYS, "container"]
STATE = "[enabled, allowed, visible, not notified]"
FORBIDDEN = "[enabled, disallowed, visible, not notified]"


class WithWatch(WithDaemon):
    def setUp(self):
        super().setUp()
        # So that the record of the unknown developer, which contains all others, is there already.
        self.first = self.registered("com.example.first")["uuid"]

    def watch(self, *arguments):
        watch = self.background("kswctl", "watch", *arguments)
        self.assertEqual(watch.line("stderr"), "kswctl: watching")
        return watch

    def lines_until(self, watch, wanted):
        """The lines up to the one that begins so."""
        lines = [watch.line()]
        while not lines[-1].startswith(wanted):
            self.assertNotEqual(lines[-1], "", f"{wanted} did not come: {lines}")
            lines.append(watch.line())
        return lines

    def change_until(self, watch, wanted):
        """The object of the change that `wanted` says yes to."""
        while True:
            line = watch.line()
            self.assertNotEqual(line, "", "the change did not come")
            change = json.loads(line)
            if wanted(change):
                return change


class Watching(WithWatch):
    def test_tells_what_is_added_changed_and_removed(self):
        watch = self.watch()
        uuid = self.registered("com.example.told")["uuid"]
        self.assertEqual(
            self.lines_until(watch, "added  8.")[-1], f"added  8.com.example.told  legacy agent  {STATE}")
        self.json("disallow", uuid)
        self.assertEqual(self.lines_until(watch, "changed  8.")[-1],
                         f"changed  8.com.example.told  legacy agent  {FORBIDDEN}, was {STATE}")  # fmt: skip
        self.json("remove", uuid)
        self.assertEqual(
            self.lines_until(watch, "removed  8.")[-1], f"removed  8.com.example.told  legacy agent  {FORBIDDEN}")

    def test_tells_the_same_in_json_an_object_a_line(self):
        watch = self.watch("--json")
        item = self.registered("com.example.json")

        def of_item(change):
            return change["item"]["uuid"] == item["uuid"]

        added = self.change_until(watch, of_item)
        self.assertEqual((list(added), added["change"]), (["change", "item"], "added"))
        self.assertEqual(list(added["item"]), LISTED_KEYS)
        self.assertEqual(added["item"], item | {"container": "Unknown Developer"})
        self.json("disallow", item["uuid"])
        changed = self.change_until(watch, of_item)
        self.assertEqual((list(changed), changed["change"]), (["change", "item", "before"], "changed"))
        self.assertEqual(changed["before"], added["item"])
        self.assertEqual(changed["item"]["disposition"], 1)
        self.json("remove", item["uuid"])
        removed = self.change_until(watch, of_item)
        self.assertEqual((list(removed), removed["change"]), (["change", "item"], "removed"))
        self.assertEqual(removed["item"], changed["item"])

    def test_tells_of_the_systems_items_too(self):
        watch = self.watch()
        self.registered("com.example.system", "--type", "daemon")
        self.assertIn("16.com.example.system", self.lines_until(watch, "added  16.")[-1])

    def test_tells_of_the_user_asked_for_only(self):
        self.registered("com.example.theirs", "--uid", "4711")
        watch = self.watch("--uid", "4711", "--json")
        self.json("disallow", self.first)
        self.json("disallow", "8.com.example.theirs", "--uid", "4711")
        change = json.loads(watch.line())
        self.assertEqual((change["item"]["identifier"], change["item"]["uid"]), ("8.com.example.theirs", 4711))

    def test_tells_every_change_also_when_many_come_at_once(self):
        watch = self.watch("--json")
        uuids = {self.registered(f"com.example.many.{number}")["uuid"] for number in range(30)}
        for uuid in uuids:
            self.json("disallow", uuid)
        states = {}
        while set(states) != uuids or any(disposition & 2 for disposition in states.values()):
            change = json.loads(watch.line())
            if change["item"]["uuid"] in uuids:
                states[change["item"]["uuid"]] = change["item"]["disposition"]

    def test_escapes_what_a_terminal_would_obey(self):
        watch = self.watch()
        in_json = self.watch("--json")
        register_job(self.daemon, "evil\x1b[2J\n\u202e")
        self.assertIn(r"8.evil\x1b[2J\x0a\u202e", self.lines_until(watch, "added  8.evil")[-1])
        change = self.change_until(in_json, lambda change: "evil" in (change["item"]["identifier"] or ""))
        self.assertEqual(change["item"]["identifier"], "8.evil\x1b[2J\n\u202e")

    def test_refreshes_by_itself_when_the_framework_does_not(self):
        flags = self.daemon.root / "etc/kestrelwood/features/Kestrelwood.plist"
        flags.parent.mkdir(parents=True)
        flags.write_bytes(plistlib.dumps({"AutoRefreshLists": False}))
        self.addCleanup(flags.parent.rmdir)
        self.addCleanup(flags.unlink)
        watch = self.watch()
        self.registered("com.example.stale")
        self.lines_until(watch, "added  8.com.example.stale")


class TheEnd(WithWatch):
    def test_comes_with_a_signal(self):
        for number in [signal.SIGINT, signal.SIGTERM]:
            with self.subTest(signal=number):
                watch = self.watch()
                self.assertEqual(watch.end(number), 0)
                self.assertEqual((watch.line(), watch.line("stderr")), ("", ""))

    def test_comes_quietly_when_nobody_reads_any_more(self):
        watch = self.watch()
        watch.process.stdout.close()
        self.assertEqual(watch.end(), 0)
        self.assertEqual(watch.line("stderr"), "")

    def test_comes_with_a_complaint_when_the_output_is_full(self):
        with open("/dev/full", "wb") as full:
            watch = Background(self.daemon, "kswctl", "watch", stdout=full)
            self.addCleanup(watch.close)
            self.assertEqual(watch.line("stderr"), "kswctl: watching")
            self.json("disallow", self.first)
            self.assertEqual(watch.end(), 1)
            self.assertEqual(watch.line("stderr"), "kswctl: standard output: No space left on device")


class TheDaemon(WithWatch):
    def test_that_starts_anew_is_waited_for(self):
        watch = self.watch()
        self.assertEqual(self.daemon.stop(), 0)
        self.daemon.start()
        self.registered("com.example.after")
        self.assertIn("8.com.example.after", self.lines_until(watch, "added  8.com.example.after")[-1])
        self.assertEqual(watch.end(signal.SIGINT), 0)

    def test_that_is_not_there_at_the_start_is_not_waited_for(self):
        nobody = LiveDaemon()
        self.addCleanup(nobody.__exit__)
        done = nobody.run("kswctl", "watch")
        self.assertEqual((done.returncode, done.stdout), (6, ""))
        self.assertIn("kswctl: no daemon answers", done.stderr)

    def test_of_another_user_may_not_be_watched(self):
        if os.getuid() != 0:
            return
        done = self.run_as_nobody("watch", "--uid", "0")
        self.assertEqual((done.returncode, done.stdout), (5, ""))
        self.assertIn("kswctl: permission denied\n", done.stderr)


if __name__ == "__main__":
    unittest.main()
