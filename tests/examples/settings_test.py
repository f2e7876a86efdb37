"""The settings program on a pseudo-terminal: it shows both lists as they are now, and keys decide."""

import os
import pathlib
import pty
import select
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_agent import WithAgent  # noqa: E402
from live_daemon import REQUEST_SECONDS, program  # noqa: E402

CLEAR = b"\x1b[2J\x1b[H"


class ASettingsProgram(WithAgent):
    def setUp(self):
        super().setUp()
        self.record = self.registered("com.example.settings")
        self.terminal, inner = pty.openpty()
        self.addCleanup(os.close, self.terminal)
        self.drawn = b""
        self.process = subprocess.Popen(
            [program("settings")], env=self.daemon.environment(), stdin=inner, stdout=inner, stderr=subprocess.DEVNULL
        )
        os.close(inner)
        self.addCleanup(self.end)

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()

    def press(self, keys):
        os.write(self.terminal, keys.encode())

    def screen_with(self, text, without="\0"):
        """Reads until the last screen drawn has the text, and not the other; gives it."""
        end = time.monotonic() + REQUEST_SECONDS
        while True:
            screen = self.drawn.rpartition(CLEAR)[2].decode().replace("\r\n", "\n")
            if text in screen and without not in screen and screen.endswith("q quit\n"):
                return screen
            ready = select.select([self.terminal], [], [], max(0, end - time.monotonic()))[0]
            self.assertTrue(ready, f"{text!r} did not come: {screen!r}")
            self.drawn += os.read(self.terminal, 65536)

    def disposition(self):
        return self.json("show", self.record["uuid"])["disposition"]

    def test_shows_both_lists_and_allows_and_disallows_by_keys(self):
        name = self.record["name"]
        screen = self.screen_with(f"> {name}  [allowed]")
        self.assertIn("Open at login\n", screen)
        self.press("d")
        self.screen_with(f"> {name}  [not allowed]")
        self.assertEqual(self.disposition() & 2, 0)
        self.press("a")
        self.screen_with(f"> {name}  [allowed]")
        self.assertEqual(self.disposition() & 2, 2)
        self.press("q")
        self.assertEqual(self.process.wait(timeout=REQUEST_SECONDS), 0)

    def test_is_live_and_removes_login_items(self):
        name = self.record["name"]
        self.screen_with(f"> {name}")
        file = self.folder / "Notes.txt"
        file.write_text("x")
        self.kswctl("login-items", "add", file)
        self.screen_with("> Notes.txt")
        self.kswctl("disallow", self.record["uuid"])
        self.screen_with(f"  {name}  [not allowed]")
        self.press("j")
        self.screen_with(f"> {name}")
        self.press("k")
        self.screen_with("> Notes.txt")
        self.press("r")
        self.screen_with(f"> {name}", without="Notes.txt")
        self.assertEqual(self.json("login-items", "list"), [])
        self.kswctl("allow", self.record["uuid"])


class WithoutATerminal(WithAgent):
    def test_it_says_so(self):
        done = self.daemon.run("settings")
        self.assertEqual((done.returncode, done.stderr), (2, "settings: standard input is no terminal\n"))


if __name__ == "__main__":
    unittest.main()
