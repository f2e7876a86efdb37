"""docs/wire.md has the methods of the contract: their numbers, names, arguments and replies."""

import os
import pathlib
import re
import unittest

SOURCE_DIR = pathlib.Path(os.environ.get("KSW_SOURCE_DIR", pathlib.Path(__file__).parents[3])).resolve()
# Each service's list in contract_rows.h, which other tests hold against the code.
SERVICES = {
    "com.velmont.kestrelwood": "Manager",
    "com.velmont.kestrelwood.roster": "Roster",
    "com.velmont.kestrelwood.registrar": "Registrar",
    "com.velmont.kestrelwood.notifications": "Notification",
    "com.velmont.kestrelwoodagent": "Agent",
}
# What the page says beyond the type: a name for people, or what the bytes hold.
TYPES = {"code": "int64", "authorization": "byte data"}


def type_of(text):
    text = re.sub(r"\(.*?\)|: archive of .*", "", text).replace("`", "").strip()
    for name in ["uint64", "int64", "bool", "URL"]:
        text = re.sub(rf"^{name} .*", name, text)
    return TYPES.get(text, text)


def types_of(cell):
    # What stands in brackets may have commas of its own.
    cell = re.sub(r"\([^()]*\)", "", cell)
    return [] if cell.strip() == "none" else [type_of(text) for text in cell.split(",")]


def documented():
    page = (SOURCE_DIR / "docs" / "wire.md").read_text(encoding="utf-8")
    for section in page.split("\n## ")[1:]:
        title, _, text = section.partition("\n")
        rows = re.findall(r"^\| (\d+) \| `(.*?)` \| (.*) \| (.*) \|$", text, re.MULTILINE)
        yield title, [(int(number), name, types_of(arguments), types_of(reply)) for number, name, arguments, reply in rows]


def agreed(service):
    text = (SOURCE_DIR / "tests" / "client" / "protocol" / "contract_rows.h").read_text(encoding="utf-8")
    rows = re.search(rf"Row k{service}Methods\[\] = {{(.*?)^}};", text, re.MULTILINE | re.DOTALL).group(1)
    fields = re.findall(r'\{(\d+),\s*"(.*?)",\s*"(.*?)",\s*"(.*?)"\}', rows)
    return [(int(number), name, *(list(filter(None, types.split(", "))) for types in [arguments, reply]))
            for number, name, arguments, reply in fields]  # fmt: skip


class ThePageAboutTheWire(unittest.TestCase):
    def test_has_every_method_as_it_is(self):
        pages = dict(documented())
        for title, service in SERVICES.items():
            self.assertEqual(pages[title], agreed(service), title)


if __name__ == "__main__":
    unittest.main()
