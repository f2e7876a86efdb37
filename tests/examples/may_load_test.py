"""The smallest program that asks the question: it runs, and the README shows it letter for letter."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import SOURCE_DIR, LiveDaemon  # noqa: E402

JOB = SOURCE_DIR / "examples" / "jobs" / "com.example.nightly-backup.plist"


class TheSmallestProgram(unittest.TestCase):
    def setUp(self):
        self.daemon = LiveDaemon()
        self.addCleanup(self.daemon.__exit__)

    def test_says_that_a_registered_agent_may_load(self):
        self.daemon.start()
        self.assertEqual(self.daemon.run("kswctl", "register", JOB).returncode, 0)
        done = self.daemon.run("may_load", JOB)
        self.assertEqual((done.returncode, done.stdout), (0, "[enabled, allowed, visible, not notified]\n"))

    def test_ends_with_no_answer_when_the_file_is_no_job(self):
        self.daemon.start()
        self.assertEqual(self.daemon.run("may_load", SOURCE_DIR / "README.md").returncode, 6)

    def test_ends_with_no_answer_without_a_daemon(self):
        self.assertEqual(self.daemon.run("may_load", JOB).returncode, 6)

    def test_explains_its_use(self):
        done = self.daemon.run("may_load")
        self.assertEqual((done.returncode, done.stderr), (2, "usage: may_load JOB.plist\n"))

    def test_stands_in_the_readme_as_it_is(self):
        source = (SOURCE_DIR / "examples" / "may_load.cpp").read_text()
        self.assertIn(f"```cpp\n{source}```\n", (SOURCE_DIR / "README.md").read_text())


if __name__ == "__main__":
    unittest.main()
