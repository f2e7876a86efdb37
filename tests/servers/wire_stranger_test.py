"""A stranger's peer: knows docs/wire.md and docs/archive.md, CBOR and sockets, and nothing else of this tree."""

import os
import pathlib
import socket
import struct
import sys
import unittest
import uuid

import cbor2

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))
from live_daemon import LiveDaemon  # noqa: E402

MANAGER = "com.velmont.kestrelwood"
REGISTRAR = "com.velmont.kestrelwood.registrar"
REQUEST, REPLY, REFUSAL = 1, 2, 3
NO_SUCH_METHOD, DOES_NOT_FIT, OTHER_VERSION = 1, 2, 7
VERSIONS = "frame: the peer speaks version {} of the wire, and this side version 1"
MIB = 1024 * 1024
REQUEST_MAX = 16 * MIB if os.getuid() == 0 else MIB
EVERY_USER = 4294967294

LEGACY_AGENT, LEGACY_DAEMON = 0x10008, 0x10010
REGISTER = "registerItemWithBundleURL:type:relativeURL:configuration:uid:reply:"
UNREGISTER = "unregisterItemWithBundleURL:type:relativeURL:uid:reply:"
EFFECTIVE = "effectiveItemDispositionWithAppURL:type:relativeURL:configuration:uid:reply:"
ITEM = "itemWithAppURL:type:relativeURL:configuration:uid:reply:"
USERS = "fetchUserIdentifiersAndUIDsWithReply:"
STATUS = "serverStatusWithReply:"
OBSERVE = "observeNotification:reply:"
NEXT = "nextNotificationWithReply:"
POST = "postNotification:userInfo:reply:"
USER_DATA_CHANGED = "com.velmont.private.kestrelwood.user-data-changed"
TOO_MANY_NAMES = 100


class Closed(Exception):
    """The server has ended the connection."""


class Peer:
    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.socket.settimeout(60)
        self.socket.connect(path)
        credentials = self.socket.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, 12)
        _, self.server_uid, _ = struct.unpack("3i", credentials)
        self.serial = 0

    def close(self):
        self.socket.close()

    @staticmethod
    def frame(body, serial=1, magic=b"KSWF", version=1, kind=REQUEST, reserved=0, length=None):
        size = len(body) if length is None else length
        return struct.pack(">4sBBHII", magic, version, kind, reserved, size, serial) + body

    def send(self, data):
        self.socket.sendall(data)

    def take(self, size):
        data = b""
        while len(data) < size:
            try:
                piece = self.socket.recv(size - len(data))
            except ConnectionResetError:
                piece = b""
            if not piece:
                raise Closed
            data += piece
        return data

    def answer(self):
        """Kind, serial and decoded body of the next answer."""
        magic, version, kind, reserved, length, serial = struct.unpack(">4sBBHII", self.take(16))
        assert (magic, version, reserved) == (b"KSWF", 1, 0), (magic, version, reserved)
        return kind, serial, cbor2.loads(self.take(length))

    def exchange(self, body):
        self.serial += 1
        self.send(self.frame(body, self.serial))
        kind, serial, answered = self.answer()
        assert serial == self.serial, (serial, self.serial)
        return kind, answered

    def call(self, selector, *arguments):
        kind, answered = self.exchange(cbor2.dumps([selector, list(arguments)]))
        assert kind == REPLY, (kind, answered)
        return answered


def url(text):
    return cbor2.CBORTag(32, text)


def objects(archive):
    """The root of an archive, each object as (class name, fields)."""
    root = cbor2.loads(archive)["root"]
    return [tuple(one.value) for one in root] if isinstance(root, list) else tuple(root.value)


def fetched(reply):
    """Code and families of a reply that is a fetch result."""
    (archive,) = reply
    name, fields = objects(archive)
    assert name == "KSWFetchResult", name
    return fields["code"], [objects(family) for family in fields["encodedItems"]]


def job(label, executable="/usr/bin/true"):
    return {"KSWConfigLabel": label, "KSWConfigExecutablePath": executable, "KSWConfigArguments": [executable, "-v"]}


def register_job(daemon, label, executable="/usr/bin/true"):
    """Registers an agent whose label need not be one that kswctl would pass on."""
    peer = Peer(daemon.socket_path(MANAGER))
    try:
        question = [None, LEGACY_AGENT, url("file:///jobs/job.plist"), job(label, executable), os.getuid()]
        code, _ = fetched(peer.call(REGISTER, *question))
    finally:
        peer.close()
    assert code == 0, code


