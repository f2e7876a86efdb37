"""Each check of scripts/lint refuses the small bad tree that it is there for, and lets the good one pass."""
import os
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
GOOD_HEADER = "#pragma once\n"


class Tree:
    """A tree of sources in a temporary folder, removed at the end."""

    def __init__(self, files):
        self.folder = tempfile.TemporaryDirectory(prefix="ksw-lint-")
        for path, text in files.items():
            full = os.path.join(self.folder.name, path)
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "w", encoding="utf-8") as file:
                file.write(text)

    def __enter__(self):
        return self.folder.name

    def __exit__(self, *details):
        self.folder.cleanup()


def run(script, *arguments):
    return subprocess.run([os.path.join(ROOT, "scripts", script), *arguments], capture_output=True, text=True, check=False)


class CheckCase(unittest.TestCase):
    def refuses(self, script, files, *texts):
        with Tree(files) as root:
            result = run(script, root)
        self.assertEqual(result.returncode, 1, result.stderr)
        for text in texts:
            self.assertIn(text, result.stderr)

    def accepts(self, script, files):
        with Tree(files) as root:
            result = run(script, root)
        self.assertEqual((result.returncode, result.stderr), (0, ""))


class Ranks(CheckCase):
    def includes(self, path, include):
        return {path: f"#include {include}\n"}

    def test_a_lower_rank_and_the_own_sub_folder_are_allowed(self):
        self.accepts("check-ranks", {
            "platform/ipc/stream.cpp": '#include "platform/ipc/stream.h"\n#include "platform/host/log.h"\n'
                                       "#include <kestrelwood/values.h>\n#include <vector>\n",
            "model/item/item.cpp": "#include <kestrelwood/KSWItem.h>\n",
            "include/kestrelwood/kestrelwood.h": "#include <kestrelwood/KSWManager.h>\n",
            "servers/kestrelwoodd/main.cpp": '#include "client/protocol/manager.h"\n#include "servers/common/x.h"\n'
                                             "#include <sqlite3.h>\n",
            "tools/kswctl/main.cpp": '#include "tools/kswctl/verbs.h"\n#include "tools/common/text.h"\n'
                                     "#include <kestrelwood/kestrelwood.h>\n",
            "tests/client/manager/any_test.cpp": '#include "client/manager/frame.h"\n#include <gtest/gtest.h>\n',
        })

    def test_a_higher_rank_is_refused(self):
        self.refuses("check-ranks", self.includes("platform/base/url.cpp", '"platform/host/log.h"'),
                     "platform/base/url.cpp:1", "above platform/base")

    def test_a_sibling_of_the_rank_is_refused(self):
        self.refuses("check-ranks", self.includes("platform/plist/reader.cpp", '"platform/archive/budget.h"'), "a sibling of")

    def test_an_exported_header_counts_as_its_owner(self):
        self.refuses("check-ranks", self.includes("platform/ipc/stream.cpp", "<kestrelwood/KSWItem.h>"), "model/item (rank 3)")
        self.refuses("check-ranks", self.includes("include/kestrelwood/KSWTypes.h", "<kestrelwood/KSWErrors.h>"), "a sibling of")

    def test_the_header_of_everything_is_for_programs(self):
        self.refuses("check-ranks", self.includes("client/manager/frame.cpp", "<kestrelwood/kestrelwood.h>"), "above")

    def test_an_exported_header_includes_exported_headers_only(self):
        self.refuses("check-ranks", self.includes("include/kestrelwood/KSWManager.h", '"platform/base/result.h"'),
                     "exported headers only")

    def test_a_tool_sees_exported_headers_only(self):
        self.refuses("check-ranks", self.includes("tools/kswctl/main.cpp", '"platform/base/result.h"'), "exported headers only")
        self.refuses("check-ranks", self.includes("tools/kswsign/main.cpp", '"tools/kswctl/verbs.h"'), "exported headers only")
        self.refuses("check-ranks", self.includes("tools/common/text.cpp", '"tools/kswctl/verbs.h"'), "exported headers only")
        self.refuses("check-ranks", self.includes("examples/may_load.cpp", '"tools/common/text.h"'), "exported headers only")

    def test_a_server_sees_ranks_up_to_five(self):
        self.refuses("check-ranks", self.includes("servers/kestrelwoodd/main.cpp", '"client/manager/frame.h"'), "rank 8")
        self.refuses("check-ranks", self.includes("servers/kestrelwoodd/main.cpp", '"servers/kestrelwoodagent/x.h"'),
                     "servers/kestrelwoodagent")

    def test_a_sub_folder_or_header_without_a_rank_is_refused(self):
        self.refuses("check-ranks", {"platform/new/x.cpp": ""}, "no rank for platform/new")
        self.refuses("check-ranks", {"platform/x.cpp": ""}, "no rank for platform")
        self.refuses("check-ranks", {"include/kestrelwood/KSWNew.h": ""}, "no rank for the exported header KSWNew.h")
        self.refuses("check-ranks", self.includes("client/manager/a.cpp", '"model/new/x.h"'), "no rank for model/new")

    def test_an_include_by_a_relative_path_or_a_macro_is_refused(self):
        self.refuses("check-ranks", self.includes("platform/base/url.cpp", '"url.h"'), "from the root of the tree")
        self.refuses("check-ranks", self.includes("platform/base/url.cpp", "URL_HEADER"), "not written out")
        self.refuses("check-ranks", self.includes("platform/base/url.cpp", "<platform/base/url.h>"), "in quotes")

    def test_a_library_outside_the_framework_is_refused_in_it(self):
        self.refuses("check-ranks", self.includes("platform/host/log.cpp", "<sqlite3.h>"), "does not use")
        self.refuses("check-ranks", self.includes("servers/kestrelwoodd/main.cpp", "<gtest/gtest.h>"), "does not use")

    def test_the_documents_table_is_the_scripts_table(self):
        with open(os.path.join(ROOT, "scripts/check-ranks"), encoding="utf-8") as file:
            known = dict(re.findall(r'^    "([a-z]+/[a-z]+)": (\d),$', file.read(), re.MULTILINE))
        with open(os.path.join(ROOT, "docs/architecture.md"), encoding="utf-8") as file:
            told = {folder: rank for rank, folder in re.findall(r"^\| (\d) \| `([a-z]+/[a-z]+)/`", file.read(), re.MULTILINE)}
        self.assertGreater(len(told), 10)
        for folder, rank in told.items():
            self.assertEqual(known.get(folder), rank, folder)
        for folder in known:
            if os.path.isdir(os.path.join(ROOT, folder)) and os.listdir(os.path.join(ROOT, folder)):
                self.assertIn(folder, told)


