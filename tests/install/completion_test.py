"""Pressing Tab behind kswctl, in each shell that this host has, on a terminal of its own."""

import os
import pathlib
import pty
import select
import shutil
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from installed_tree import BINARY_DIR  # noqa: E402
from live_agent import WithAgent  # noqa: E402
from live_daemon import program  # noqa: E402

COMPLETIONS = BINARY_DIR / "share" / "completions"
PROMPT = "ready>"
SECONDS = 60
SHELLS = {
    "bash": (["--norc", "--noprofile", "-i"],
             ["bind 'set enable-bracketed-paste off' 'set bell-style none'", "source {}"]),
    "zsh": (["-f", "-i"], ["unsetopt prompt_cr prompt_sp", "autoload -U compinit", "compinit -u -D", "source {}"]),
}  # fmt: skip


class Terminal:
    """A shell on a pseudo-terminal: what is typed goes to it, and what it shows is read."""

    def __init__(self, shell, environment):
        arguments, first = SHELLS[shell]
        self.shown = ""
        self.pid, self.descriptor = pty.fork()
        if self.pid == 0:
            os.execve(shutil.which(shell), [shell, *arguments], environment)
        script = COMPLETIONS / f"kswctl.{shell}"
        # The prompt is put together by the shell, so that the command's own echo is not taken for it.
        for line in [*first, f"PS1='{PROMPT[:3]}''{PROMPT[3:]}'"]:
            self.type(line.format(script) + "\n")
        self.wait_for(PROMPT)

    def type(self, text):
        os.write(self.descriptor, text.encode())

    def wait_for(self, text):
        """Reads on until the text has been shown; everything that was shown before it and with it."""
        end = time.monotonic() + SECONDS
        while text not in self.shown:
            if not select.select([self.descriptor], [], [], max(0, end - time.monotonic()))[0]:
                raise TimeoutError(f"{text!r} is not shown: {self.shown!r}")
            self.shown += os.read(self.descriptor, 65536).decode(errors="replace")
        before, _, self.shown = self.shown.partition(text)
        return before + text

    def close(self):
        os.close(self.descriptor)
        os.waitpid(self.pid, 0)


class Completion(WithAgent):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.shells = [shell for shell in SHELLS if shutil.which(shell)]

    def terminal(self, shell):
        environment = self.daemon.environment() | {
            "TERM": "dumb", "HOME": str(self.folder), "INPUTRC": "/dev/null", "ZDOTDIR": str(self.folder),
            "PATH": f"{pathlib.Path(program('kswctl')).parent}:{os.environ['PATH']}",
        }  # fmt: skip
        terminal = Terminal(shell, environment)
        self.addCleanup(terminal.close)
        return terminal

    def login_item(self):
        """The identifier of an item that opens at login."""
        return self.json("login-items", "add", self.folder)["identifier"]

    def test_completes_commands_options_values_and_live_identifiers(self):
        self.registered("com.example.completed")
        login_item = self.login_item()
        opened = self.folder / "opened at login"
        opened.write_text("x")
        self.json("add", opened)
        for shell in self.shells:
            terminal = self.terminal(shell)
            for typed, completed in [("kswctl disal", "kswctl disallow"), ("kswctl list --ty", "kswctl list --type"),
                                     ("kswctl list --type shel", "kswctl list --type shelf-tile"),
                                     ("kswctl show 8.com.ex", "kswctl show 8.com.example.completed"),
                                     ("kswctl show Unknown\\ Dev", "kswctl show Unknown\\ Developer"),
                                     (f"kswctl show {opened.as_uri()[:-9]}", f"show {opened.as_uri()}"),
                                     (f"kswctl login-items remove {login_item[:5]}", login_item)]:  # fmt: skip
                terminal.type(f"{typed}\t")
                terminal.wait_for(completed)
                terminal.type("\x15")  # take the line back

    def test_tells_fish_the_same(self):
        if shutil.which("fish"):
            self.registered("com.example.for-fish")
            login_item = self.login_item()
            environment = {"TERM": "dumb", "XDG_CONFIG_HOME": str(self.folder), "HOME": str(self.folder),
                           "PATH": f"{pathlib.Path(program('kswctl')).parent}:{os.environ['PATH']}"}  # fmt: skip
            script = COMPLETIONS / "kswctl.fish"
            for typed, completed in [("kswctl disal", "disallow"), ("kswctl list --ty", "--type"),
                                     ("kswctl show 8.com.ex", "8.com.example.for-fish"),
                                     (f"kswctl login-items remove {login_item[:5]}", login_item)]:  # fmt: skip
                self.assertIn(completed, self.said_on_a_terminal(
                    ["fish", "--no-config", "-c", f"source {script}; complete -C '{typed}'"], environment))

    def said_on_a_terminal(self, command, environment):
        pid, descriptor = pty.fork()
        if pid == 0:
            os.execve(shutil.which(command[0]), command, self.daemon.environment() | environment)
        said = b""
        try:
            while piece := os.read(descriptor, 65536):
                said += piece
        except OSError:  # the terminal's other end is closed
            pass
        os.close(descriptor)
        os.waitpid(pid, 0)
        return said.decode(errors="replace")


if __name__ == "__main__":
    unittest.main()
