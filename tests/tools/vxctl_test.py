# SPDX-License-Identifier: MIT
"""vxctl against a second process, `vxctl serve` or the test peer, that is
called, notified, listened to and asked for its bus info.
Run as: python3 vxctl_test.py VXCTL TEST_PEER"""

import json
import os
import re
import signal
import socket
import struct
import sys
import tempfile
import unittest

from process_helpers import LIMIT, Program, free_tcp_port, run, with_secret

VXCTL = None
TEST_PEER = None
SECRET = "tea for two"


# Every type, nested lists and arrays included, as vxctl's JSON writes them.
EVERY_TYPE = {
    "id": 7, "title": "hello", "big:int64": 1 << 40, "negative": 4294967295,
    "blob:hex": "00ff0a", "empty:hex": "",
    "sub": {"s": "hi", "deeper": {"n": 1}},
    "none:list": None,
    "words": ["a", "", "ccc"], "numbers": [1, 2, 4294967295],
    "wide:int64[]": [1, 1 << 40], "blobs:hex[]": ["01", "", "020304"],
    "lists": [{"x": 1}, None, {"y": "z"}],
    "noWords:string[]": [], "noLists:list[]": [],
}


def vxctl(*args, secret=SECRET, stdin_data=None):
    return run([VXCTL] + list(args), env=with_secret(secret), stdin_data=stdin_data)


class FilesCase(unittest.TestCase):
    """A test with a temporary directory to write files into."""

    def setUp(self):
        self.tmp = self.enterContext(tempfile.TemporaryDirectory())

    def file(self, name, data):
        path = os.path.join(self.tmp, name)
        with open(path, "wb") as f:
            f.write(data)
        return path


