"""kswctl against a real daemon: what each verb prints and which status it ends with."""

import json
import os
import pathlib
import plistlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import EVERY_USER, ITEM_KEYS, SOURCE_DIR, LiveDaemon, WithDaemon, WithFolder  # noqa: E402

JOBS = SOURCE_DIR / "examples" / "jobs"
VERDICT_KEYS = ["identifier", "launchable", "disposition", "dispositionText", "haveLWCR"]
JOB_VERBS = ["register", "unregister", "may-load"]
CHANGES = ["enable", "disable", "allow", "disallow", "hide", "unhide"]
ITEM_VERBS = ["show", "remove", *CHANGES]
VERBS = ["facts", "identify", "bookmark", "users", *JOB_VERBS, "status", "list", "add", *ITEM_VERBS, "watch", "apps", "doctor"]


class Registering(WithDaemon):
    def test_prints_code_message_and_every_key_of_the_item(self):
        job = self.job("com.example.keys", ProgramArguments=["/usr/bin/true", "-x"])
        answer = self.json("register", job)
        self.assertEqual(list(answer), ["code", "message", "item"])
        self.assertEqual((answer["code"], answer["message"]), (0, "no error"))
        item = answer["item"]
        self.assertEqual(list(item), ITEM_KEYS)
        self.assertEqual(item["identifier"], "8.com.example.keys")
        self.assertEqual((item["type"], item["typeText"]), (0x10008, "legacy agent"))
        self.assertEqual((item["flags"], item["flagsText"]), (1, "[ legacy ]"))
        self.assertEqual(item["disposition"], 3)
        self.assertEqual(item["dispositionText"], "[enabled, allowed, visible, not notified]")
        self.assertEqual(item["url"], job.as_uri())
        self.assertEqual(item["executablePath"], "/usr/bin/true")
        self.assertEqual(item["programArguments"], ["/usr/bin/true", "-x"])
        self.assertEqual(item["uid"], os.getuid())
        self.assertRegex(item["uuid"], r"^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}$")
        self.assertIsInstance(item["generation"], int)

    def test_of_a_job_that_is_registered_already_succeeds_with_its_own_code(self):
        job = self.job("com.example.twice", Program="/usr/bin/true")
        first = self.json("register", job)["item"]
        again = self.json("register", job)
        self.assertIn(again["code"], (-96, -93))
        self.assertEqual(again["item"]["uuid"], first["uuid"])

    def test_reads_a_binary_job_file(self):
        job = self.job("com.example.binary", plistlib.FMT_BINARY, Program="/usr/bin/false")
        item = self.json("register", job)["item"]
        self.assertEqual((item["identifier"], item["executablePath"]), ("8.com.example.binary", "/usr/bin/false"))

    def test_takes_the_program_before_the_first_argument(self):
        job = self.job("com.example.program", Program="/usr/bin/true", ProgramArguments=["other", "-v"])
        item = self.json("register", job)["item"]
        self.assertEqual(item["executablePath"], "/usr/bin/true")
        self.assertEqual(item["programArguments"], ["other", "-v"])

    def test_of_a_daemon_stores_it_for_every_user(self):
        item = self.json("register", self.job("com.example.system", Program="/bin/true"), "--type", "daemon")["item"]
        self.assertEqual((item["identifier"], item["uid"]), ("16.com.example.system", EVERY_USER))
        self.assertEqual(item["disposition"], 1)

    def test_with_an_application_names_the_place_inside_it(self):
        job = self.job("com.example.inside", place="Tool.app/Contents/Library", BundleProgram="Contents/Linux/tool")
        item = self.json("register", job, "--app", self.folder / "Tool.app")["item"]
        self.assertEqual((item["type"], item["typeText"]), (8, "agent"))
        self.assertEqual(item["executablePath"], "Contents/Linux/tool")
        self.assertTrue(item["url"].endswith("Contents/Library/com.example.inside.plist"), item["url"])

    def test_takes_system_as_the_uid_of_every_user(self):
        job = self.job("com.example.everyone", Program="/bin/true")
        self.assertEqual(self.json("register", job, "--uid", "system")["item"]["uid"], EVERY_USER)
        self.assertEqual(self.json("may-load", job, "--uid", EVERY_USER)["launchable"], True)

    def test_over_the_registrar_gives_the_same_item(self):
        job = self.job("com.example.registrar", Program="/bin/true")
        first = self.json("register", job, "--registrar")["item"]
        again = self.json("register", job)["item"]
        self.assertEqual(again["uuid"], first["uuid"])

    def test_prints_a_table_for_people(self):
        done = self.kswctl("register", self.job("com.example.table", Program="/bin/true"))
        fields = dict(line.split(None, 1) for line in done.stdout.splitlines())
        self.assertEqual(list(fields), ["code", "message", *ITEM_KEYS])
        self.assertEqual(fields["identifier"], "8.com.example.table")

    def test_escapes_what_a_terminal_would_obey(self):
        bell = self.job("com.example.bell", plistlib.FMT_BINARY, ProgramArguments=["/bin/\x1b]0;x\x07\u009b\u202e\\"])
        table = self.kswctl("register", bell).stdout
        self.assertIn(r"/bin/\x1b]0;x\x07\u009b\u202e\\", table)
        text = self.kswctl("register", bell, "--json").stdout
        self.assertTrue(text.isascii())
        self.assertNotIn("\x1b", text)
        self.assertEqual(json.loads(text)["item"]["programArguments"], ["/bin/\x1b]0;x\x07\u009b\u202e\\"])