class Files(CheckCase):
    def test_the_last_allowed_line_passes_and_the_next_is_refused(self):
        self.accepts("check-files", {"platform/base/a.cpp": "\n" * 400})
        self.refuses("check-files", {"platform/base/a.cpp": "\n" * 401}, "401 lines, at most 400")

    def test_a_listed_file_may_be_long_if_it_has_a_reason(self):
        long = {"platform/base/a.cpp": "\n" * 401}
        self.accepts("check-files", long | {"scripts/long-files": "platform/base/a.cpp one table\n"})
        self.refuses("check-files", long | {"scripts/long-files": "platform/base/a.cpp\n"}, "401 lines")

    def test_a_listed_file_that_is_short_or_gone_is_refused(self):
        self.refuses("check-files", {"platform/base/a.cpp": "\n", "scripts/long-files": "platform/base/a.cpp was long\n"},
                     "is short again")
        self.refuses("check-files", {"scripts/long-files": "platform/base/a.cpp was long\n"}, "is not there")

    def test_names_are_snake_case(self):
        self.refuses("check-files", {"platform/base/UrlParts.cpp": ""}, "snake_case")
        self.accepts("check-files", {"include/kestrelwood/KSWItem.h": GOOD_HEADER})

    def test_a_file_of_tests_is_named_so_and_one_named_so_holds_tests(self):
        self.refuses("check-files", {"tests/platform/base/url.cpp": "TEST(A, B) {}\n"}, "ends in _test.cpp")
        self.refuses("check-files", {"tests/platform/base/url_test.cpp": "int a;\n"}, "holds none")
        self.refuses("check-files", {"tests/peer/url.py": "unittest.main()\n"}, "ends in _test.py")
        self.accepts("check-files", {"tests/platform/base/url_test.cpp": "TEST_F(A, B) {}\n"})

    def test_a_benchmark_is_named_so(self):
        self.refuses("check-files", {"bench/log.cpp": ""}, "NAME_bench.cpp")

    def test_a_fuzzer_has_seeds(self):
        fuzzer = {"fuzz/frame_fuzz.cpp": ""}
        self.refuses("check-files", fuzzer, "has no seeds")
        self.accepts("check-files", fuzzer | {"fuzz/seeds/frame/empty": ""})

    def test_a_test_that_may_be_skipped_is_refused(self):
        self.refuses("check-files", {"tests/a_test.cpp": "TEST(A, DISABLED_B) {}\n"}, "runs always")
        self.refuses("check-files", {"tests/a_test.cpp": "TEST(A, B) { GTEST_SKIP(); }\n"}, "runs always")

    def test_a_test_that_sleeps_is_refused(self):
        self.refuses("check-files", {"tests/a_test.cpp": "TEST(A, B) { usleep(1); }\n"}, "wait for the condition")

    def test_the_environment_is_read_with_secure_getenv_alone(self):
        self.refuses("check-files", {"platform/host/a.cpp": 'auto a = getenv("A");\n'}, "secure_getenv")
        self.accepts("check-files", {"platform/host/a.cpp": 'auto a = secure_getenv("A");\n'})