class VxctlTest(FilesCase):
    def setUp(self):
        super().setUp()
        self.port = free_tcp_port()
        self.target = "127.0.0.1:%d" % self.port
        self.server = Program([VXCTL, "serve", "shop", "--port", str(self.port),
                               "--signal", "shipped"], env=with_secret(SECRET))
        self.addCleanup(self.server.stop)
        self.server_id = self.server.expect("ready ")[len("ready "):]

    def test_a_reply_reads_the_same_printed_as_json_and_saved(self):
        code, out, err = vxctl("call", self.target, "1", "id=7", "name=Ada",
                                    "big:int64=5", "raw:hex=0aff")
        self.assertEqual(code, 0, err)
        self.assertEqual(out.splitlines(), ["id:int32 = 7", 'name:string = "Ada"',
                                            "big:int64 = 5", "raw:hex = 0aff"])

        saved = os.path.join(self.tmp, "reply.bin")
        code, out, err = vxctl("call", self.target, "1", "--json", "--save", saved,
                                    stdin_data=json.dumps(EVERY_TYPE).encode())
        self.assertEqual(code, 0, err)
        self.assertEqual(json.loads(out), EVERY_TYPE)
        code, dumped, err = vxctl("dump", saved, "--json")
        self.assertEqual((code, json.loads(dumped)), (0, EVERY_TYPE), err)

    def test_notify_reaches_the_slot_and_prints_nothing(self):
        code, out, err = vxctl("notify", self.target, "2", "note=fragile")
        self.assertEqual((code, out), (0, ""), err)
        self.server.expect("slot 2 from ")
        self.server.expect('note:string = "fragile"')

    def test_typed_arguments_build_the_list_json_would(self):
        code, out, err = vxctl(
            "call", self.target, "1", "--json", "id=7", "title:str=hello", "big:int64=1099511627776",
            "negative=-1", "blob:hex=00ff0a", "empty:bin=", 'sub:json={"s":"hi","deeper":{"n":1}}',
            "none:list=null", 'words:json=["a","","ccc"]', "numbers:json=[1,2,4294967295]",
            "wide:int64[]=[1,1099511627776]", 'blobs:hex[]=["01","","020304"]',
            'lists:json=[{"x":1},null,{"y":"z"}]', "noWords:string[]=[]", "noLists:list[]=[]")
        self.assertEqual(code, 0, err)
        self.assertEqual(json.loads(out), EVERY_TYPE)
        blob = self.file("blob", b"\x00\x01 \xfe")
        code, out, err = vxctl("call", self.target, "1", "--json", "b:bin=@" + blob)
        self.assertEqual((code, json.loads(out)), (0, {"b:hex": "000120fe"}), err)

    def test_each_failure_says_one_line_with_its_own_exit_code(self):
        bad_arguments = [
            ("n:int32=4294967296", "out of range for a 32-bit integer"),
            ('x:json=[1,"a"]', "an array mixes types; give one, as in name:string[]"),
            ('x:json={"a":', "JSON at byte 5: a value is missing"),
            ("x:json=" + "[" * 100, "JSON at byte 65: nested deeper than 64"),
            ("novalue", "expected name=value, name:type=value, {JSON} or @FILE"),
            ("id:int33=5", "unknown type 'int33'"),
            ('{"id:int33":5}', "'id:int33': unknown type 'int33'"),
        ]
        cases = [(("call", self.target, "1", arg), SECRET, 2,
                  "vxctl: argument '%s': %s" % (arg, why)) for arg, why in bad_arguments]
        cases += [
            (("call", self.target, "x1"), SECRET, 2,
             "vxctl: slot 'x1': expected a number from 0 to 4294967295"),
            (("call", self.target, "1", "--secret", "s"), SECRET, 2, "vxctl: --secret is not taken"),
            (("call", self.target, "1", "--count", "3"), SECRET, 2,
             "vxctl: call does not take --count; see vxctl call --help"),
            (("dump", "reply.bin", "--timeout", "1"), SECRET, 2, "vxctl: dump does not take --timeout"),
            (("serve", "shop", "--port", "1", "--allow-empty"), SECRET, 2,
             "vxctl: serve does not take --allow-empty"),
            (("call", self.target, "1", "--timeout", "0"), SECRET, 2,
             "vxctl: --timeout wants seconds from 0.001 to 86400, not '0'"),
            (("call", self.target, "1"), "wrong", 4,
             "vxctl: %s refused the connection: wrong secret or name in use" % self.target),
            (("call", "127.0.0.1:%d" % free_tcp_port(), "1"), SECRET, 3, "vxctl: cannot reach"),
            (("call", "no-such-host.invalid:1", "1"), SECRET, 3,
             "vxctl: cannot reach no-such-host.invalid:1: no such host 'no-such-host.invalid'"),
            (("call", self.target, "77"), SECRET, 5, "vxctl: slot 77 of "),
            (("frobnicate",), SECRET, 2, "vxctl: unknown command 'frobnicate'"),
        ]
        for args, secret, want_code, want_line in cases:
            with self.subTest(args=args):
                code, _, err = vxctl(*args, secret=secret)
                self.assertEqual(code, want_code, err)
                self.assertEqual(len(err.splitlines()), 1, err)
                self.assertIn(want_line, err)
                self.assertTrue(err.startswith("vxctl: "), err)
        self.server.expect("refused ")

    def test_listen_prints_an_emitted_signal_until_ctrl_c(self):
        listener = Program([VXCTL, "listen", self.target, "shipped", "--json"], env=with_secret(SECRET))
        self.addCleanup(listener.stop)
        listener.expect("vxctl: listening", stream="err")
        self.server.send('emit shipped order=4711 carrier:str=Parcel')
        self.assertEqual(json.loads(listener.expect("{")),
                         {"signal": "shipped", "from": self.server_id,
                          "list": {"order": 4711, "carrier": "Parcel"}})
        listener.proc.send_signal(signal.SIGINT)
        self.assertEqual(listener.finish(), 0)
        self.server.expect("disconnected ")

    def test_info_tables_what_serve_holds(self):
        listener = Program([VXCTL, "listen", self.target, "shipped"], env=with_secret(SECRET))
        self.addCleanup(listener.stop)
        listener.expect("vxctl: listening", stream="err")
        listening = self.server.expect("connected ")[len("connected "):]
        code, out, err = vxctl("info", self.target)
        self.assertEqual(code, 0, err)
        lines = out.splitlines()
        self.assertEqual(lines[:4], ["application  " + self.server_id,
                                     "version      " + run([VXCTL, "--version"])[1].split()[-1],
                                     "slots        1 2 65535 4294967294 4294967295",
                                     "signals      1"])
        self.assertEqual(lines[5].split(), ["shipped", listening, "(slot", "1000)"])
        self.assertEqual(lines[6], "sessions     2")  # the listener's and our own
        rows = {row.split()[0]: row.split() for row in lines[8:10]}
        self.assertEqual(rows[listening][1:3], ["tcp", "127.0.0.1:" + rows[listening][2].split(":")[1]])
        self.assertTrue(lines[10].startswith("counters     applications 2, messages "), lines[10])

        code, out, err = vxctl("info", self.target, "--json")
        self.assertEqual(code, 0, err)
        sessions = json.loads(out)["sessions"]
        self.assertIn(listening, [s["appId"] for s in sessions])
        self.assertEqual({s["channel"] for s in sessions}, {"tcp"})
        code, _, err = vxctl("info", self.target, "--slot", "2")  # prints, answers empty
        self.assertEqual(code, 5, err)
        self.assertIn("its bus info is not served there", err)

    def test_info_watch_refreshes_until_ctrl_c(self):
        watcher = Program([VXCTL, "info", self.target, "--watch"], env=with_secret(SECRET))
        self.addCleanup(watcher.stop)
        watcher.expect("vxctl: watching", stream="err")
        watcher.expect("counters ", count=2)  # a table, and a second one a second later
        watcher.proc.send_signal(signal.SIGINT)
        self.assertEqual(watcher.finish(), 0)
        self.assertEqual(watcher.errors, ["vxctl: watching " + self.server_id + "; Ctrl-C stops"])


