"""URLs are resolved as Python's urllib resolves them, have the same paths, and are made of paths in the same way.

Where urllib leaves RFC 3986, nothing is asked: it takes "http:g" for a relative reference, drops the signs of an empty
query or fragment, closes up repeated slashes, keeps the fragment of the base for an empty reference, and the dots in a
reference with an authority."""
import os
import random
import subprocess
import unittest
import urllib.parse

TOOL = os.path.join(os.environ["KSW_BINARY_DIR"], "bin", "url_tool")
SEED = 3986
PAIRS = 4000
PATHS = 1000
# What a path's bytes need not be encoded as.
PLAIN = "/!$&'()*+,;=:@-._~"

RFC_BASE = "http://a/b/c/d;p?q"
RFC_EXAMPLES = {
    "g:h": "g:h", "g": "http://a/b/c/g", "./g": "http://a/b/c/g", "g/": "http://a/b/c/g/", "/g": "http://a/g",
    "//g": "http://g", "?y": "http://a/b/c/d;p?y", "g?y": "http://a/b/c/g?y", "#s": "http://a/b/c/d;p?q#s",
    "g#s": "http://a/b/c/g#s", "g?y#s": "http://a/b/c/g?y#s", ";x": "http://a/b/c/;x", "g;x": "http://a/b/c/g;x",
    "g;x?y#s": "http://a/b/c/g;x?y#s", "": "http://a/b/c/d;p?q", ".": "http://a/b/c/", "./": "http://a/b/c/",
    "..": "http://a/b/", "../": "http://a/b/", "../g": "http://a/b/g", "../..": "http://a/", "../../": "http://a/",
    "../../g": "http://a/g", "../../../g": "http://a/g", "../../../../g": "http://a/g", "/./g": "http://a/g",
    "/../g": "http://a/g", "g.": "http://a/b/c/g.", ".g": "http://a/b/c/.g", "g..": "http://a/b/c/g..",
    "..g": "http://a/b/c/..g", "./../g": "http://a/b/g", "./g/.": "http://a/b/c/g/", "g/./h": "http://a/b/c/g/h",
    "g/../h": "http://a/b/c/h", "g;x=1/./y": "http://a/b/c/g;x=1/y", "g;x=1/../y": "http://a/b/c/y",
    "g?y/./x": "http://a/b/c/g?y/./x", "g?y/../x": "http://a/b/c/g?y/../x", "g#s/./x": "http://a/b/c/g#s/./x",
    "g#s/../x": "http://a/b/c/g#s/../x",
}


def ask(lines):
    result = subprocess.run([TOOL], input="".join(line + "\n" for line in lines), capture_output=True, check=True,
                            text=True, timeout=60)
    return result.stdout.splitlines()


def path_of(url):
    """The bytes of the URL's path, without slashes at its end."""
    path = urllib.parse.urlsplit(url).path
    return urllib.parse.unquote_to_bytes(path.rstrip("/") or path[:1])


class Maker:
    SEGMENTS = ["a", "b.c", "...", "d%20e", "%2F", "x=1", "p,q", "@", "~", "-", "%e4", "$&'()*+!"]
    DOTS = [".", ".."]

    def __init__(self):
        self.random = random.Random(SEED)

    def path(self, is_absolute, with_dots=True):
        choices = self.SEGMENTS + (self.DOTS * 3 if with_dots else [])
        segments = [self.random.choice(choices) for _ in range(self.random.randint(0, 6))]
        path = "/".join(segments) + ("/" if segments and self.random.random() < 0.3 else "")
        return "/" + path if is_absolute else path

    def tail(self, with_fragment):
        tail = ""
        if self.random.random() < 0.3:
            tail += "?" + self.random.choice(["q", "q=/../x", "a=b&c", "?", "q:@/"])
        if with_fragment and self.random.random() < 0.3:
            tail += "#" + self.random.choice(["f", "f/../g", "f?g"])
        return tail

    def base(self):
        if self.random.random() < 0.3:
            return "file://" + self.path(True)
        authority = self.random.choice(["host", "user@host:80", "a.b"])
        return "http://" + authority + self.path(True) + self.tail(False)

    def reference(self):
        kind = self.random.random()
        if kind < 0.1:
            return "ftp://other" + self.path(True, with_dots=False) + self.tail(True)
        if kind < 0.2:
            return "//other" + self.path(True, with_dots=False) + self.tail(True)
        return self.path(kind < 0.4) + self.tail(True)


class Urls(unittest.TestCase):
    def test_are_resolved_as_the_examples_of_the_rfc(self):
        answers = ask(f"r\t{RFC_BASE}\t{reference}" for reference in RFC_EXAMPLES)
        for (reference, expected), answer in zip(RFC_EXAMPLES.items(), answers, strict=True):
            with self.subTest(reference=reference):
                self.assertEqual(answer.split("\t")[0], expected)
                self.assertEqual(urllib.parse.urljoin(RFC_BASE, reference), expected)

    def test_are_resolved_as_urllib_resolves_them(self):
        maker = Maker()
        pairs = [(maker.base(), maker.reference()) for _ in range(PAIRS)]
        answers = ask(f"r\t{base}\t{reference}" for base, reference in pairs)
        for (base, reference), answer in zip(pairs, answers, strict=True):
            with self.subTest(base=base, reference=reference):
                expected = urllib.parse.urljoin(base, reference)
                text, path = answer.split("\t")
                self.assertEqual(text, expected)
                self.assertEqual(bytes.fromhex(path), path_of(expected))

    def test_are_made_of_paths_as_urllib_quotes_them(self):
        maker = Maker()
        paths = [b"/" + bytes(maker.random.randrange(1, 256) for _ in range(maker.random.randint(0, 40))).strip(b"/")
                 for _ in range(PATHS)]
        answers = ask("f\t" + path.hex() for path in paths)
        for path, answer in zip(paths, answers, strict=True):
            with self.subTest(path=path):
                text, back = answer.split("\t")
                self.assertEqual(text, "file://" + urllib.parse.quote_from_bytes(path, safe=PLAIN))
                self.assertEqual(bytes.fromhex(back), path)


if __name__ == "__main__":
    unittest.main()
