"""The service manager's units: it takes them without a word, they leave little to be exposed, and the servers find their
sockets by them and live with their rules."""

import fcntl
import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest

import cbor2

sys.path.insert(0, str(pathlib.Path(__file__).parent))
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from installed_tree import BINARY_DIR, SOURCE_DIR  # noqa: E402
from live_daemon import READY_SECONDS, REQUEST_SECONDS, cached, program, server_command  # noqa: E402

SHARE = SOURCE_DIR / "share"
RULES = SOURCE_DIR / "tests" / "support" / "with_unit_rules.py"
EXPOSURE_MAX = 2.0
FIRST_HANDED_OVER = 3
OUT_OF_THE_WAY = 100
WITHOUT_NAMESPACES = SHARE / "examples" / "without-user-namespaces.conf"
# What only a user namespace lets a user's manager do.
OF_A_NAMESPACE = [
    "PrivateDevices", "PrivateMounts", "PrivateNetwork", "PrivateUsers", "ProtectClock", "ProtectControlGroups",
    "ProtectHostname", "ProtectKernelLogs", "ProtectKernelModules", "ProtectKernelTunables", "ProtectSystem",
]  # fmt: skip


def units(domain, pattern):
    made = BINARY_DIR / "share" / "systemd" / domain
    return sorted([*made.glob(pattern), *(SHARE / "systemd" / domain).glob(pattern)])


def settings(path):
    return dict(line.split("=", 1) for line in path.read_text(encoding="utf-8").splitlines() if "=" in line)


def is_built(path):
    """A program that this tree does not build has no unit to be tried."""
    return pathlib.Path(program(pathlib.Path(settings(path)["ExecStart"].split()[0]).name)).exists()


class Folder:
    """The units of one domain, beside each other, their programs found in the build."""

    def __init__(self, domain):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="ksw-units-"))
        self.arguments = ["--user"] if domain == "user" else []
        for unit in [*units(domain, "*.service"), *units(domain, "*.socket")]:
            text = unit.read_text(encoding="utf-8")
            text = text.replace(f"ExecStart={cached('CMAKE_INSTALL_PREFIX')}/sbin", f"ExecStart={BINARY_DIR}/bin")
            (self.path / unit.name).write_text(text, encoding="utf-8")

    def analyze(self, *words):
        environment = os.environ | {"XDG_RUNTIME_DIR": str(self.path), "SYSTEMD_UNIT_PATH": f"{self.path}:"}
        command = ["systemd-analyze", *self.arguments, "--no-pager", *words]
        return subprocess.run(command, env=environment, cwd=self.path, capture_output=True, text=True, check=False)

    def exposure(self, service):
        """What `systemd-analyze security` comes to: the weighted mean of how bad each setting is, 0 to 10."""
        done = self.analyze("security", "--offline=yes", f"--threshold={int(EXPOSURE_MAX * 10)}", f"./{service}")
        return done.returncode, done.stdout + done.stderr

    def closed(self, service):
        """The names of the settings that leave nothing exposed."""
        done = self.analyze("security", "--offline=yes", "--json=short", f"./{service}")
        return {row["json_field"] for row in json.loads(done.stdout) if row["set"]}

    def drop_in(self, service, file):
        (self.path / f"{service}.d").mkdir()
        shutil.copy(file, self.path / f"{service}.d")


class TheUnits(unittest.TestCase):
    def folder(self, domain):
        folder = Folder(domain)
        self.addCleanup(shutil.rmtree, folder.path)
        return folder

    def test_are_taken_without_a_word(self):
        for domain in ["system", "user"]:
            folder = self.folder(domain)
            names = [path.name for path in units(domain, "*.service") if is_built(path)]
            done = folder.analyze("verify", "--man=no", *(f"./{name}" for name in names))
            self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""), names)

    def test_leave_little_exposed(self):
        for domain in ["system", "user"]:
            folder = self.folder(domain)
            for unit in units(domain, "*.service"):
                status, said = folder.exposure(unit.name)
                self.assertEqual(status, 0, said)

    def test_of_a_user_do_without_namespaces_where_the_host_forbids_them(self):
        folder = self.folder("user")
        for unit in units("user", "*.service"):
            self.assertLess(set(OF_A_NAMESPACE), folder.closed(unit.name))
            folder.drop_in(unit.name, WITHOUT_NAMESPACES)
            if is_built(unit):
                done = folder.analyze("verify", "--man=no", f"./{unit.name}")
                self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))
            left = folder.closed(unit.name)
            self.assertFalse(left & set(OF_A_NAMESPACE))
            self.assertFalse({name for name in left if "CAP_" in name})

    def test_stand_beside_what_is_made_at_start_and_the_right_to_manage_the_database(self):
        policy = (SHARE / "polkit-1/actions/com.velmont.kestrelwood.policy").read_text(encoding="utf-8")
        self.assertIn('id="com.velmont.kestrelwood.manage-database"', policy)
        with tempfile.TemporaryDirectory(prefix="ksw-tmpfiles-") as root:
            conf = SHARE / "tmpfiles.d" / "kestrelwood.conf"
            lines = [line.split() for line in conf.read_text(encoding="utf-8").splitlines() if line.startswith("d ")]
            done = subprocess.run(["systemd-tmpfiles", "--create", f"--root={root}", conf], capture_output=True,
                                  text=True, check=False)  # fmt: skip
            made = [pathlib.Path(root + line[1]).is_dir() for line in lines]
            self.assertEqual((all(made), done.stderr) if os.getuid() == 0 else (True, ""), (True, ""))