class Documents(CheckCase):
    def test_a_link_that_leads_nowhere_is_refused(self):
        self.refuses("check-documents", {"docs/a.md": "[b](b.md)\n"}, "docs/a.md:1: leads nowhere: b.md")
        self.accepts("check-documents", {"docs/a.md": "[b](b.md#part) [c](../c.md)\n", "docs/b.md": "", "c.md": ""})

    def test_a_program_that_is_shown_is_the_one_in_the_tree(self):
        readme = "<!-- examples/a.cpp -->\n```cpp\nint a;\n```\n"
        self.accepts("check-documents", {"README.md": readme, "examples/a.cpp": "int a;\n"})
        self.refuses("check-documents", {"README.md": readme, "examples/a.cpp": "int b;\n"}, "differs from examples/a.cpp")
        self.refuses("check-documents", {"README.md": readme}, "is not there")

    def test_fixing_writes_the_program_into_the_document(self):
        with Tree({"README.md": "<!-- a.cpp -->\n```cpp\n```\n", "a.cpp": "int a;\n"}) as root:
            self.assertEqual(run("check-documents", "--fix", root).returncode, 0)
            with open(os.path.join(root, "README.md"), encoding="utf-8") as file:
                self.assertEqual(file.read(), "<!-- a.cpp -->\n```cpp\nint a;\n```\n")


