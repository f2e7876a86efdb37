"""A kestrelwoodd of a test's own: its own host root, its own sockets, its own database; gone at the end."""

import json
import os
import pathlib
import plistlib
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

BINARY_DIR = pathlib.Path(os.environ.get("KSW_BINARY_DIR", "build/release")).resolve()
SOURCE_DIR = pathlib.Path(os.environ.get("KSW_SOURCE_DIR", pathlib.Path(__file__).parents[2])).resolve()
READY_SECONDS = 30  # sanitizers on a loaded machine are slow to start
REQUEST_SECONDS = 60
EVERY_USER = 4294967294
NOBODY = 65534
ITEM_KEYS = [
    "uuid", "identifier", "name", "developerName", "type", "typeText", "flags", "flagsText", "disposition",
    "dispositionText", "url", "executablePath", "programArguments", "generation", "uid",
]  # fmt: skip


def program(name):
    return str(BINARY_DIR / "bin" / name)


def cached(name):
    """A value that the build was configured with."""
    for line in (BINARY_DIR / "CMakeCache.txt").read_text(encoding="utf-8").splitlines():
        key, _, value = line.partition("=")
        if key.partition(":")[0] == name:
            return value
    raise KeyError(name)


def server_command(name, *arguments):
    """What starts one of our servers: by the rules of its unit, but for sanitizers, which ask more of the kernel."""
    command = [program(name), *arguments]
    if cached("KSW_SANITIZE"):
        return command
    return [str(SOURCE_DIR / "tests/support/with_unit_rules.py"), str(BINARY_DIR / "share/systemd"), *command]


class LiveDaemon:
    """`with LiveDaemon() as daemon:` the daemon runs and is ready; `daemon.root` is its host root."""

    def __init__(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="ksw-", dir="/tmp"))
        self.process = None

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        try:
            if self.process is not None:
                status = self.stop()
                assert status == 0, f"kestrelwoodd ended with status {status}"
        finally:
            shutil.rmtree(self.root)

    def environment(self):
        kept = {key: value for key, value in os.environ.items() if not key.startswith(("KESTRELWOOD", "LISTEN_"))}
        return kept | {"KESTRELWOOD_ROOT": str(self.root)}

    def start(self):
        """Starts the daemon and waits until it says that it is ready."""
        self.process = self.start_program("kestrelwoodd")

    def stop(self):
        """Asks the daemon to end; its exit status."""
        process, self.process = self.process, None
        return self.end_program(process)

    def start_program(self, name):
        """Starts one of our servers and waits until it says that it is ready."""
        notify_path = self.root / "ready"
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notify:
            notify.bind(str(notify_path))
            process = subprocess.Popen(
                server_command(name),
                env=self.environment() | {"NOTIFY_SOCKET": str(notify_path)},
                stdin=subprocess.DEVNULL,
            )
            self._wait_until_ready(notify, process, name)
        notify_path.unlink()
        return process

    @staticmethod
    def _wait_until_ready(notify, process, name):
        end = os.pidfd_open(process.pid)
        try:
            while True:
                told, _, _ = select.select([notify, end], [], [], READY_SECONDS)
                if notify in told and "READY=1" in notify.recv(4096).decode().splitlines():
                    return
                if notify not in told:
                    raise RuntimeError(f"{name} ended or did not become ready")
        finally:
            os.close(end)

    @staticmethod
    def end_program(process):
        """Asks a server to end; its exit status. One that does not end in time is killed."""
        process.send_signal(signal.SIGTERM)
        try:
            return process.wait(timeout=READY_SECONDS)
        except subprocess.TimeoutExpired:
            process.kill()
            return process.wait()

    def run(self, name, *arguments, **options):
        """Runs one of our programs against this daemon and waits for its end."""
        return subprocess.run(
            [program(name), *map(str, arguments)],
            env=self.environment() | options.pop("extra_environment", {}),
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=REQUEST_SECONDS,
            **options,
        )

    def socket_path(self, service):
        return str(self.root / "run" / "kestrelwood" / service)


class Background:
    """One of our programs running beside the test; its lines are read as they come."""

    def __init__(self, daemon, name, *arguments, stdout=subprocess.PIPE):
        self.process = subprocess.Popen(
            [program(name), *map(str, arguments)],
            env=daemon.environment(),
            stdin=subprocess.PIPE,
            stdout=stdout,
            stderr=subprocess.PIPE,
            bufsize=0,
        )
        self.unread = {"stdout": b"", "stderr": b""}

    def line(self, stream="stdout"):
        """The next line, waited for; what there is when the program has closed the stream."""
        end = time.monotonic() + REQUEST_SECONDS
        pipe = getattr(self.process, stream)
        while b"\n" not in self.unread[stream]:
            if not select.select([pipe], [], [], max(0, end - time.monotonic()))[0]:
                raise TimeoutError(f"no line on {stream}")
            piece = pipe.read(65536)
            if not piece:
                break
            self.unread[stream] += piece
        line, _, self.unread[stream] = self.unread[stream].partition(b"\n")
        return line.decode()

    def end(self, number=None):
        """The exit status, after a signal if one is given."""
        if number is not None:
            self.process.send_signal(number)
        return self.process.wait(timeout=REQUEST_SECONDS)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        for pipe in (self.process.stdin, self.process.stdout, self.process.stderr):
            if pipe is not None:
                pipe.close()


class WithFolder(unittest.TestCase):
    """A folder of the test's own for job files."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="ksw-jobs-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()

    def job(self, name, form=plistlib.FMT_XML, place="", file=None, **keys):
        path = self.folder / place / f"{file or name}.plist"
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(plistlib.dumps({"Label": name, **keys}, fmt=form))
        return path


class WithDaemon(WithFolder):
    """A daemon for all tests of the class, and kswctl to ask it."""

    @classmethod
    def setUpClass(cls):
        cls.daemon = cls.enterClassContext(LiveDaemon())

    def kswctl(self, *arguments, status=0, **options):
        done = self.daemon.run("kswctl", *arguments, **options)
        self.assertEqual(done.returncode, status, f"{arguments}\n{done.stdout}\n{done.stderr}")
        return done

    def json(self, *arguments, status=0):
        return json.loads(self.kswctl(*arguments, "--json", status=status).stdout)

    def registered(self, name, *arguments, **keys):
        """The record of an agent's job, registered."""
        return self.json("register", self.job(name, **({"Program": "/bin/true"} | keys)), *arguments)["item"]

    def background(self, name, *arguments):
        running = Background(self.daemon, name, *arguments)
        self.addCleanup(running.close)
        return running

    def run_as_nobody(self, *arguments):
        # Copies, because the build folder may be closed to others.
        for path in [self.folder, self.daemon.root]:
            path.chmod(0o755)
        shutil.copy(program("kswctl"), self.folder)
        library = shutil.copy(BINARY_DIR / "lib" / "libkestrelwood.so.1", self.folder)
        return subprocess.run(
            [self.folder / "kswctl", *map(str, arguments)],
            env=self.daemon.environment() | {"LD_LIBRARY_PATH": str(pathlib.Path(library).parent)},
            user=NOBODY, group=NOBODY, extra_groups=[], capture_output=True, text=True, timeout=60,
        )  # fmt: skip