class DeadlineTest(unittest.TestCase):
    """--timeout against the test peer, whose slot 8 holds a call until released."""

    def setUp(self):
        self.port = free_tcp_port()
        self.target = "127.0.0.1:%d" % self.port
        self.peer = Program([TEST_PEER, "--name", "slow", "--host", socket.gethostname(),
                             "--port", str(self.port), "--secret-hex", SECRET.encode().hex(),
                             "--quiet", "1"])
        self.addCleanup(self.peer.stop)
        self.peer.expect("ready ")

    def test_a_slow_slot_times_out_with_code_6(self):
        # The notification waits behind the held call: the peer runs one slot at a time.
        for command in ("call", "notify"):
            with self.subTest(command=command):
                code, out, err = vxctl(command, self.target, "8", "--timeout", "0.3")
                self.assertEqual((code, out), (6, ""), err)
                self.assertRegex(err, r"^vxctl: timed out: no (reply|word) from slot 8 of \S+/slow "
                                      r"within --timeout 0.3 s")
        self.peer.expect("holding")
        self.peer.send("release")
        self.peer.expect("released")
        code, out, err = vxctl("call", self.target, "1", "--timeout", "10", "a=1")
        self.assertEqual((code, out.splitlines()[0]), (0, "a:int32 = 1"), err)
        code, out, err = vxctl("info", self.target, "--slot", "1")  # echoes, adds servedBy
        self.assertEqual((code, out), (1, ""), err)
        self.assertIn("answered with a list that is not bus info", err)
        self.peer.send("quit")
        self.assertEqual(self.peer.finish(), 0)

    def test_a_connect_that_gets_no_handshake_times_out_with_code_6(self):
        with socket.socket() as silent:
            silent.bind(("127.0.0.1", 0))
            silent.listen(4)
            target = "127.0.0.1:%d" % silent.getsockname()[1]
            for command in (["call", target, "1"], ["info", target], ["listen", target, "s"]):
                with self.subTest(command=command[0]):
                    code, _, err = vxctl(*command, "--timeout", "0.2")
                    self.assertEqual((code, err), (6, "vxctl: timed out connecting to %s "
                                                      "(--timeout 0.2 s)\n" % target))

    def test_the_tool_has_the_library_s_version(self):
        code, out, err = vxctl("--version")
        self.assertEqual(code, 0, err)
        match = re.fullmatch(r"vxctl (\d+\.\d+\.\d+), library (\d+\.\d+\.\d+)\n", out)
        self.assertTrue(match, out)
        self.assertEqual(match.group(1), match.group(2))


def listening_address(port):
    """The IPv4 address a socket listens on at `port`, from /proc/net/tcp."""
    with open("/proc/net/tcp") as table:
        for row in table.readlines()[1:]:
            local, state = row.split()[1], row.split()[3]
            address, local_port = local.split(":")
            if int(local_port, 16) == port and state == "0A":
                return socket.inet_ntoa(struct.pack("<I", int(address, 16)))
    return None