class AStranger(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.daemon = cls.enterClassContext(LiveDaemon())

    def peer(self, service=MANAGER):
        peer = Peer(self.daemon.socket_path(service))
        self.addCleanup(peer.close)
        return peer

    def register(self, peer, label, kind=LEGACY_AGENT, uid=os.getuid()):
        return fetched(peer.call(REGISTER, None, kind, url(f"file:///jobs/{label}.plist"), job(label), uid))


class Asking(AStranger):
    def test_learns_who_listens_before_it_sends(self):
        self.assertEqual(self.peer().server_uid, os.stat(self.daemon.root).st_uid)

    def test_sends_the_bytes_of_the_documents_example(self):
        peer = self.peer()
        peer.send(bytes.fromhex("4B535746 01010000 00000019 00000007 82 76 7365727665725374617475735769746852"
                                "65706C793A 80"))  # fmt: skip
        kind, serial, (counters,) = peer.answer()
        self.assertEqual((kind, serial), (REPLY, 7))
        self.assertLessEqual({"served", "refused", "dropped", "quotaHits", "connections"}, set(counters))
        self.assertTrue(all(isinstance(count, int) for count in counters.values()))

    def test_registers_an_agent_and_reads_its_family(self):
        code, families = self.register(self.peer(), "com.stranger.agent")
        self.assertEqual((code, len(families)), (0, 1))
        (name, item), (container_name, container) = families[0]
        self.assertEqual((name, container_name), ("KSWItem", "KSWItem"))
        self.assertEqual(item["identifier"], "8.com.stranger.agent")
        self.assertEqual((item["type"], item["flags"], item["disposition"]), (LEGACY_AGENT, 1, 3))
        self.assertEqual(item["url"], url("file:///jobs/com.stranger.agent.plist"))
        self.assertEqual(item["executablePath"], "/usr/bin/true")
        self.assertEqual(item["programArguments"], ["/usr/bin/true", "-v"])
        self.assertIsInstance(item["uuid"], uuid.UUID)
        self.assertIsInstance(item["modificationDate"], float)
        self.assertEqual(container["identifier"], "Unknown Developer")
        self.assertEqual(item["container"].value[1]["identifier"], "Unknown Developer")

    def test_fetches_the_same_item_over_the_registrar(self):
        _, families = self.register(self.peer(REGISTRAR), "com.stranger.both")
        question = [None, LEGACY_AGENT, url("file:///x"), job("com.stranger.both"), os.getuid()]
        code, again = fetched(self.peer(MANAGER).call(ITEM, *question))
        self.assertEqual(code, 0)
        self.assertEqual(again[0][0][1]["uuid"], families[0][0][1]["uuid"])

    def test_hears_what_may_launch(self):
        for service in [MANAGER, REGISTRAR]:
            peer = self.peer(service)
            place = url("file:///jobs/com.stranger.ask.plist")
            agent = peer.call(EFFECTIVE, None, LEGACY_AGENT, place, job("com.stranger.ask"), os.getuid())
            self.assertEqual(agent, [3, None, 0])
            daemon = peer.call(EFFECTIVE, None, LEGACY_DAEMON, place, job("com.stranger.ask"), os.getuid())
            self.assertEqual(daemon, [1, None, 0])

    def test_names_an_item_by_its_place_in_an_application(self):
        application = url("file:///opt/Tool.app/")
        relative = cbor2.CBORTag(27, ["URL", {"relative": "Contents/a.plist", "base": application}])
        for place in [url("Contents/a.plist"), relative]:
            reply = self.peer().call(EFFECTIVE, application, 8, place, job("com.stranger.inside"), os.getuid())
            self.assertEqual(reply, [3, None, 0])

    def test_hears_which_users_have_records(self):
        self.register(self.peer(), "com.stranger.user")
        self.register(self.peer(), "com.stranger.system", LEGACY_DAEMON)
        (users,) = self.peer().call(USERS)
        self.assertLessEqual({os.getuid(), EVERY_USER}, set(users.values()))

    def test_withdraws_what_it_registered(self):
        peer = self.peer()
        self.register(peer, "com.stranger.gone")
        question = [None, LEGACY_AGENT, url("file:///jobs/com.stranger.gone.plist"), os.getuid()]
        self.assertEqual(peer.call(UNREGISTER, *question), [0])
        self.assertEqual(peer.call(UNREGISTER, *question), [-95])

    def test_hears_codes_for_what_cannot_be(self):
        code, families = self.register(self.peer(), "com.stranger.composite", 0x10018)
        self.assertEqual((code, families), (-98, []))

    def test_finds_its_answers_by_their_serials(self):
        peer = self.peer()
        question = cbor2.dumps([USERS, []])
        peer.send(b"".join(peer.frame(question, serial) for serial in (5, 0xFFFFFFFF, 0)))
        answers = [peer.answer() for _ in range(3)]
        self.assertEqual({serial for _, serial, _ in answers}, {5, 0xFFFFFFFF, 0})
        self.assertEqual({kind for kind, _, _ in answers}, {REPLY})

    def test_may_send_a_frame_byte_by_byte(self):
        peer = self.peer()
        for byte in peer.frame(cbor2.dumps([STATUS, []]), 9):
            peer.send(bytes([byte]))
        self.assertEqual(peer.answer()[:2], (REPLY, 9))


class Observing(AStranger):
    def observer(self, *names):
        peer = self.peer("notify")
        for name in names:
            self.assertEqual(peer.call(OBSERVE, name), [])
        return peer

    def post(self, name, *user_info):
        for one in user_info:
            self.assertEqual(self.peer("notify").call(POST, name, one), [0])

    def test_hears_of_a_change_by_another(self):
        observer = self.observer(USER_DATA_CHANGED)
        self.register(self.peer(), "com.stranger.observed")
        name, user_info = observer.call(NEXT)
        self.assertEqual((name, set(user_info), user_info["uid"]), (USER_DATA_CHANGED, {"uid", "type"}, os.getuid()))
        self.assertEqual(user_info["type"] & 8, 8)

    def test_hears_what_the_owner_posts_while_it_waits(self):
        observer = self.observer("stranger")
        observer.send(observer.frame(cbor2.dumps([NEXT, []]), 77))
        self.post("stranger", {"list": [1, "x"]})
        self.assertEqual(observer.answer(), (REPLY, 77, ["stranger", {"list": [1, "x"]}]))

    def test_hears_one_of_each_name_in_their_order(self):
        observer = self.observer("a", "b")
        self.post("b", None)
        self.post("a", {"number": 1})
        self.post("b", None)
        self.assertEqual([observer.call(NEXT), observer.call(NEXT)], [["b", None], ["a", {"number": 1}]])

    def test_hears_one_that_says_what_two_say(self):
        for second, said in [({"uid": 2, "type": 16}, (EVERY_USER, 24)), ({"uid": 1, "type": 16}, (1, 24)),
                             ({}, (EVERY_USER, 4095)), (None, (EVERY_USER, 4095)),
                             ({"uid": 1, "type": 0x40000000}, (1, 0x40000008))]:  # fmt: skip
            with self.subTest(second=second):
                observer = self.observer(USER_DATA_CHANGED)
                self.post(USER_DATA_CHANGED, {"uid": 1, "type": 8}, second)
                _, user_info = observer.call(NEXT)
                self.assertEqual((user_info["uid"], user_info["type"]), said)

    def test_is_refused_names_that_are_none_and_more_than_there_may_be(self):
        peer = self.observer("x" * 256)
        for name in [None, "", "x" * 257]:
            kind, (code, _) = peer.exchange(cbor2.dumps([OBSERVE, [name]]))
            self.assertEqual((kind, code), (REFUSAL, DOES_NOT_FIT), name)
        for number in range(63):
            self.assertEqual(peer.call(OBSERVE, str(number)), [])
        kind, (code, _) = peer.exchange(cbor2.dumps([OBSERVE, ["one more"]]))
        self.assertEqual((kind, code), (REFUSAL, TOO_MANY_NAMES))


class BeingRefused(AStranger):
    def assert_refused(self, peer, body, code):
        kind, answered = peer.exchange(body)
        self.assertEqual(kind, REFUSAL, answered)
        refused, text = answered
        self.assertEqual(refused, code, text)
        self.assertTrue(text.isascii() and text.isprintable() and len(text) <= 1024, text)
        self.assertIn("served", peer.call(STATUS)[0])  # the connection goes on
        return text

    def test_for_a_method_that_does_not_exist(self):
        text = self.assert_refused(self.peer(), cbor2.dumps(["frobnicate:reply:", []]), NO_SUCH_METHOD)
        self.assertIn("frobnicate:reply:", text)

    def test_for_a_manager_s_method_at_the_registrar(self):
        self.assert_refused(self.peer(REGISTRAR), cbor2.dumps([USERS, []]), NO_SUCH_METHOD)

    def test_for_arguments_that_do_not_fit(self):
        peer = self.peer()
        good = [None, LEGACY_AGENT, url("file:///x"), job("x"), 1]
        wrong = [good[:-1], [*good, 1]]
        for index, values in enumerate([["text", 1, url("file://a b")], ["8", None, 2.0, 1 << 63, -(1 << 63) - 1],
                                        ["text", cbor2.CBORTag(33, "x"), cbor2.CBORTag(32, b"x")], [[], "x", {1: 2}],
                                        [-1, 1 << 32, None, True]]):  # fmt: skip
            wrong += [[*good[:index], value, *good[index + 1 :]] for value in values]
        for arguments in wrong:
            with self.subTest(arguments=arguments):
                self.assert_refused(peer, cbor2.dumps([REGISTER, arguments]), DOES_NOT_FIT)

    def test_for_a_body_that_is_no_request(self):
        peer = self.peer()
        whole = cbor2.dumps([STATUS, []])
        deep = b"\x81" * 100 + b"\x80"
        for body in [b"", b"\xff", b"\x00", cbor2.dumps({}), cbor2.dumps([STATUS]), cbor2.dumps([STATUS, [], 1]),
                     cbor2.dumps([1, []]), cbor2.dumps([b"x", []]), cbor2.dumps([STATUS, {}]), whole[:-1],
                     whole + b"\x00", b"\x9f" + whole[1:] + b"\xff", b"\x98\x02" + whole[1:], deep,
                     whole[:-1] + deep, b"\x82\x62\xc3\x28\x80"]:  # fmt: skip
            with self.subTest(body=body):
                self.assert_refused(peer, body, DOES_NOT_FIT)

    def test_for_a_name_beyond_its_bound(self):
        peer = self.peer()
        self.assert_refused(peer, cbor2.dumps(["x" * 256, []]), NO_SUCH_METHOD)
        self.assert_refused(peer, cbor2.dumps(["x" * 257, []]), DOES_NOT_FIT)


class BeingClosed(AStranger):
    def assert_closed(self, data):
        peer = self.peer()
        peer.send(data)
        with self.assertRaises(Closed):
            peer.answer()
        self.assertIn("served", self.peer().call(STATUS)[0])  # the others are served on

    def test_for_a_header_that_is_none(self):
        body = cbor2.dumps([STATUS, []])
        for wrong in [{"magic": b"KSWG"}, {"kind": 0}, {"kind": REPLY},
                      {"kind": REFUSAL}, {"kind": 4}, {"reserved": 1}, {"reserved": 256}]:  # fmt: skip
            with self.subTest(wrong=wrong):
                self.assert_closed(Peer.frame(body, **wrong))

    def test_for_another_version_which_is_told_which_versions_there_are(self):
        for version in [0, 2, 255]:
            with self.subTest(version=version):
                peer = self.peer()
                peer.send(Peer.frame(b"not read", serial=9, version=version, kind=99, reserved=7))
                self.assertEqual(peer.answer(), (REFUSAL, 9, [OTHER_VERSION, VERSIONS.format(version)]))
                with self.assertRaises(Closed):
                    peer.answer()

    def test_for_a_body_beyond_its_bound(self):
        self.assert_closed(Peer.frame(b"", length=REQUEST_MAX + 1))
        self.assert_closed(Peer.frame(b"", length=0xFFFFFFFF))

    def test_but_not_for_the_largest_body(self):
        peer = self.peer()
        head = cbor2.dumps(["x:", [b"x" * (REQUEST_MAX - 16)]])
        body = cbor2.dumps(["x:", [b"x" * (REQUEST_MAX - 16 + REQUEST_MAX - len(head))]])
        self.assertEqual(len(body), REQUEST_MAX)
        kind, (code, _) = peer.exchange(body)
        self.assertEqual((kind, code), (REFUSAL, NO_SUCH_METHOD))

    def test_when_it_leaves_in_the_middle_only_for_itself(self):
        frame = Peer.frame(cbor2.dumps([STATUS, []]))
        for size in range(len(frame)):
            peer = self.peer()
            peer.send(frame[:size])
            peer.close()
        self.assertIn("served", self.peer().call(STATUS)[0])


if __name__ == "__main__":
    unittest.main()
