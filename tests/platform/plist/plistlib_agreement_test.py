"""Property lists agree with Python's plistlib: what it writes we read, what we write it reads, and every value is
the same on both sides, in both forms and directions."""
import datetime
import json
import os
import plistlib
import random
import struct
import subprocess
import unittest

TOOL = os.path.join(os.environ["KSW_BINARY_DIR"], "bin", "plist_tool")
FORMS = {"x": plistlib.FMT_XML, "b": plistlib.FMT_BINARY}
REFERENCE = datetime.datetime(2001, 1, 1)
SEED = 20010101
RANDOM_VALUES = 150


def bits(number):
    return str(struct.unpack(">Q", struct.pack(">d", number))[0])


def dump(value):
    """The value as plist_tool dumps it."""
    if isinstance(value, bool):
        return ["bool", "1" if value else "0"]
    if isinstance(value, int):
        return ["int", str(value)]
    if isinstance(value, float):
        return ["real", "nan" if value != value else bits(value)]
    if isinstance(value, str):
        return ["string", value.encode().hex()]
    if isinstance(value, bytes):
        return ["data", value.hex()]
    if isinstance(value, datetime.datetime):
        return ["date", bits((value - REFERENCE).total_seconds())]
    if isinstance(value, list):
        return ["array", [dump(element) for element in value]]
    # Our dictionaries are ordered by the bytes of their keys.
    return ["dict", [[key.encode().hex(), dump(value[key])] for key in sorted(value, key=str.encode)]]


def without_nan_bits(dumped):
    """A NaN has many bit patterns; all of them are the same NaN."""
    if dumped[0] == "real" and dumped[1] != "nan":
        number = struct.unpack(">d", struct.pack(">Q", int(dumped[1])))[0]
        return ["real", "nan"] if number != number else dumped
    if dumped[0] == "array":
        return ["array", [without_nan_bits(element) for element in dumped[1]]]
    if dumped[0] == "dict":
        return ["dict", [[key, without_nan_bits(element)] for key, element in dumped[1]]]
    return dumped


class Maker:
    """Random values that both forms can hold."""
    # plistlib's XML writer turns carriage returns into line feeds, so none here.
    ALPHABET = "abcXYZ019 <>&\"'\n\t/äßéΩя中文\u2028\ufffd🦅😀\U0010fffd"
    BOUNDARIES = [edge + step for edge in (0, 2**7, 2**8, 2**15, 2**16, 2**31, 2**32, 2**63, 2**64 - 2, -(2**63) + 1)
                  for step in (-1, 0, 1)]

    def __init__(self, seed):
        self.random = random.Random(seed)

    def text(self):
        return "".join(self.random.choices(self.ALPHABET, k=self.random.choice([0, 1, 5, 14, 15, 16, 40, 300])))

    def real(self):
        while True:
            number = struct.unpack(">d", self.random.randbytes(8))[0]
            if number == number:
                return number

    def scalar(self):
        return self.random.choice([
            self.text,
            lambda: self.random.choice([True, False]),
            lambda: self.random.choice(self.BOUNDARIES),
            lambda: self.random.randrange(-2**63, 2**64),
            self.real,
            lambda: self.random.choice([0.0, -0.0, 1.5, 1e300, 5e-324, float("inf"), float("-inf"), 0.1]),
            lambda: REFERENCE + datetime.timedelta(seconds=self.random.randrange(-6 * 10**10, 2 * 10**11)),
            lambda: self.random.randbytes(self.random.choice([0, 1, 2, 3, 14, 15, 16, 56, 57, 58, 255, 256, 400])),
        ])()

    def value(self, depth=0):
        kind = self.random.random()
        if depth == 5 or kind < 0.5:
            return self.scalar()
        count = self.random.choice([0, 1, 2, 3, 14, 15, 16]) if depth < 3 else self.random.randrange(3)
        if kind < 0.75:
            return [self.value(depth + 1) for _ in range(count)]
        return {self.text(): self.value(depth + 1) for _ in range(count)}


def nested(depth):
    value = "inside"
    for level in range(depth):
        value = [value] if level % 2 else {"k": value}
    return value


EDGES = {
    "empty array": [], "empty dictionary": {}, "empty text": "", "empty data": b"", "empty key": {"": 1},
    "text beyond the basic plane": "🦅 \U00010000 \U0010ffff", "boundary integers": Maker.BOUNDARIES,
    "least and greatest": [-2**63, 2**63 - 1, 2**63, 2**64 - 1],
    "equal numbers of different types": [1, 1.0, True, 0, 0.0, -0.0, False],
    "not a number": [float("nan")], "infinities": [float("inf"), float("-inf")],
    "dates": [datetime.datetime(1, 1, 1), datetime.datetime(1970, 1, 1), datetime.datetime(2000, 2, 29, 23, 59, 59),
              REFERENCE, datetime.datetime(9999, 12, 31, 23, 59, 59)],
    "data": [bytes(range(256)), b"\0", b"\0\0", b"\0\0\0"], "deep": nested(64),
    "keys out of order": {"b": 1, "a": 2, "ä": 3, "Z": 4, "🦅": 5, "\uffee": 6},
    "repeated": ["same"] * 500 + [b"same"] * 500, "wide": list(range(5_000)),
    "markup": "<string>&amp;</string> ]]> <!-- -->", "white space": " \t\n a \n",
}


class Agreement(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.tool = subprocess.Popen([TOOL], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    @classmethod
    def tearDownClass(cls):
        cls.tool.stdin.close()
        status = cls.tool.wait()
        cls.tool.stdout.close()
        assert status == 0, status

    def convert(self, form, content):
        self.tool.stdin.write(form.encode() + struct.pack(">I", len(content)) + content)
        self.tool.stdin.flush()
        status, length = struct.unpack(">cI", self.tool.stdout.read(5))
        reply = self.tool.stdout.read(length)
        self.assertEqual(status, b"+", reply.decode(errors="replace") + "\n" + repr(content[:2000]))
        return reply

    def check(self, value):
        for name, form in FORMS.items():
            theirs = plistlib.dumps(value, fmt=form)
            # Not of the value itself: their binary writer takes 0.0 and -0.0 for the same.
            expected = without_nan_bits(dump(plistlib.loads(theirs, fmt=form)))
            with self.subTest(theirs=name):
                self.assertEqual(without_nan_bits(json.loads(self.convert("d", theirs))), expected)
            for wanted, wanted_form in FORMS.items():
                with self.subTest(theirs=name, ours=wanted):
                    ours = self.convert(wanted, theirs)
                    self.assertEqual(without_nan_bits(dump(plistlib.loads(ours, fmt=wanted_form))), expected)
                    self.assertEqual(without_nan_bits(json.loads(self.convert("d", ours))), expected)

    def test_edges(self):
        for name, value in EDGES.items():
            with self.subTest(name):
                self.check(value)

    def test_random_values(self):
        for number in range(RANDOM_VALUES):
            with self.subTest(seed=SEED + number):
                self.check(Maker(SEED + number).value())

    def test_carriage_returns_survive_our_xml(self):
        value = "a\rb\r\nc"
        ours = self.convert("x", plistlib.dumps(value, fmt=plistlib.FMT_BINARY))
        self.assertEqual(plistlib.loads(ours), value)

    def test_our_binary_is_no_larger_than_theirs(self):
        for number in range(50):
            theirs = plistlib.dumps(Maker(SEED + number).value(), fmt=plistlib.FMT_BINARY)
            self.assertLessEqual(len(self.convert("b", theirs)), len(theirs))


if __name__ == "__main__":
    unittest.main()
