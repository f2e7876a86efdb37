#!/usr/bin/python3
"""Another language's CBOR library reads an archive that we wrote, and writes one that we read."""
import os
import re
import subprocess
import sys
import unittest
import uuid

import cbor2
from cbor2 import CBORTag

TOOL = os.path.join(os.environ["KSW_BINARY_DIR"], "bin", "archive_tool")


def run(verb, data=b""):
    return subprocess.run([TOOL, verb], input=data, capture_output=True, check=False, timeout=60)


def read_by_tool(data, verb="read"):
    """The fields of each item as (name, text) pairs; or the error's text."""
    done = run(verb, data)
    if done.returncode != 0:
        return done.stderr.decode().strip()
    items = []
    for line in done.stdout.decode().splitlines():
        name, _, text = line.partition("=")
        if name == "uuid":
            items.append({})
        items[-1].setdefault(name, []).append(text)
    return items


def item(**keys):
    return CBORTag(27, ["KSWItem", keys])


class TheArchive(unittest.TestCase):
    def setUp(self):
        done = run("write")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.archive = done.stdout

    def test_is_read_by_another_library(self):
        root = cbor2.loads(self.archive)["root"]
        name, agent = root[0].value
        self.assertEqual(name, "KSWItem")
        self.assertEqual(agent["identifier"], "8.com.example.agent")
        self.assertEqual(agent["uuid"], uuid.UUID("FFEEDDCC-BBAA-9988-7766-554433221100"))
        self.assertEqual(agent["generation"], -3)
        self.assertEqual(agent["modificationDate"], 12.5)
        self.assertEqual(agent["sha256"], b"\xab" * 32)
        self.assertEqual(agent["programArguments"], ["agent", "--now"])
        self.assertIs(agent["editable"], True)
        self.assertNotIn("name", agent)

    def test_shows_its_cycles_to_another_library(self):
        agent, application = cbor2.loads(self.archive)["root"]
        self.assertIs(agent.value[1]["container"], application)
        self.assertIs(application.value[1]["items"][0], agent)
        self.assertEqual(application.value[1]["name"], "Example \u2603")

    def test_has_urls_that_another_library_knows(self):
        agent, application = cbor2.loads(self.archive)["root"]
        url = agent.value[1]["url"]
        self.assertEqual(application.value[1]["url"], CBORTag(32, "file:///Applications/Example.app/"))
        self.assertEqual(url, CBORTag(27, ["URL", {
            "relative": "Contents/agent.plist", "base": CBORTag(32, "file:///Applications/Example.app/")}]))

    def test_has_keys_in_the_order_of_the_table(self):
        agent = cbor2.loads(self.archive)["root"][0].value[1]
        self.assertEqual(list(agent)[:4], ["uuid", "identifier", "generation", "flags"])
        self.assertEqual(list(agent)[-2:], ["container", "items"])

    def test_is_read_by_us(self):
        agent, application = read_by_tool(self.archive)
        self.assertEqual(agent["url"], ["file:///Applications/Example.app/Contents/agent.plist"])
        self.assertEqual(agent["argument"], ["agent", "--now"])
        self.assertEqual(agent["container"], ["2.com.example.app"])
        self.assertEqual(application["children"], ["1"])


class AnArchiveOfAnotherLibrary(unittest.TestCase):
    def test_is_read_by_us(self):
        identity = uuid.uuid4()
        items = read_by_tool(cbor2.dumps({"root": [item(
            name="Snow \u2603", type=8, uuid=identity, identifier="8.x", url=CBORTag(32, "file:///x"),
            modificationDate=1.25, programArguments=["a", "b"], editable=True, generation=7, unknown={"later": [1]})]}))
        self.assertEqual(items[0]["uuid"], [str(identity).upper()])
        self.assertEqual(items[0]["name"], ["Snow \u2603"])
        self.assertEqual(items[0]["url"], ["file:///x"])
        self.assertEqual(items[0]["modificationDate"], ["1.250000"])
        self.assertEqual(items[0]["argument"], ["a", "b"])
        self.assertEqual(items[0]["generation"], ["7"])
        self.assertEqual(items[0]["children"], ["0"])

    def test_in_the_library_s_canonical_form_is_read_by_us(self):
        items = read_by_tool(cbor2.dumps({"root": [item(modificationDate=1.5, identifier="8.x")]}, canonical=True))
        self.assertEqual(items[0]["modificationDate"], ["1.500000"])

    def test_may_refer_to_an_object_twice(self):
        shared = CBORTag(28, item(identifier="2.app"))
        items = read_by_tool(cbor2.dumps(
            {"root": [item(identifier="8.a", container=shared), item(identifier="8.b", container=CBORTag(29, 0))]}))
        self.assertEqual([one["container"] for one in items], [["2.app"], ["2.app"]])

    def test_has_no_children_for_the_service_coder(self):
        items = read_by_tool(cbor2.dumps({"root": [item(items=[item(identifier="8.child")])]}), "read-service")
        self.assertEqual(items[0]["children"], ["none"])

    def test_is_refused_with_the_place_of_what_is_wrong(self):
        self.assertEqual(read_by_tool(cbor2.dumps({"root": [item(), item(container=item(url="x"))]})),
                         "root[1].container.url: URL expected")
        self.assertEqual(read_by_tool(cbor2.dumps({"root": [CBORTag(27, ["Other", {}])]})),
                         "root[0]: object of a class that is not allowed here")


class ThePageAboutArchives(unittest.TestCase):
    """What docs/archive.md shows is so."""

    def setUp(self):
        with open(os.path.join(os.environ["KSW_SOURCE_DIR"], "docs", "archive.md"), encoding="utf-8") as page:
            text = page.read()
        listing = re.search(r"```\n(a1 .*?)```", text, re.DOTALL).group(1)
        digits = [re.match(r" *((?:[0-9a-f]+ ?)+)(?:  |$)", line).group(1)
                  for line in listing.splitlines()]
        self.example = bytes.fromhex("".join(digits).replace(" ", ""))
        self.program = re.search(r"```python\n(.*?)```", text, re.DOTALL).group(1)

    def test_has_an_example_that_we_read(self):
        item_, = read_by_tool(self.example)
        self.assertEqual((item_["identifier"], item_["url"], item_["container"]), (["8.a"], ["file:/x"], ["2.a"]))

    def test_has_a_program_that_reads_it(self):
        done = subprocess.run([sys.executable, "-c", self.program], input=self.example, capture_output=True,
                              check=False, timeout=60)
        self.assertEqual(done.stdout.decode(), "KSWItem 8.a None\n  at file:/x\n  in 2.a\n", done.stderr)


if __name__ == "__main__":
    unittest.main()
