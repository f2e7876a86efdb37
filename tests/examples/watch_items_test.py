"""The program that holds a list: it is told of each change."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import LiveDaemon, WithDaemon  # noqa: E402


class AProgramThatHoldsAList(WithDaemon):
    def setUp(self):
        super().setUp()
        self.uuid = self.registered("com.example.held")["uuid"]

    def line_of(self, watch, counts):
        """Reads until the line with these counts; others may come before, when two changes are told as one."""
        line = watch.line()
        while not line.startswith(counts):
            self.assertNotEqual(line, "", f"{counts} did not come")
            line = watch.line()

    def test_is_told_when_an_item_may_no_longer_launch(self):
        watch = self.background("watch_items")
        before = watch.line()
        launchable = int(before.split()[0])
        self.assertRegex(before, r"^\d+ of \d+ items are enabled and allowed$")
        self.kswctl("disallow", self.uuid)
        self.line_of(watch, f"{launchable - 1} of ")
        self.kswctl("allow", self.uuid)
        self.line_of(watch, f"{launchable} of ")
        watch.process.stdin.close()
        self.assertEqual(watch.end(), 0)

    def test_ends_with_no_answer_without_a_daemon(self):
        nobody = LiveDaemon()
        self.addCleanup(nobody.__exit__)
        done = nobody.run("watch_items")
        self.assertEqual((done.returncode, done.stdout), (6, ""))
        self.assertIn("watch_items: no answer\n", done.stderr)


if __name__ == "__main__":
    unittest.main()
