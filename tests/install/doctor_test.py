"""`kswctl doctor` on hosts that are as they should be and on hosts that are not, and tables on terminals."""

import fcntl
import json
import os
import pathlib
import pty
import shutil
import socket
import struct
import sys
import tempfile
import termios
import threading
import unicodedata
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from installed_tree import SOURCE_DIR, run  # noqa: E402
from live_daemon import NOBODY, LiveDaemon, cached, program  # noqa: E402

WIDTH = 40
REINSTALL = "apt-get install --reinstall kestrelwood"
NO_SESSION = {"XDG_RUNTIME_DIR": ""}
STYLED = {"TERM": "xterm", "NO_COLOR": ""}

JOB = """<plist version="1.0"><dict><key>Label</key><string>{}</string>
<key>ProgramArguments</key><array><string>/bin/true</string></array></dict></plist>"""


def columns(text):
    """How much room a text takes on a terminal."""
    return sum((unicodedata.east_asian_width(c) in "WF") + (not unicodedata.combining(c)) for c in text)


def answer_in_version_two(listener):
    connection, _ = listener.accept()
    with connection:
        connection.recv(4096)
        connection.send(b"KSWF\x02\x02\0\0\0\0\0\0\0\0\0\0")


def install_below(root):
    """What a host has once the packages are there, as far as the doctor looks."""
    share = root / "usr" / "share" / "kestrelwood"
    for name in ["features", "Resources"]:
        shutil.copytree(SOURCE_DIR / "share" / name, share / name)
    for folder in [share / "trust", root / "etc" / "kestrelwood" / "trust", root / "usr" / "sbin"]:
        folder.mkdir(parents=True)
        for public in [folder, folder.parent]:
            public.chmod(0o755)
    shutil.copy(program("kestrelwoodd"), root / "usr" / "sbin")