class Activated:
    """A server started as the service manager starts it: by the rules and with the sockets of its unit."""

    def __init__(self, unit, domain, runtime):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="ksw-", dir="/tmp"))
        self.process = None
        command = settings(unit)["ExecStart"].split()
        self.command = server_command(pathlib.Path(command[0]).name, *command[1:])
        self.sockets = {}
        for path in units(domain, "*.socket"):
            given = settings(path)
            if given["Service"] == unit.name:
                place = self.root / given["ListenStream"].replace("%t", runtime).lstrip("/")
                self.sockets[given["FileDescriptorName"]] = self.listening(place)

    @staticmethod
    def listening(place):
        place.parent.mkdir(parents=True, exist_ok=True)
        listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        listener.bind(str(place))
        listener.listen()
        return place, listener

    def start(self, runtime):
        held = [fcntl.fcntl(listener, fcntl.F_DUPFD_CLOEXEC, OUT_OF_THE_WAY) for _, listener in self.sockets.values()]

        def hand_over():
            for index, descriptor in enumerate(held):
                os.dup2(descriptor, FIRST_HANDED_OVER + index)

        environment = {key: value for key, value in os.environ.items() if not key.startswith(("KESTRELWOOD", "NOTIFY"))}
        environment |= {
            "KESTRELWOOD_ROOT": str(self.root), "XDG_RUNTIME_DIR": runtime, "HOME": str(self.root),
            "XDG_STATE_HOME": "/state", "LISTEN_FDS": str(len(held)), "LISTEN_FDNAMES": ":".join(self.sockets),
        }  # fmt: skip
        self.process = subprocess.Popen(
            ["sh", "-c", 'LISTEN_PID=$$ exec "$@"', "sh", *self.command], env=environment, preexec_fn=hand_over,
            close_fds=False, stdin=subprocess.DEVNULL,
        )  # fmt: skip
        for descriptor in held:
            os.close(descriptor)

    def answer(self, name):
        """The server's answer to the question for its status at one of its sockets."""
        body = cbor2.dumps(["serverStatusWithReply:", []])
        header = b"KSWF\x01\x01\0\0" + len(body).to_bytes(4, "big") + (1).to_bytes(4, "big")
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
            client.settimeout(REQUEST_SECONDS)
            client.connect(str(self.sockets[name][0]))
            client.sendall(header + body)
            with client.makefile("rb") as stream:
                head = stream.read(16)
                return cbor2.loads(stream.read(int.from_bytes(head[8:12], "big")))

    def bound_places(self):
        return sorted(str(path) for path in self.root.rglob("*") if path.is_socket())

    def close(self):
        if self.process is not None:
            self.process.terminate()
            self.process.wait(READY_SECONDS)
        for _, listener in self.sockets.values():
            listener.close()
        shutil.rmtree(self.root)


class AServer(unittest.TestCase):
    def test_serves_every_socket_that_its_unit_hands_over_and_binds_no_other(self):
        runtime = f"/run/user/{os.getuid()}"
        tried = [(domain, unit) for domain in ["system", "user"] for unit in units(domain, "*.service")]
        for domain, unit in tried:
            if is_built(unit):
                server = Activated(unit, domain, runtime)
                self.addCleanup(server.close)
                server.start(runtime)
                for name in server.sockets:
                    self.assertIn("served", server.answer(name)[0], f"{unit.name}: {name}")
                expected = sorted(str(place) for place, _ in server.sockets.values())
                self.assertEqual(server.bound_places(), expected, unit.name)


class AProgramUnderTheRulesOfAUnit(unittest.TestCase):
    """Every test that starts a server starts it so."""

    def end_of(self, *command):
        """How the command ends by the rules of a unit that keeps it from the priorities of processes."""
        with tempfile.TemporaryDirectory(prefix="ksw-units-") as folder:
            unit = pathlib.Path(folder, "some.service")
            unit.write_text(f"[Service]\nExecStart={command[0]}\nSystemCallFilter=@system-service\n"
                            "SystemCallFilter=~@resources\n", encoding="utf-8")  # fmt: skip
            done = subprocess.run([RULES, folder, *command], capture_output=True, text=True, check=False,
                                  timeout=READY_SECONDS)  # fmt: skip
        return done.returncode, done.stdout, done.stderr

    def test_runs_as_long_as_it_keeps_to_them(self):
        self.assertEqual(self.end_of(shutil.which("echo"), "kept"), (0, "kept\n", ""))

    def test_is_killed_at_the_first_call_that_is_not_allowed_which_is_named(self):
        told = "some.service does not allow the system call setpriority\n"
        self.assertEqual(self.end_of(shutil.which("nice"), "true"), (-signal.SIGKILL, "", told))


if __name__ == "__main__":
    unittest.main()
