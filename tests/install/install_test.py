"""What `cmake --install` puts down is whole: programs are built against it, and what it exports is what is listed."""

import pathlib
import re
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from installed_tree import BINARY_DIR, SOURCE_DIR, InstalledTree, run  # noqa: E402
from live_daemon import LiveDaemon, cached  # noqa: E402

HERE = SOURCE_DIR / "tests" / "install"
ANSWER = "[enabled, allowed, visible, not notified]\n"
FROM_OUTSIDE = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6", "ld-linux-x86-64.so.2"}


class AnInstalledTree(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tree = cls.enterClassContext(InstalledTree())

    def test_holds_the_exported_headers_and_no_other(self):
        headers = SOURCE_DIR / "include"
        expected = sorted(str(path.relative_to(headers)) for path in headers.rglob("*.h"))
        self.assertEqual(self.tree.files("include"), expected)

    def test_has_a_library_with_a_name_for_programs_that_links_nothing_but_the_runtime(self):
        dynamic = run("readelf", "--dynamic", "--wide", self.tree.prefix / "lib" / "libkestrelwood.so")
        self.assertIn("Library soname: [libkestrelwood.so.1]", dynamic)
        self.assertLessEqual(set(re.findall(r"Shared library: \[(.*)\]", dynamic)), FROM_OUTSIDE)

    def test_names_neither_the_sources_nor_the_build(self):
        for name in self.tree.files("lib"):
            if name.endswith((".cmake", ".pc")):
                text = (self.tree.prefix / "lib" / name).read_text(encoding="utf-8")
                self.assertNotIn(str(SOURCE_DIR), text, name)

    def test_serves_a_program_in_cpp_that_is_built_by_cmake_with_either_library(self):
        build = self.tree.folder / "cpp"
        environment = self.tree.environment()
        compiler = cached("CMAKE_CXX_COMPILER")
        run("cmake", "-G", "Ninja", "-S", HERE / "cpp", "-B", build, f"-DCMAKE_CXX_COMPILER={compiler}", env=environment)
        run("cmake", "--build", build, env=environment)
        with LiveDaemon() as daemon:
            for program in ["with_shared", "with_static"]:
                said = run(build / program, env=daemon.environment() | {"LD_LIBRARY_PATH": self.tree.prefix / "lib"})
                self.assertEqual(said, ANSWER + "answers\n", program)

    def test_serves_a_program_in_c_that_is_built_with_pkg_config(self):
        environment = self.tree.environment()
        flags = run("pkg-config", "--cflags", "--libs", "kestrelwood", env=environment).split()
        program = self.tree.folder / "consumer"
        run(cached("CMAKE_C_COMPILER"), "-std=c11", HERE / "c" / "consumer.c", "-o", program, *flags, env=environment)
        said = run(program, env=environment | {"KESTRELWOOD_ROOT": str(self.tree.folder)})
        self.assertEqual(said, "KSWSubsystemGlimpse: -1\n")

    def test_says_its_version_alike_everywhere(self):
        version = cached("CMAKE_PROJECT_VERSION")
        environment = self.tree.environment()
        self.assertEqual(run("pkg-config", "--modversion", "kestrelwood", env=environment), version + "\n")
        for folder in ["bin", "sbin"]:
            for name in self.tree.files(folder):
                program = self.tree.prefix / folder / name
                self.assertEqual(run(program, "--version", env=environment), f"{name} {version}\n")


class TheSharedLibrary(unittest.TestCase):
    def test_exports_what_is_listed(self):
        run(SOURCE_DIR / "scripts" / "abi", BINARY_DIR / "lib" / "libkestrelwood.so.1")


if __name__ == "__main__":
    unittest.main()