class Unregistering(WithDaemon):
    def test_withdraws_the_job(self):
        job = self.job("com.example.gone", Program="/bin/true")
        self.json("register", job)
        self.assertEqual(self.json("unregister", job), {"code": 0, "message": "no error"})
        self.json("unregister", job, status=4)

    def test_of_an_unknown_job_ends_with_no_such_item(self):
        job = self.job("com.example.never", Program="/bin/true")
        self.assertEqual(self.json("unregister", job, status=4), {"code": -95, "message": "record not found"})

    def test_works_when_the_job_file_is_gone(self):
        job = self.job("com.example.deleted", Program="/bin/true")
        self.json("register", job)
        job.unlink()
        self.assertEqual(self.json("unregister", job)["code"], 0)


class AskingWhetherAJobMayLoad(WithDaemon):
    def test_says_yes_for_an_agent(self):
        job = self.job("com.example.agent", Program="/bin/true")
        self.json("register", job)
        verdict = self.json("may-load", job)
        self.assertEqual(list(verdict), VERDICT_KEYS)
        self.assertEqual(verdict, {
            "identifier": "8.com.example.agent",
            "launchable": True,
            "disposition": 3,
            "dispositionText": "[enabled, allowed, visible, not notified]",
            "haveLWCR": False,
        })  # fmt: skip

    def test_says_not_yet_for_a_daemon(self):
        job = self.job("com.example.daemon", Program="/bin/true")
        self.json("register", job, "--type", "daemon")
        verdict = self.json("may-load", job, "--type", "daemon", status=5)
        self.assertEqual((verdict["launchable"], verdict["identifier"]), (False, "16.com.example.daemon"))
        self.assertEqual(verdict["dispositionText"], "[enabled, disallowed, visible, not notified]")

    def test_gives_the_same_verdict_over_the_registrar(self):
        job = self.job("com.example.roads", Program="/bin/true")
        self.json("register", job)
        self.assertEqual(self.json("may-load", job, "--registrar"), self.json("may-load", job))

    def test_of_a_job_that_nobody_registered_says_what_would_hold_for_it(self):
        job = self.job("com.example.unknown", Program="/bin/true")
        self.assertTrue(self.json("may-load", job)["launchable"])
        self.assertFalse(self.json("may-load", job, "--type", "daemon", status=5)["launchable"])
        self.assertEqual(self.json("unregister", job, status=4)["code"], -95)

    def test_fails_when_the_daemon_cannot_tell_which_item_is_meant(self):
        done = self.kswctl("may-load", self.job("", Program="/bin/true"), status=1)
        self.assertIn("kswctl: the daemon gave no verdict", done.stderr)
        self.assertEqual(done.stdout, "")

    def test_prints_a_table_for_people(self):
        job = self.job("com.example.verdict", Program="/bin/true")
        self.json("register", job)
        fields = dict(line.split(None, 1) for line in self.kswctl("may-load", job).stdout.splitlines())
        self.assertEqual(list(fields), VERDICT_KEYS)
        self.assertEqual(fields["launchable"], "yes")

    def test_takes_every_example_job(self):
        for job in sorted(JOBS.glob("*.plist")):
            with self.subTest(job=job.name):
                self.json("register", job)
                self.assertTrue(self.json("may-load", job)["launchable"])
        inside = JOBS / "Ledger.app/Contents/Library/Agents/com.example.ledger.reminder.plist"
        self.json("register", inside, "--app", JOBS / "Ledger.app")
        self.assertTrue(self.json("may-load", inside, "--app", JOBS / "Ledger.app")["launchable"])


