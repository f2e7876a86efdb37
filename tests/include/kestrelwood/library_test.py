"""The shared library as a program meets it: what it links, and that loading it opens, starts and runs nothing."""

import json
import os
import pathlib
import re
import subprocess
import sys
import unittest

LIBRARY = pathlib.Path(os.environ.get("KSW_BINARY_DIR", "build/release")).resolve() / "lib" / "libkestrelwood.so"
RUNTIME = {"linux-vdso", "libstdc++", "libm", "libgcc_s", "libc", "ld-linux-x86-64", "ld-linux-aarch64"}

# What a process looks like before and after it has loaded the library.
LOADER = """
import ctypes, json, os, sys
def state():
    return {"threads": len(os.listdir("/proc/self/task")),
            "descriptors": sorted(os.readlink(f"/proc/self/fd/{fd}") for fd in os.listdir("/proc/self/fd")
                                  if os.path.exists(f"/proc/self/fd/{fd}"))}
before = state()
ctypes.CDLL(sys.argv[1])
print(json.dumps([before, state()]))
"""


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


class TheSharedLibrary(unittest.TestCase):
    def test_links_the_runtime_of_cpp_and_libc_only(self):
        names = {re.match(r"\s*(\S+?)\.so", line)[1].rsplit("/", 1)[-1]
                 for line in output_of("ldd", str(LIBRARY)).splitlines()}
        self.assertIn("libstdc++", names)
        self.assertLessEqual(names, RUNTIME)

    def test_has_the_first_version_of_its_interface_as_its_name(self):
        self.assertIn("[libkestrelwood.so.1]", output_of("readelf", "-d", str(LIBRARY)))

    def test_runs_nothing_of_its_own_when_it_is_loaded(self):
        # One entry is the compiler's own, in every shared library.
        sizes = re.findall(r"\.init_array\s+INIT_ARRAY\s+\S+\s+\S+\s+([0-9a-f]+)",
                           output_of("readelf", "-W", "-S", str(LIBRARY)))
        self.assertEqual([int(size, 16) for size in sizes], [8])

    def test_opens_and_starts_nothing_when_it_is_loaded(self):
        before, after = json.loads(output_of(sys.executable, "-c", LOADER, str(LIBRARY)))
        self.assertEqual(before, after)


def is_sanitized():
    # A sanitizer's runtime starts with the program that is linked with it; such a library cannot be loaded alone.
    return re.search(r"__(asan|tsan|ubsan)_", output_of("nm", "-D", "--undefined-only", str(LIBRARY))) is not None


if __name__ == "__main__":
    if is_sanitized():
        print("a sanitized library does not stand for the one that is shipped")
    else:
        unittest.main()
