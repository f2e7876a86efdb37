"""The build, installed below a folder of the test's own, which is moved afterwards: nothing in it names where it was."""

import os
import pathlib
import shutil
import subprocess
import tempfile

BINARY_DIR = pathlib.Path(os.environ.get("KSW_BINARY_DIR", "build/release")).resolve()
SOURCE_DIR = pathlib.Path(os.environ.get("KSW_SOURCE_DIR", pathlib.Path(__file__).parents[2])).resolve()


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **options)
    assert done.returncode == 0, f"{command}\n{done.stdout}\n{done.stderr}"
    return done.stdout


class InstalledTree:
    """`with InstalledTree() as tree:` `tree.prefix` is where everything lies."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="ksw-install-", dir="/tmp"))
        self.prefix = self.folder / "moved"

    def __enter__(self):
        run("cmake", "--install", self.scripts(), "--prefix", self.folder / "installed")
        (self.folder / "installed").rename(self.prefix)
        return self

    def scripts(self):
        """A copy of the build's installing scripts: they keep a list beside themselves, and the build is not the test's."""
        copies = self.folder / "scripts"
        for script in BINARY_DIR.rglob("cmake_install.cmake"):
            copy = copies / script.relative_to(BINARY_DIR)
            copy.parent.mkdir(parents=True, exist_ok=True)
            text = script.read_text(encoding="utf-8")
            for call in ["include(", "file(WRITE "]:
                text = text.replace(f'{call}"{BINARY_DIR}/', f'{call}"{copies}/')
            copy.write_text(text, encoding="utf-8")
        return copies

    def __exit__(self, *_):
        shutil.rmtree(self.folder)

    def files(self, place):
        """The files below a folder of the tree, as paths from there."""
        folder = self.prefix / place
        return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())

    def environment(self):
        return os.environ | {
            "LD_LIBRARY_PATH": str(self.prefix / "lib"),
            "PKG_CONFIG_PATH": str(self.prefix / "lib" / "pkgconfig"),
            "CMAKE_PREFIX_PATH": str(self.prefix),
        }
