"""`kswctl doctor` on hosts that are as they should be and on hosts that are not, and tables on terminals."""

import fcntl
import json
import os
import pathlib
import pty
import shutil
import struct
import sys
import termios
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from installed_tree import SOURCE_DIR, run  # noqa: E402
from live_daemon import LiveDaemon, program  # noqa: E402

WIDTH = 40
NO_SESSION = {"XDG_RUNTIME_DIR": ""}
STYLED = {"TERM": "xterm", "NO_COLOR": ""}


def install_below(root):
    """What a host has once the packages are there, as far as the doctor looks."""
    share = root / "usr" / "share" / "kestrelwood"
    for name in ["features", "Resources"]:
        shutil.copytree(SOURCE_DIR / "share" / name, share / name)
    for folder in [share / "trust", root / "etc" / "kestrelwood" / "trust", root / "usr" / "sbin"]:
        folder.mkdir(parents=True)
        folder.chmod(0o755)
    shutil.copy(program("kestrelwoodd"), root / "usr" / "sbin")


class ADoctor(unittest.TestCase):
    def setUp(self):
        self.daemon = LiveDaemon()
        self.addCleanup(self.daemon.__exit__)
        install_below(self.daemon.root)
        self.etc = self.daemon.root / "etc" / "kestrelwood"

    def findings(self, status):
        done = self.daemon.run("kswctl", "doctor", "--json", extra_environment=NO_SESSION)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        said = json.loads(done.stdout)
        self.assertEqual(said["well"], status == 0)
        return {check["about"]: check for check in said["checks"] if check["finding"] != "well"}

    def test_is_content_with_a_host_that_is_installed_and_whose_daemon_runs(self):
        self.daemon.start()
        self.assertEqual(self.findings(0), {})

    def test_names_the_command_that_starts_the_daemon(self):
        found = self.findings(1)
        self.assertEqual(found["manager"]["mend"], "kestrelwoodd &")
        (self.daemon.root / "run" / "systemd" / "system").mkdir(parents=True)
        self.assertEqual(self.findings(1)["registrar"]["mend"], "systemctl enable --now kestrelwoodd.service")

    def test_names_the_command_that_mends_what_is_missing_or_open_to_others(self):
        self.daemon.start()
        (self.daemon.root / "usr/share/kestrelwood/Resources/attributions.plist").unlink()
        (self.etc / "trust").chmod(0o777)
        found = self.findings(1)
        self.assertEqual(sorted(found), ["attributions", "trust"])
        self.assertEqual(found["attributions"]["mend"], "apt-get install --reinstall kestrelwood")
        self.assertEqual(found["trust"]["mend"], f"chmod go-w {self.etc}/trust")

    def test_says_that_the_feature_is_off(self):
        self.daemon.start()
        (self.etc / "features").mkdir()
        off = '<plist version="1.0"><dict><key>ControlAutomaticAppLaunch</key><false/></dict></plist>'
        (self.etc / "features" / "Kestrelwood.plist").write_text(off, encoding="utf-8")
        self.assertEqual(self.findings(1)["manager"]["mend"], f"rm {self.etc}/features/Kestrelwood.plist")

    def test_prints_one_line_with_the_command_below_what_is_wrong(self):
        done = self.daemon.run("kswctl", "doctor", extra_environment=NO_SESSION)
        lines = done.stdout.splitlines()
        place = next(number for number, line in enumerate(lines) if line.split()[:2] == ["wrong", "manager"])
        self.assertEqual(lines[place + 1].strip(), "mend it: kestrelwoodd &")


class OnATerminal(unittest.TestCase):
    def said(self, *arguments, **variables):
        """What kswctl writes to a terminal of WIDTH columns."""
        environment = self.daemon.environment() | NO_SESSION | STYLED | variables
        mine, its = pty.openpty()
        fcntl.ioctl(its, termios.TIOCSWINSZ, struct.pack("HHHH", 24, WIDTH, 0, 0))
        pid = os.posix_spawn(program("kswctl"), ["kswctl", *arguments], environment,
                             file_actions=[(os.POSIX_SPAWN_DUP2, its, 1)])  # fmt: skip
        os.close(its)
        said = b""
        try:
            while piece := os.read(mine, 65536):
                said += piece
        except OSError:  # its other end is closed
            pass
        os.close(mine)
        os.waitpid(pid, 0)
        return said.decode().replace("\r\n", "\n")

    def setUp(self):
        self.daemon = LiveDaemon()
        self.addCleanup(self.daemon.__exit__)

    def test_colours_are_used_unless_they_are_not_wanted(self):
        self.assertIn("\x1b[31mwrong\x1b[0m", self.said("doctor"))
        for unwanted in [{"NO_COLOR": "1"}, {"TERM": "dumb"}]:
            self.assertNotIn("\x1b", self.said("doctor", **unwanted))

    def test_a_table_fits(self):
        self.daemon.start()
        job = SOURCE_DIR / "examples" / "jobs" / "com.example.nightly-backup.plist"
        run(program("kswctl"), "register", job, env=self.daemon.environment())
        lines = self.said("list").splitlines()
        self.assertEqual(max(len(line) for line in lines), WIDTH)
        self.assertTrue(lines[-1].endswith("..."), lines)
        self.assertIn("visible, not notified]", self.daemon.run("kswctl", "list").stdout)


if __name__ == "__main__":
    unittest.main()
