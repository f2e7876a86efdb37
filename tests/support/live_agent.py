"""A kestrelwoodd and a kestrelwoodagent of a test's own, in one host root, with a home and a session."""

import os

from live_daemon import LiveDaemon, WithDaemon


class LiveAgent(LiveDaemon):
    """`with LiveAgent() as host:` both run and are ready; `host.home` is the user's home."""

    def __init__(self):
        super().__init__()
        self.agent = None
        self.home = self.root / "home"
        self.home.mkdir()
        (self.root / f"run/user/{os.getuid()}").mkdir(parents=True)

    def environment(self):
        kept = {key: value for key, value in super().environment().items() if not key.startswith("XDG_")}
        return kept | {"HOME": str(self.home)}

    def start(self):
        super().start()
        if self.agent is None:
            self.start_agent()

    def start_agent(self):
        self.agent = self.start_program("kestrelwoodagent")

    def stop_agent(self):
        agent, self.agent = self.agent, None
        return self.end_program(agent)

    def __exit__(self, *arguments):
        try:
            if self.agent is not None:
                status = self.stop_agent()
                assert status == 0, f"kestrelwoodagent ended with status {status}"
        finally:
            super().__exit__(*arguments)


class WithAgent(WithDaemon):
    """Both servers for all tests of the class, and kswctl to ask them."""

    @classmethod
    def setUpClass(cls):
        cls.daemon = cls.enterClassContext(LiveAgent())