class SafetyTest(FilesCase):
    """What a careless user or a hostile input must not do to vxctl."""

    def test_input_past_the_read_size_is_refused_before_it_is_held(self):
        exact, over = self.file("exact", b"\x5a" * 60000), self.file("over", b"\x5a" * 65537)
        nowhere = "127.0.0.1:%d" % free_tcp_port()
        for source, want in [("/dev/zero", "'/dev/zero' is larger than 65536 bytes"),
                             (over, "'%s' is larger than 65536 bytes" % over),
                             (exact, "vxctl: cannot reach")]:
            with self.subTest(source=source):
                code, _, err = run([VXCTL, "call", nowhere, "1", "--max-read-size", "65536",
                                    "x:bin=@" + source])
                self.assertEqual(code, 3 if source == exact else 2, err)
                self.assertIn(want, err)
        values = self.file("values.json", b'{"a":[' + b",".join([b"1"] * (1 << 20)) + b"]}")
        code, _, err = run([VXCTL, "call", nowhere, "1", "@" + values])
        self.assertEqual(code, 2, err)
        self.assertIn("more than 1048576 values", err)

    def test_a_secret_file_must_be_a_regular_file_not_readable_by_others(self):
        fifo, loose = os.path.join(self.tmp, "fifo"), self.file("loose", SECRET.encode() + b"\n")
        os.mkfifo(fifo)  # no writer: opening it to read would wait for ever
        nowhere = "127.0.0.1:%d" % free_tcp_port()
        code, _, err = run([VXCTL, "call", nowhere, "1", "--secret-file", fifo])
        self.assertEqual((code, err), (2, "vxctl: the secret file '%s' is not a regular file\n" % fifo))
        for mode, warned in [(0o644, True), (0o640, True), (0o600, False)]:
            os.chmod(loose, mode)
            code, _, err = run([VXCTL, "call", nowhere, "1", "--secret-file", loose])
            self.assertEqual(code, 3, err)
            self.assertEqual("can be read by other users" in err, warned, oct(mode))

    def test_a_stop_signal_ends_a_connect_at_once(self):
        # A listener that never answers the handshake: the connect waits.
        with socket.socket() as silent:
            silent.bind(("127.0.0.1", 0))
            silent.listen(1)
            silent.settimeout(LIMIT)
            target = "127.0.0.1:%d" % silent.getsockname()[1]
            caller = Program([VXCTL, "call", target, "1"])
            self.addCleanup(caller.stop)
            with silent.accept()[0]:  # vxctl is inside its connect now
                caller.proc.send_signal(signal.SIGTERM)
                self.assertEqual(caller.finish(), 143)
            self.assertEqual(caller.errors, ["vxctl: interrupted while connecting to " + target])

    def test_serve_binds_loopback_unless_told(self):
        environment = {k: v for k, v in os.environ.items() if k != "VXBUS_SECRET"}
        blob = self.file("blob", b"\x5a" * 60000)
        for extra, env, where, warned in [
                ([], environment, "127.0.0.1", True),
                (["--bind", "0.0.0.0", "--max-read-size", "65536"], with_secret(SECRET), "0.0.0.0", False)]:
            port = free_tcp_port()
            server = Program([VXCTL, "serve", "shop", "--port", str(port)] + extra, env=env)
            self.addCleanup(server.stop)
            server.expect("ready ")
            self.assertEqual(listening_address(port), where)
            if not warned:  # a read size of its own keeps the secret, and still takes the list
                target = "127.0.0.1:%d" % port
                self.assertEqual(run([VXCTL, "call", target, "1"], env=with_secret("wrong"))[0], 4)
                code, out, err = run([VXCTL, "call", target, "1", "--json", "--max-read-size", "65536",
                                      "b:bin=@" + blob], env=with_secret(SECRET))
                self.assertEqual((code, json.loads(out)), (0, {"b:hex": "5a" * 60000}), err)
            server.send("quit")
            self.assertEqual(server.finish(), 0)
            self.assertEqual(any("serving without a secret" in e for e in server.errors), warned)


def pair(size, children):
    return struct.pack("<II", size, children)


# A root holding an int32 "id" = 7 and a list "sub" that holds the string "hi".
NESTED = (pair(24, 1) + bytes.fromhex("07696400 00000002 07000000  07737562 00000004 00000000")
          + pair(8, 0) + bytes.fromhex("03730001 68690000"))


class DumpTest(FilesCase):
    """dump reads files that anyone may have written."""

    def dump(self, data, *args):
        return run([VXCTL, "dump", self.file("list.bin", data)] + list(args))

    def test_the_stream_of_a_nested_list_prints(self):
        code, out, err = self.dump(NESTED)
        self.assertEqual((code, out.splitlines()),
                         (0, ["id:int32 = 7", "sub:list", '  s:string = "hi"']), err)
        self.assertEqual(self.dump(NESTED, "--json")[1], '{"id":7,"sub":{"s":"hi"}}\n')
        self.assertEqual(self.dump(pair(0, 0))[:2], (0, ""))

    def test_damaged_files_are_refused_with_a_reason(self):
        cases = {
            "runs past the end": NESTED[:-1],
            "ends inside the pair": NESTED[:5],
            "claims 1 nested lists": NESTED[:36],
            "follow the end of the list": NESTED + b"\0",
            "unknown type byte 6": pair(8, 0) + bytes.fromhex("0369000600000000"),
            "claims 4294967295 nested lists": pair(0, 0xFFFFFFFF),
            "nested deeper than 64": pair(0, 1) * 200 + pair(0, 0),
        }
        for want, data in cases.items():
            with self.subTest(want=want):
                code, out, err = self.dump(data)
                self.assertEqual((code, out), (1, ""), err)
                self.assertIn(want, err)


if __name__ == "__main__":
    VXCTL = sys.argv.pop(1)
    TEST_PEER = sys.argv.pop(1)
    unittest.main(verbosity=2)
