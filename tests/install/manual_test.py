"""The manual pages are there, render without a warning, and name every command that the tools have."""

import pathlib
import re
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from installed_tree import BINARY_DIR, SOURCE_DIR, run  # noqa: E402

MANUAL = BINARY_DIR / "share" / "man"
PAGES = ["man1/kswctl.1", "man1/kswsign.1", "man3/libkestrelwood.3", "man7/kestrelwood.7", "man8/kestrelwoodagent.8",
         "man8/kestrelwoodd.8"]  # fmt: skip
SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS", "ENVIRONMENT", "FILES", "EXAMPLES", "SEE ALSO"]
READING = re.compile(r'(?:environmentVariable|getenv|[vV]ariable|FromEnvironment|folderNamed|isSet)\(\s*"([A-Z_]+)"')


def commands(tool, *words):
    """The commands in the tool's help, those in groups with the group's word in front."""
    text = run(BINARY_DIR / "bin" / tool, *words, "--help")
    _, _, listed = text.partition("Subcommands:\n")
    for name in re.findall(r"^  (\S+)", listed, re.MULTILINE):
        inside = list(commands(tool, *words, name))
        yield from inside or [" ".join([*words, name])]


class TheManual(unittest.TestCase):
    def test_has_all_its_pages(self):
        self.assertEqual(sorted(str(path.relative_to(MANUAL)) for path in MANUAL.rglob("*.[1-8]")), PAGES)

    def test_renders_without_a_warning(self):
        for page in PAGES:
            done = subprocess.run(["groff", "-man", "-ww", "-z", "-Tutf8", MANUAL / page], capture_output=True,
                                  text=True, check=False)  # fmt: skip
            self.assertEqual((done.returncode, done.stderr), (0, ""), page)

    def test_says_in_every_page_what_a_reader_looks_for(self):
        for page in PAGES:
            text = (MANUAL / page).read_text(encoding="utf-8")
            headings = re.findall(r"^\.SH (.*)$", text, re.MULTILINE)
            missing = [section for section in SECTIONS if section not in headings]
            self.assertEqual(missing, ["SYNOPSIS"] if page.endswith(".7") else [], page)

    def test_describes_every_command_of_the_tools(self):
        for tool in ["kswctl", "kswsign"]:
            text = (MANUAL / "man1" / f"{tool}.1").read_text(encoding="utf-8").replace("\\-", "-")
            described = re.findall(r"^\.SS (.*)$", text, re.MULTILINE)
            for command in commands(tool):
                self.assertTrue(any(f"{line} ".startswith(f"{command} ") for line in described), command)

    def test_names_the_variables_of_the_environment_that_are_read_and_no_other(self):
        code = "".join(path.read_text(encoding="utf-8") for folder in ["platform", "servers", "tools"]
                       for path in (SOURCE_DIR / folder).rglob("*.cpp"))  # fmt: skip
        read = set(READING.findall(code))
        named = set()
        for page in PAGES:
            _, _, text = (MANUAL / page).read_text(encoding="utf-8").partition(".SH ENVIRONMENT\n")
            for line in re.findall(r"^\.TP\n(.*)$", text.partition("\n.SH ")[0], re.MULTILINE):
                named |= set(re.findall(r"\b[A-Z_]{2,}\b", line.removeprefix(".BR")))
        self.assertEqual(read - named, set())
        self.assertEqual({name for name in named if f'"{name}"' not in code}, set())


if __name__ == "__main__":
    unittest.main()