class ADoctor(unittest.TestCase):
    def setUp(self):
        self.daemon = LiveDaemon()
        self.addCleanup(self.daemon.__exit__)
        install_below(self.daemon.root)
        self.etc = self.daemon.root / "etc" / "kestrelwood"
        self.share = self.daemon.root / "usr" / "share" / "kestrelwood"

    def findings(self, status, environment=NO_SESSION):
        done = self.daemon.run("kswctl", "doctor", "--json", extra_environment=environment)
        self.assertEqual(done.returncode, status, done.stdout + done.stderr)
        said = json.loads(done.stdout)
        self.assertEqual(said["well"], status == 0)
        return {check["about"]: check for check in said["checks"] if check["finding"] != "well"}

    def mended(self, found, about):
        """Does what is said to mend the only thing that is wrong with it; the command."""
        run("sh", "-c", found[about]["mend"])
        return found[about]["mend"]

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
        self.assertEqual(found["attributions"]["mend"], REINSTALL)
        self.assertEqual(found["trust"]["mend"], f"chmod go-w {self.etc}/trust")

    def test_says_that_the_feature_is_off_and_where(self):
        self.daemon.start()
        (self.etc / "features").mkdir()
        off = '<plist version="1.0"><dict><key>ControlAutomaticAppLaunch</key><false/></dict></plist>'
        own = self.etc / "features" / "Kestrelwood.plist"
        own.write_text(off, encoding="utf-8")
        self.assertEqual(self.mended(self.findings(1), "manager"), f"rm {own}")
        self.assertEqual(self.findings(0), {})
        (self.share / "features" / "Kestrelwood.plist").write_text(off, encoding="utf-8")
        self.assertEqual(self.findings(1)["manager"]["mend"], REINSTALL)

    def test_is_not_content_with_files_that_are_damaged(self):
        self.daemon.start()
        for about, name in [("features", "features/Kestrelwood.plist"), ("texts", "Resources/en/Localizable.plist"),
                            ("attributions", "Resources/attributions.plist")]:  # fmt: skip
            former = (self.share / name).read_bytes()
            (self.share / name).write_text("damaged", encoding="utf-8")
            found = self.findings(1)
            self.assertEqual((list(found), found[about]["mend"]), ([about], REINSTALL))
            (self.share / name).write_bytes(former)
        (self.etc / "features").mkdir()
        (self.etc / "features" / "Kestrelwood.plist").write_text("damaged", encoding="utf-8")
        self.mended(self.findings(1), "features of this host")
        (self.etc / "trust" / "not one.pem").write_text("damaged", encoding="utf-8")
        self.mended(self.findings(1), "trust")
        self.assertEqual(self.findings(0), {})

    def test_finds_certificates_that_others_may_replace(self):
        self.daemon.start()
        certificate = self.etc / "trust" / "maker" / "root.pem"
        certificate.parent.mkdir()
        certificate.parent.chmod(0o755)
        certificate.write_text("-----BEGIN CERTIFICATE-----\n", encoding="utf-8")
        certificate.chmod(0o666)
        self.assertEqual(self.mended(self.findings(1), "trust"), f"chmod go-w {certificate}")
        self.assertEqual(self.findings(0), {})

    def test_finds_what_not_everybody_may_read(self):
        self.daemon.start()
        for about, folder in [("run folder", self.daemon.root / "run" / "kestrelwood"), ("shared files", self.share),
                              ("configuration", self.etc), ("trust", self.etc / "trust")]:  # fmt: skip
            folder.chmod(0o700)
            self.assertEqual(self.mended(self.findings(1), about), f"chmod a+rX {folder}")
            self.assertEqual(self.findings(0), {})

    def test_says_that_records_were_lost(self):
        state = self.daemon.root / "var" / "lib" / "kestrelwood"
        state.mkdir(parents=True)
        state.chmod(0o755)
        (state / "kestrelwood.db").write_text("damaged" * 1000, encoding="utf-8")
        self.daemon.start()
        self.assertRegex(self.findings(1)["state"]["mend"], f"^rm -r {state}/set-aside-[0-9-]* && ")

    def test_finds_a_folder_in_the_place_of_the_records(self):
        records = self.daemon.root / "var" / "lib" / "kestrelwood" / "kestrelwood.db"
        records.mkdir(parents=True)
        records.parent.chmod(0o755)
        self.mended(self.findings(1), "state")
        self.assertFalse(records.exists())

    def test_names_the_versions_of_a_daemon_that_speaks_another_one(self):
        place = pathlib.Path(self.daemon.socket_path("com.velmont.kestrelwood"))
        place.parent.mkdir(parents=True)
        place.parent.chmod(0o755)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(str(place))
            listener.listen()
            answering = threading.Thread(target=answer_in_version_two, args=[listener])
            answering.start()
            found = self.findings(1)["manager"]
            answering.join()
        self.assertIn("version 2", found["detail"])
        self.assertIn("version 1", found["detail"])
        self.assertEqual(found["mend"], "pkill -x kestrelwoodd; pidwait -x kestrelwoodd; kestrelwoodd &")

    def test_finds_what_belongs_to_somebody_else(self):
        if os.geteuid() != 0:
            return  # only root can give something away
        self.daemon.start()
        os.chown(self.etc / "trust", NOBODY, NOBODY)
        self.mended(self.findings(1), "trust")
        self.assertEqual(self.findings(0), {})
        place = pathlib.Path(self.daemon.socket_path("com.velmont.kestrelwood"))
        place.unlink()
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(str(place))
            # The kernel names who made it a listener.
            os.seteuid(NOBODY)
            try:
                listener.listen()
            finally:
                os.seteuid(0)
            found = self.findings(1)["manager"]
        self.assertIn(f"user {NOBODY}", found["detail"])
        self.assertEqual(found["mend"], f"rm -f {place}; kestrelwoodd &")

    def test_names_the_commands_for_a_session(self):
        self.daemon.start()
        session = {"XDG_RUNTIME_DIR": "/session"}
        (self.daemon.root / "session").mkdir()
        for commands in [["kestrelwoodagent &", "kestrelwoodd --notifications &"],
                         ["systemctl --user enable --now kestrelwoodagent.socket kestrelwoodagent-notify.socket",
                          "systemctl --user enable --now kestrelwoodd-notifications.socket"]]:  # fmt: skip
            found = self.findings(0, session)
            self.assertEqual([found[about]["mend"] for about in ["agent", "notifications"]], commands)
            (self.daemon.root / "run" / "systemd" / "system").mkdir(parents=True, exist_ok=True)

    def test_notices_a_library_of_another_version(self):
        self.daemon.start()
        other = self.daemon.root / "other.so"
        text = 'const char* ksw_version(void) { return "77.0.1"; }'
        run(cached("CMAKE_C_COMPILER"), "-shared", "-fPIC", "-x", "c", "-", "-o", other, input=text)
        loaded = NO_SESSION | {"LD_PRELOAD": str(other)}
        self.assertEqual(self.daemon.run("kswctl", "--version", extra_environment=loaded).stdout, "kswctl 77.0.1\n")
        self.assertEqual(self.findings(1, loaded)["library"]["detail"],
                         f"is 77.0.1, and this tool of {cached('CMAKE_PROJECT_VERSION')}")  # fmt: skip

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
        shown = self.said("show", "8.com.example.nightly-backup").splitlines()
        self.assertLessEqual(max(len(line) for line in shown), WIDTH)
        self.assertIn(job.as_uri(), "".join(line.strip() for line in shown))

    def test_columns_stand_one_below_the_other_whatever_is_written_in_them(self):
        self.daemon.start()
        with tempfile.TemporaryDirectory(prefix="ksw-jobs-") as folder:
            for label in ["plain", "\u65e5\u672c\u8a9e", "e\u0301t\u00e9"]:
                job = pathlib.Path(folder) / f"{label}.plist"
                job.write_text(JOB.format(label), encoding="utf-8")
                run(program("kswctl"), "register", job, env=self.daemon.environment())
            lines = self.daemon.run("kswctl", "list").stdout.splitlines()
        self.assertEqual(len({columns(line.partition("legacy agent")[0]) for line in lines[2:]}), 1, lines)


if __name__ == "__main__":
    unittest.main()
