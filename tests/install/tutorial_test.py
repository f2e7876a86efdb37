"""The tutorial does what it says: its programs are compiled from the page, built against the library, and run."""

import concurrent.futures
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from installed_tree import BINARY_DIR, SOURCE_DIR, run  # noqa: E402
from live_daemon import WithDaemon, cached  # noqa: E402

PAGE = (SOURCE_DIR / "docs" / "tutorial.md").read_text(encoding="utf-8")
ITEM = "8.com.example.backup"


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```$", PAGE, re.MULTILINE | re.DOTALL)


class TheTutorial(WithDaemon):
    def build(self, name, text):
        source = self.folder / f"{name}.cpp"
        source.write_text(text, encoding="utf-8")
        run(cached("CMAKE_CXX_COMPILER"), "-std=c++20", "-Wall", "-Wextra", source, "-o", self.folder / name,
            f"-I{SOURCE_DIR}/include", f"-L{BINARY_DIR}/lib", f"-Wl,-rpath,{BINARY_DIR}/lib", "-lkestrelwood")
        return str(self.folder / name)

    def test_leads_to_programs_that_register_a_job_and_notice_what_is_decided(self):
        with concurrent.futures.ThreadPoolExecutor() as together:
            backup, watch = together.map(self.build, ["backup", "watch"], blocks("cpp"))
        job = self.folder / "com.example.backup.plist"
        job.write_text(blocks("xml")[0], encoding="utf-8")
        environment = self.daemon.environment()
        said = run(backup, job, env=environment)
        self.assertEqual(said, f"{ITEM} is free to launch\n")
        self.assertIn(f"It says `{said.strip()}`", PAGE)
        with subprocess.Popen([watch], env=environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as told:
            for verb, expected in [(None, "allowed"), ("disallow", "forbidden"), ("allow", "allowed")]:
                if verb is not None:
                    self.kswctl(verb, ITEM)
                # It is told of other changes as well, and then says the same again.
                self.assertIn(f"{expected}\n", iter(told.stdout.readline, ""), verb)
            told.stdin.close()
            self.assertEqual(told.wait(), 0)
        self.kswctl("unregister", job)


class TheReference(unittest.TestCase):
    def test_describes_every_exported_symbol(self):
        if shutil.which("doxygen"):
            with tempfile.TemporaryDirectory(prefix="ksw-docs-") as folder:
                run(SOURCE_DIR / "scripts" / "docs", folder)


if __name__ == "__main__":
    unittest.main()