class ListingUsersAndStatus(WithDaemon):
    def test_names_the_user_that_registered_a_job(self):
        self.json("register", self.job("com.example.user", Program="/bin/true"))
        users = self.json("users")["users"]
        self.assertIn(os.getuid(), [user["uid"] for user in users])
        self.assertTrue(all(list(user) == ["uid", "identifier"] for user in users))
        self.assertEqual(self.kswctl("users").stdout.splitlines()[0].split(), ["uid", "identifier"])

    def test_shows_counters_that_count(self):
        before = self.json("status")
        self.assertEqual(list(before), ["reachable", "service", "counters"])
        self.assertEqual((before["reachable"], before["service"]), (True, "com.velmont.kestrelwood"))
        self.json("users")
        self.assertNotEqual(self.json("status")["counters"], before["counters"])
        self.assertIn("reachable", self.kswctl("status").stdout)


class AWrongCommandLine(WithDaemon):
    def assert_usage(self, *arguments, says=""):
        done = self.kswctl(*arguments, status=2)
        self.assertEqual(done.stdout, "")
        self.assertTrue(done.stderr.startswith("kswctl: "), done.stderr)
        self.assertIn(says, done.stderr)

    def test_ends_with_wrong_usage(self):
        job = self.job("com.example.usage", Program="/bin/true")
        self.assert_usage()
        self.assert_usage("frobnicate", says="'frobnicate' is not known here")
        self.assert_usage("users", "extra")
        self.assert_usage("unregister", job, "--registrar")
        self.assert_usage("list", "extra")
        self.assert_usage("watch", "extra")
        for verb in ["add", *ITEM_VERBS]:
            self.assert_usage(verb)
            self.assert_usage(verb, "")
            self.assert_usage(verb, "one", "two")
        for verb in JOB_VERBS:
            self.assert_usage(verb)
            self.assert_usage(verb, job, "--type", "app")
            self.assert_usage(verb, job, "--frobnicate")

    def test_refuses_what_is_no_uid(self):
        job = self.job("com.example.uid", Program="/bin/true")
        for uid in ["-1", "4294967295", "4294967296", "root", "1x", "0x1", " 1"]:
            with self.subTest(uid=uid):
                self.assert_usage("may-load", job, f"--uid={uid}", says="--uid")
                self.assert_usage("list", f"--uid={uid}", says="--uid")

    def test_refuses_what_is_no_kind(self):
        for kinds in ["", "bird", "agent,", ",agent", "agent,,daemon", "agent daemon", "Agent", "8"]:
            with self.subTest(kinds=kinds):
                self.assert_usage("list", f"--type={kinds}", says="--type")

    def test_refuses_what_is_no_url(self):
        self.assert_usage("add", "https://example.com/a b", says="is not a URL")

    def test_refuses_a_job_outside_its_application(self):
        job = self.job("com.example.outside", Program="/bin/true")
        app = self.folder / "Other.app"
        app.mkdir()
        self.assert_usage("register", job, "--app", app, says="is not inside the application")
        self.assert_usage("register", app / ".." / job.name, "--app", app, says="is not inside the application")
        self.assert_usage("register", job, "--app", self.folder / "Missing.app", says="Missing.app")

    def test_refuses_a_login_item_without_its_application(self):
        job = self.job("com.example.login", Program="/bin/true")
        self.assert_usage("register", job, "--type", "login-item", says="--app")


