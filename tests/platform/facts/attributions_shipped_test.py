"""The attribution table that is shipped keeps to its schema, and another reader of property lists agrees with ours
on what stands in it."""
import json
import os
import plistlib
import re
import struct
import subprocess
import unittest

TABLE = os.path.join(os.environ["KSW_SOURCE_DIR"], "share", "Resources", "attributions.plist")
TOOL = os.path.join(os.environ["KSW_BINARY_DIR"], "bin", "plist_tool")
LABEL = re.compile(r"^[a-z]+(\.[a-z0-9_-]+){2,}$")
BUNDLE = re.compile(r"^[a-z]+(\.[A-Za-z0-9_-]+){2,}$")
TEAM = re.compile(r"^[A-Z0-9]{10}$")


def as_ours(value):
    """The value as plist_tool dumps it."""
    if isinstance(value, str):
        return ["string", value.encode().hex()]
    if isinstance(value, list):
        return ["array", [as_ours(element) for element in value]]
    return ["dict", [[key.encode().hex(), as_ours(value[key])] for key in sorted(value, key=str.encode)]]


class TheShippedAttributionTable(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        with open(TABLE, "rb") as file:
            cls.bytes = file.read()
        cls.table = plistlib.loads(cls.bytes)

    def test_has_entries_in_the_order_of_their_labels(self):
        self.assertGreater(len(self.table), 20)
        self.assertEqual(list(self.table), sorted(self.table))

    def test_names_a_team_and_a_name_to_show_in_every_entry(self):
        for label, entry in self.table.items():
            with self.subTest(label):
                self.assertRegex(label, LABEL)
                self.assertLessEqual(set(entry), {"TeamIdentifier", "Attribution", "AssociatedBundleIdentifiers"})
                self.assertRegex(entry["TeamIdentifier"], TEAM)
                self.assertEqual(entry["Attribution"], entry["Attribution"].strip())
                self.assertTrue(entry["Attribution"].isprintable() and entry["Attribution"])

    def test_associates_bundle_identifiers_only(self):
        for label, entry in self.table.items():
            with self.subTest(label):
                applications = entry.get("AssociatedBundleIdentifiers", ["org.example.none"])
                self.assertTrue(applications, "an empty list is left out")
                self.assertEqual(len(applications), len(set(applications)))
                for application in applications:
                    self.assertRegex(application, BUNDLE)

    def test_reads_the_same_for_another_reader(self):
        request = b"d" + struct.pack(">I", len(self.bytes)) + self.bytes
        reply = subprocess.run([TOOL], input=request, capture_output=True, check=True, timeout=60).stdout
        self.assertEqual(reply[:1], b"+", reply)
        self.assertEqual(json.loads(reply[5:]), as_ours(self.table))


if __name__ == "__main__":
    unittest.main()
