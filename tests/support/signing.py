"""Certificates made on the spot, a host that trusts some of them, and a reader of signatures that knows nothing but
docs/signatures.md."""

import base64
import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from live_daemon import BINARY_DIR, NOBODY, REQUEST_SECONDS, program

TAIL = b"~Kestrelwood signature~\n"
CONFIGURATION = """
[req]
distinguished_name = name
[name]
[ca]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign
[signer]
keyUsage = critical,digitalSignature
extendedKeyUsage = codeSigning
[mail]
extendedKeyUsage = emailProtection
"""
KEYS = {"rsa": ["rsa:2048"], "p256": ["ec", "-pkeyopt", "ec_paramgen_curve:P-256"], "ed25519": ["ed25519"]}


def openssl(*arguments, data=None):
    done = subprocess.run(["openssl", *map(str, arguments)], input=data, capture_output=True, timeout=REQUEST_SECONDS)
    assert done.returncode == 0, done.stderr.decode()
    return done.stdout


class Identity:
    """A key, its certificate, and the chain that begins with that: files in a folder."""

    def __init__(self, folder, name, issuer=None, section=None, key="p256", organization="Example Ltd"):
        self.key, self.certificate, self.chain = (folder / f"{name}.{end}" for end in ("key", "pem", "chain"))
        configuration = folder / "openssl.cnf"
        configuration.write_text(CONFIGURATION)
        above = [] if issuer is None else ["-CA", issuer.certificate, "-CAkey", issuer.key]
        openssl(
            "req", "-x509", "-nodes", "-config", configuration, "-newkey", *KEYS[key], "-keyout", self.key, "-out",
            self.certificate, "-days", "2", "-extensions", section or ("ca" if issuer is None else "signer"), "-utf8",
            "-subj", f"/CN={name}/O={organization}", *above,
        )  # fmt: skip
        self.chain.write_bytes(self.certificate.read_bytes() + (b"" if issuer is None else issuer.chain.read_bytes()))

    @property
    def arguments(self):
        return ["--key", self.key, "--chain", self.chain]


class WithSigners(unittest.TestCase):
    """A host root that trusts `authority`, whom `signer` stands below; a folder of each test's own."""

    @classmethod
    def setUpClass(cls):
        cls.host = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="ksw-host-"))).resolve()
        cls.certificates = cls.host / "certificates"
        cls.certificates.mkdir()
        cls.authority = Identity(cls.certificates, "authority")
        cls.signer = Identity(cls.certificates, "signer", cls.authority)
        cls.trust(cls.authority)

    @classmethod
    def trust(cls, identity, place="etc/kestrelwood/trust"):
        (cls.host / place).mkdir(parents=True, exist_ok=True)
        shutil.copy(identity.certificate, cls.host / place)

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="ksw-code-")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()

    def environment(self):
        kept = {key: value for key, value in os.environ.items() if not key.startswith("KESTRELWOOD")}
        return kept | {"KESTRELWOOD_ROOT": str(self.host)}

    def tool(self, name, *arguments, status=0, variables=None, **options):
        given = {"stdin": subprocess.DEVNULL} | options
        done = subprocess.run(
            [program(name), *map(str, arguments)], env=self.environment() | (variables or {}), capture_output=True,
            text=True, timeout=REQUEST_SECONDS, **given,
        )  # fmt: skip
        self.assertEqual(done.returncode, status, f"{arguments}\n{done.stdout}\n{done.stderr}")
        return done

    def tool_as_nobody(self, name, *arguments):
        """Without the leave that uid 0 has; copies, because the build folder may be closed to others."""
        self.host.chmod(0o755)
        programs = self.host / "bin"
        programs.mkdir(exist_ok=True)
        shutil.copy(program(name), programs)
        shutil.copy(BINARY_DIR / "lib" / "libkestrelwood.so.1", programs)
        who = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}
        return subprocess.run(
            [programs / name, *map(str, arguments)], env=self.environment() | {"LD_LIBRARY_PATH": str(programs)},
            capture_output=True, text=True, timeout=REQUEST_SECONDS, stdin=subprocess.DEVNULL, **who,
        )  # fmt: skip

    def kswsign(self, *arguments, **options):
        return self.tool("kswsign", *arguments, **options)

    def sign(self, path, *arguments, identity=None, identifier="com.example.tool", **options):
        who = (identity or self.signer).arguments
        return self.kswsign("sign", *who, "--identifier", identifier, *arguments, path, **options)

    def file(self, name, content, mode=0o755):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        path.chmod(mode)
        return path

    def elf(self, name="tool", source="/bin/echo"):
        return self.file(name, pathlib.Path(source).read_bytes())


def read_cbor(data, at=0):
    """The item that begins there, and where it ends; definite lengths and shortest heads only."""
    major, small = data[at] >> 5, data[at] & 31
    at += 1
    value = small
    if small >= 24:
        size = 1 << (small - 24)
        assert size <= 8, "an indefinite length"
        value = int.from_bytes(data[at : at + size], "big")
        assert value >= (24 if size == 1 else 1 << (size * 4)), "a head that is too long"
        at += size
    if major == 0:
        return value, at
    if major in (2, 3):
        content = data[at : at + value]
        assert len(content) == value, "cut short"
        return (content if major == 2 else content.decode()), at + value
    if major in (4, 5):
        items = []
        for _ in range(value * (major - 3)):
            item, at = read_cbor(data, at)
            items.append(item)
        return (items if major == 4 else dict(zip(items[::2], items[1::2], strict=True))), at
    assert (major, value) == (7, 22), "neither of the kinds that a signature is made of"
    return None, at


def write_cbor(value):
    def head(major, number):
        if number < 24:
            return bytes([major << 5 | number])
        size = next(size for size in (1, 2, 4, 8) if number < 1 << 8 * size)
        return bytes([major << 5 | 23 + size.bit_length()]) + number.to_bytes(size, "big")

    if value is None:
        return b"\xf6"
    if isinstance(value, int):
        return head(0, value)
    if isinstance(value, bytes):
        return head(2, len(value)) + value
    if isinstance(value, str):
        return head(3, len(value.encode())) + value.encode()
    if isinstance(value, list):
        return head(4, len(value)) + b"".join(map(write_cbor, value))
    return head(5, len(value)) + b"".join(write_cbor(part) for pair in value.items() for part in pair)


def is_script(content):
    return content.startswith(b"#!")


def taken_apart(content):
    """The code, the bytes of the code directory, and the message that signs it."""
    assert content.endswith(TAIL)
    length = content[-32:-24]
    length = int(length, 16) if is_script(content) else int.from_bytes(length, "big")
    code, between = content[: -32 - length], content[-32 - length : -32]
    if is_script(content):
        assert between.startswith(b"\n# ") and between.endswith(b" ")
        between = base64.b64decode(between[3:-1], validate=True)
    (directory, message), end = read_cbor(between)
    assert end == len(between)
    return code, directory, message


def put_together(code, directory, message):
    signature = write_cbor([directory, message])
    if is_script(code):
        signature = b"\n# " + base64.b64encode(signature) + b" "
        return code + signature + f"{len(signature):08x}".encode() + TAIL
    return code + signature + len(signature).to_bytes(8, "big") + TAIL


def directory_of(code, identifier="com.example.tool"):
    """The smallest code directory of a file."""
    kind = "generic script" if is_script(code) else "elf executable" if code[:4] == b"\x7fELF" else "generic file"
    return write_cbor({1: 1, 2: identifier, 4: kind, 5: len(code), 6: hashlib.sha256(code).digest()})