class AJobFileThatIsNone(WithDaemon):
    def assert_fails(self, job, says):
        done = self.kswctl("may-load", job, status=1)
        self.assertTrue(done.stderr.startswith("kswctl: "), done.stderr)
        self.assertIn(says, done.stderr)

    def test_fails_with_its_reason(self):
        broken = self.folder / "broken.plist"
        broken.write_text("<plist><dict><key>Label</key>")
        self.assert_fails(broken, "broken.plist")
        self.assert_fails(self.folder / "absent.plist", "absent.plist")
        self.assert_fails(self.folder, str(self.folder))
        listed = self.folder / "array.plist"
        listed.write_bytes(plistlib.dumps(["Label"]))
        self.assert_fails(listed, "array.plist")

    def test_names_the_key_that_is_wrong(self):
        self.assert_fails(self.job("a", Label=7), "'Label' is not a string")
        self.assert_fails(self.job("b", Program=["/bin/true"]), "'Program' is not a string")
        self.assert_fails(self.job("c", ProgramArguments="x"), "'ProgramArguments' is not an array of strings")
        self.assert_fails(self.job("d", ProgramArguments=["x", 1]), "'ProgramArguments' is not an array of strings")
        unlabelled = self.folder / "unlabelled.plist"
        unlabelled.write_bytes(plistlib.dumps({"Program": "/bin/true"}))
        self.assert_fails(unlabelled, "'Label' is missing")

    def test_does_not_wait_for_a_pipe(self):
        pipe = self.folder / "pipe.plist"
        os.mkfifo(pipe)
        self.assert_fails(pipe, "pipe.plist")


class HelpAndVersion(WithFolder):
    def test_are_there_for_every_verb_and_need_no_daemon(self):
        daemon = LiveDaemon()
        self.addCleanup(daemon.__exit__)
        for verb in [[], *([verb] for verb in VERBS)]:
            with self.subTest(verb=verb):
                shown = daemon.run("kswctl", *verb, "--help")
                self.assertEqual((shown.returncode, shown.stderr), (0, ""))
                self.assertIn("Exit status", shown.stdout)
                version = daemon.run("kswctl", *verb, "--version")
                self.assertEqual((version.returncode, version.stderr), (0, ""))
                self.assertRegex(version.stdout, r"^kswctl \d+\.\d+\.\d+\n$")


class WithoutADaemon(WithFolder):
    def test_every_verb_ends_with_unreachable(self):
        daemon = LiveDaemon()
        self.addCleanup(daemon.__exit__)
        job = self.job("com.example.alone", Program="/bin/true")
        for arguments in [["users"], ["status"], *([verb, job] for verb in JOB_VERBS),
                          ["may-load", job, "--registrar"], ["register", job, "--registrar"], ["list"], ["watch"],
                          ["add", job], *([verb, "8.com.example.alone"] for verb in ITEM_VERBS)]:  # fmt: skip
            with self.subTest(arguments=arguments):
                done = daemon.run("kswctl", *arguments)
                self.assertEqual(done.returncode, 6, done.stderr)
                self.assertIn("kswctl: no daemon answers", done.stderr)

    def test_status_says_so_in_json(self):
        daemon = LiveDaemon()
        self.addCleanup(daemon.__exit__)
        self.assertEqual(json.loads(daemon.run("kswctl", "status", "--json").stdout), {"reachable": False})


class WithTheFeatureOff(WithDaemon):
    def test_the_manager_is_not_asked_but_the_registrar_is(self):
        flags = self.daemon.root / "etc/kestrelwood/features/Kestrelwood.plist"
        flags.parent.mkdir(parents=True, exist_ok=True)
        job = self.job("com.example.feature", Program="/bin/true")
        self.json("register", job)
        flags.write_bytes(plistlib.dumps({"ControlAutomaticAppLaunch": False}))
        done = self.kswctl("may-load", job, status=1)
        self.assertIn("ControlAutomaticAppLaunch is off", done.stderr)
        self.assertTrue(self.json("may-load", job, "--registrar")["launchable"])


class AnotherUser(WithDaemon):
    """Only uid 0 can act as another user; as an ordinary user there is nobody else to be."""

    def test_may_not_register_for_others_nor_for_the_system(self):
        if os.getuid() != 0:
            return
        job = self.job("com.example.nobody", Program="/bin/true")
        for arguments in [["--uid", "0"], ["--uid", "system"], ["--type", "daemon"]]:
            with self.subTest(arguments=arguments):
                done = self.run_as_nobody("register", job, *arguments, "--json")
                self.assertEqual(done.returncode, 5, done.stderr)
                self.assertEqual(json.loads(done.stdout), {"code": -97, "message": "permission denied", "item": None})
        self.assertEqual(self.run_as_nobody("may-load", job, "--uid", "0").returncode, 5)
        self.assertEqual(self.run_as_nobody("register", job).returncode, 0)
        self.assertEqual(self.run_as_nobody("may-load", job).returncode, 0)
        self.assertEqual(self.run_as_nobody("unregister", job).returncode, 0)
        self.assertEqual(self.run_as_nobody("unregister", job).returncode, 4)


if __name__ == "__main__":
    unittest.main()