class Headers(unittest.TestCase):
    def check(self, path, text):
        with Tree({path: text}) as root:
            return run("check-headers", "--root", root)

    def test_a_header_that_compiles_alone_passes(self):
        self.assertEqual(self.check("platform/base/a.h", GOOD_HEADER).returncode, 0)

    def test_a_header_that_lacks_an_include_is_refused(self):
        result = self.check("platform/base/a.h", "#pragma once\nstd::string a();\n")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("platform/base/a.h: does not compile alone", result.stderr)

    def test_a_header_that_cannot_be_included_twice_is_refused(self):
        self.assertNotEqual(self.check("platform/base/a.h", "struct A {};\n").returncode, 0)

    def test_a_header_with_a_warning_is_refused(self):
        self.assertNotEqual(self.check("platform/base/a.h", "#pragma once\ninline void f(int a) {}\n").returncode, 0)

    def test_a_header_in_plain_c_that_needs_cxx_is_refused(self):
        header = "include/kestrelwood/ksw_subsystem.h"
        self.assertNotEqual(self.check(header, "#pragma once\nclass A {};\n").returncode, 0)
        self.assertEqual(self.check(header, "#pragma once\nint ksw_a(void);\n").returncode, 0)


class Layout(unittest.TestCase):
    def test_a_file_that_is_laid_out_otherwise_is_refused(self):
        with open(os.path.join(ROOT, ".clang-format"), encoding="utf-8") as file:
            style = file.read()
        with open(os.path.join(ROOT, "scripts/check-format"), encoding="utf-8") as file:
            script = file.read()
        with open(os.path.join(ROOT, "scripts/sources"), encoding="utf-8") as file:
            sources = file.read()
        files = {".clang-format": style, "scripts/check-format": script, "scripts/sources": sources}
        for text, is_accepted in (("int a;\n", True), ("int  a ;\n", False)):
            with Tree(files | {"platform/base/a.cpp": text}) as root:
                for name in ("check-format", "sources"):
                    os.chmod(os.path.join(root, "scripts", name), 0o755)
                result = subprocess.run([os.path.join(root, "scripts/check-format")], capture_output=True, check=False)
            self.assertEqual(result.returncode == 0, is_accepted, text)


class Test(unittest.TestCase):
    def test_help_names_every_stage_and_runs_none(self):
        result = run("test", "--help")
        self.assertEqual(result.returncode, 0)
        for stage in ("lint", "release", "asan", "tsan", "fuzz", "bench"):
            self.assertIn(f"\n  {stage} ", result.stdout)

    def test_a_stage_that_there_is_not_is_wrong_usage(self):
        self.assertEqual(run("test", "lnit").returncode, 2)


class Setup(unittest.TestCase):
    def run_setup(self, status, tools=""):
        """Runs scripts/setup where dpkg-query and apt-get are stand-ins: apt-get writes down how it was called."""
        files = {
            "bin/dpkg-query": f"#!/bin/sh\n{status}\n",
            "bin/apt-get": '#!/bin/sh\necho "$*" >>"$CALLS"\n',
            "bin/id": "#!/bin/sh\necho 0\n",
            "calls": "",
        }
        with Tree(files) as root:
            for name in ("dpkg-query", "apt-get", "id"):
                os.chmod(os.path.join(root, "bin", name), 0o755)
            environment = {"PATH": f"{root}/bin:/usr/bin:/bin", "CALLS": os.path.join(root, "calls")}
            result = subprocess.run([os.path.join(ROOT, "scripts/setup")], env=environment, capture_output=True, text=True,
                                    check=False)
            with open(os.path.join(root, "calls"), encoding="utf-8") as file:
                return result, file.read().splitlines()

    def test_with_nothing_missing_it_installs_nothing(self):
        result, calls = self.run_setup("echo installed")
        self.assertEqual((result.returncode, result.stdout, calls), (0, "setup: nothing to install\n", []))

    def test_it_installs_what_is_missing_and_only_that(self):
        result, calls = self.run_setup('[ "$4" = cmake ] || [ "$4" = git ] || echo installed')
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("setup: installed: cmake git", result.stdout)
        self.assertEqual(len(calls), 2)
        self.assertTrue(calls[0].endswith("update"))
        self.assertTrue(calls[1].endswith("install -y --no-install-recommends cmake git"))


if __name__ == "__main__":
    sys.exit(unittest.main())
