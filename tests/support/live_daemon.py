"""A kestrelwoodd of a test's own: its own host root, its own sockets, its own database; gone at the end."""

import os
import pathlib
import select
import shutil
import signal
import socket
import subprocess
import tempfile

BINARY_DIR = pathlib.Path(os.environ.get("KSW_BINARY_DIR", "build/release")).resolve()
SOURCE_DIR = pathlib.Path(os.environ.get("KSW_SOURCE_DIR", pathlib.Path(__file__).parents[2])).resolve()
READY_SECONDS = 30  # sanitizers on a loaded machine are slow to start
REQUEST_SECONDS = 60


def program(name):
    return str(BINARY_DIR / "bin" / name)


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
        notify_path = self.root / "ready"
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as notify:
            notify.bind(str(notify_path))
            self.process = subprocess.Popen(
                [program("kestrelwoodd")],
                env=self.environment() | {"NOTIFY_SOCKET": str(notify_path)},
                stdin=subprocess.DEVNULL,
            )
            self._wait_until_ready(notify)
        notify_path.unlink()

    def _wait_until_ready(self, notify):
        end = os.pidfd_open(self.process.pid)
        try:
            while True:
                told, _, _ = select.select([notify, end], [], [], READY_SECONDS)
                if notify in told and "READY=1" in notify.recv(4096).decode().splitlines():
                    return
                if notify not in told:
                    raise RuntimeError("kestrelwoodd ended or did not become ready")
        finally:
            os.close(end)

    def stop(self):
        """Asks the daemon to end; its exit status. One that does not end in time is killed."""
        process, self.process = self.process, None
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
