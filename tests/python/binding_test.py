# SPDX-License-Identifier: MIT
"""The Python binding against a C++ application in a second process
(`vxctl serve`), and `vxctl` as the C++ client of a Python application.

    python3 binding_test.py PYTHON_DIR LIBVXBUS VXCTL [SANITIZER]
"""

import json
import os
import signal
import sys
import threading
import unittest

import binding_under_test

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from process_helpers import LIMIT, Program, free_tcp_port, run, with_secret  # noqa: E402

VXCTL = None
SECRET = b"tea for two"
vxbus = None

EVERY_TYPE = {
    "id": 7, "title": "hello", "negative": 0xFFFFFFFF, "huge": 1 << 40,
    "blob": b"\x00\xff\x0a", "emptyBlob": b"",
    "sub": {"s": "hi", "deeper": {"n": 1}}, "none": None,
    "words": ["a", "", "ccc"], "numbers": [1, 2, 0xFFFFFFFF], "wide": [1, 1 << 40],
    "blobs": [b"\x01", b"", b"\x02\x03\x04"], "lists": [{"x": 1}, None, {"y": "z"}],
}


def every_type_typed():
    """EVERY_TYPE as it reads back: int64 values and typed empty arrays."""
    return dict(EVERY_TYPE, huge=vxbus.Int64(1 << 40), noWords=vxbus.Array(vxbus.PT_STRING),
                noLists=vxbus.Array(vxbus.PT_PARAMHANDLE), small64=vxbus.Int64(5))


class ListTest(unittest.TestCase):
    def test_every_type_round_trips_through_dict(self):
        data = every_type_typed()
        with vxbus.ParamList(data) as plist:
            back = plist.to_dict()
            self.assertEqual(back, data)
            self.assertIsInstance(back["small64"], vxbus.Int64)
            self.assertEqual(back["wide"].type, vxbus.PT_INT64)
            self.assertEqual(back["noLists"].type, vxbus.PT_PARAMHANDLE)
            with vxbus.ParamList(back) as again:  # read values write back as the same types
                self.assertEqual(again.to_dict(), data)

    def test_mapping_behaves_as_the_list_does(self):
        with vxbus.ParamList({"a": 1, "b": "two", "c": {"d": b"x"}}) as plist:
            self.assertEqual((len(plist), list(plist)), (3, ["a", "b", "c"]))
            self.assertEqual(plist["c"], {"d": b"x"})
            plist["a"] = "again"  # setting a name again moves it to the end
            self.assertEqual(list(plist), ["b", "c", "a"])
            del plist["b"]
            self.assertNotIn("b", plist)
            with self.assertRaises(KeyError):
                plist["missing"]
            with self.assertRaises(KeyError):
                del plist["missing"]
            self.assertEqual(plist.get("missing", 5), 5)

    def test_values_without_a_list_type_are_refused(self):
        looped = {}
        looped["self"] = looped
        cases = [({"x": True}, TypeError), ({"x": 1 << 64}, OverflowError),
                 ({"x": [1, "a"]}, TypeError), ({"x": []}, ValueError),
                 ({"x": "a\0b"}, ValueError), ({"n" * 254: 1}, ValueError),
                 ({"x": vxbus.Array(vxbus.PT_INT32, [1 << 32])}, OverflowError),
                 (looped, ValueError)]
        for data, error in cases:
            with self.subTest(data=str(data)[:40]), self.assertRaises(error):
                vxbus.ParamList(data)


class BusTest(unittest.TestCase):
    """One Bus per process: these share it."""

    @classmethod
    def setUpClass(cls):
        cls.port = free_tcp_port()
        cls.bus = vxbus.Bus("pyapp", port=cls.port, secret=SECRET)
        cls.target = "127.0.0.1:%d" % cls.port
        cls.env = with_secret(SECRET.decode())
        cls.seen = []
        cls.seen_event = threading.Event()

        def price(args, sender):
            return {"cents": 150 * args["quantity"], "caller": sender, "echo": args}

        def shipped(args, sender):
            cls.seen.append((args, sender))
            cls.seen_event.set()

        cls.stalled, cls.release = threading.Event(), threading.Event()

        def stall(args, sender):
            cls.stalled.set()
            cls.release.wait(LIMIT)

        cls.bus.register_slot(5, price)
        cls.bus.register_slot(6, stall)
        cls.bus.register_slot(100, shipped)
        cls.bus.register_signal("tick")
        cls.bus.ready()

        cls.server_port = free_tcp_port()
        cls.server = Program([VXCTL, "serve", "shop", "--port", str(cls.server_port),
                              "--signal", "shipped"], env=cls.env)
        cls.server.expect("ready ")
        cls.shop = cls.bus.connect("127.0.0.1:%d" % cls.server_port, secret=SECRET)

    @classmethod
    def tearDownClass(cls):
        cls.server.send("quit")
        cls.server.finish()
        cls.server.stop()
        cls.bus.shutdown()

    def call_with_vxctl(self, slot, *args):
        """`vxctl call --json` of our slot `slot`: its reply, parsed."""
        code, out, err = run([VXCTL, "call", self.target, str(slot), "--json", *args],
                             env=self.env)
        self.assertEqual(code, 0, err)
        return json.loads(out)

    def test_calls_a_slot_of_a_cxx_application_with_every_type(self):
        data = every_type_typed()
        with self.shop.call(1, data) as reply:
            self.assertEqual(reply.to_dict(), data)
        with self.shop.call(77) as reply:  # a slot the peer does not have: an empty reply
            self.assertEqual(len(reply), 0)

    def test_serves_a_slot_that_a_cxx_application_calls(self):
        reply = self.call_with_vxctl(5, "quantity=3", 'items:json=["tea",""]')
        self.assertEqual(reply["cents"], 450)
        self.assertEqual(reply["echo"], {"quantity": 3, "items": ["tea", ""]})
        self.assertRegex(reply["caller"], r"^.+:0/vxctl-\d+$")

    def test_ctrl_c_ends_a_call_of_vxctl_at_once(self):
        caller = Program([VXCTL, "call", self.target, "6"], env=self.env)
        try:
            self.assertTrue(self.stalled.wait(LIMIT))  # vxctl waits inside its call now
            caller.proc.send_signal(signal.SIGINT)
            self.assertEqual(caller.finish(), 130)
            self.assertEqual(len(caller.errors), 1, caller.errors)
            self.assertRegex(caller.errors[0],
                             r"^vxctl: interrupted while calling slot 6 of .+:%d/pyapp$" % self.port)
        finally:
            self.release.set()
            caller.stop()

    def test_notify_runs_the_callback_with_the_reply(self):
        replies, done = [], threading.Event()
        self.shop.notify(1, {"note": "fragile"}, lambda r: (replies.append(r), done.set()))
        self.assertTrue(done.wait(LIMIT))
        self.assertEqual(replies, [{"note": "fragile"}])
        self.shop.notify(2, {"note": "no answer wanted"})
        self.server.expect('note:string = "no answer wanted"')

    def test_signals_cross_both_ways(self):
        # A C++ application's signal reaches our slot 100.
        self.shop.connect_signal("shipped", 100)
        self.shop.disconnect_signal("never-subscribed", 100)  # returns once the owner caught up
        self.server.send("emit shipped order=4711")
        self.server.expect("emitted shipped 0")
        self.assertTrue(self.seen_event.wait(LIMIT))
        self.assertEqual(self.seen[0], ({"order": 4711}, self.shop.app_id))

        # Our signal reaches a C++ listener.
        listener = Program([VXCTL, "listen", self.target, "tick", "--json", "--count", "1"],
                           env=self.env)
        try:
            listener.expect("vxctl: listening", stream="err")
            self.bus.emit("tick", {"n": 1, "blob": b"\x01"})
            self.assertEqual(json.loads(listener.expect("{"))["list"], {"n": 1, "blob:hex": "01"})
            self.assertEqual(listener.finish(), 0)
        finally:
            listener.stop()
        with self.assertRaises(vxbus.VxbusError) as raised:
            self.bus.emit("unregistered")
        self.assertEqual(raised.exception.code, vxbus.VX_ERROR_NO_SIGNAL)

    def test_connection_failures_raise_with_the_code_and_its_text(self):
        for port, secret, code, says in [
                (self.server_port, b"wrong", vxbus.VX_ERROR_NAME_IN_USE,
                 "%s refused the connection"),
                (free_tcp_port(), SECRET, vxbus.VX_ERROR_FAILED, "cannot connect to %s")]:
            target = "127.0.0.1:%d" % port
            with self.assertRaises(vxbus.VxbusError, msg=code) as raised:
                self.bus.connect(target, secret=secret)
            self.assertEqual(raised.exception.code, code)
            self.assertEqual(str(raised.exception), "%s: %s (%d)" % (says % target,
                                                                    vxbus.error_text(code), code))
        for target in ["localhost", "localhost:", ":47001", "host:0", "host:65536", "host:port",
                       "pipe:", "x" * 2000, "a\0b:1"]:
            with self.subTest(target=target[:20]), self.assertRaises(vxbus.TargetError) as raised:
                self.bus.connect(target)
            self.assertIsInstance(raised.exception, ValueError)
            self.assertIn('"host:port"', str(raised.exception))
            self.assertIn('"pipe:NAME"', str(raised.exception))

    def test_info_describes_this_process_to_it_and_to_peers(self):
        info = self.bus.info()
        self.assertEqual((info["appId"], info["version"]),
                         (self.bus.app_id, vxbus.library_version()))
        self.assertEqual(vxbus.__version__, vxbus.library_version())  # one version for both
        self.assertTrue({5, 6, 100, 0xFFFFFFFF} <= set(info["slots"]), info["slots"])
        self.assertIn("tick", [entry["name"] for entry in info["signals"]])
        (shop,) = [entry for entry in info["sessions"] if entry["appId"] == self.shop.app_id]
        self.assertEqual(shop["channel"], "tcp")
        self.assertIsInstance(shop["connectedMs"], vxbus.Int64)
        self.assertEqual(set(info["counters"]), {"applications", "messages", "pendingCalls",
                                                 "paramLists", "sendCalls", "receiveCalls"})
        self.bus.serve_info(9)
        asked = self.call_with_vxctl(9, "n=1")
        self.assertEqual((asked["appId"], asked["version"]), (self.bus.app_id, vxbus.__version__))
        self.assertIn(9, asked["slots"])

    def test_an_exception_in_a_slot_or_callback_is_logged_not_raised(self):
        self.bus.register_slot(7, lambda args, sender: {"ok": 1, "bad": True})  # fails half filled
        with self.assertLogs("vxbus", "ERROR") as logged:
            self.assertEqual(self.call_with_vxctl(7, "--allow-empty", "n=1"), {})
        self.assertEqual(logged.records[0].getMessage(),
                         "slot 7 raised; its caller gets an empty reply")
        self.assertIs(logged.records[0].exc_info[0], TypeError)

        done = threading.Event()
        with self.assertLogs("vxbus", "ERROR") as logged:
            self.shop.notify(1, {"n": 1}, lambda reply: reply["missing"])
            self.shop.notify(1, {"n": 2}, lambda reply: done.set())  # runs after the first
            self.assertTrue(done.wait(LIMIT))
        self.assertEqual(logged.records[0].getMessage(), "the callback of a notification to slot "
                         "1 of %s raised" % self.shop.app_id)
        self.assertIs(logged.records[0].exc_info[0], KeyError)


def main():
    global VXCTL, vxbus
    python_dir, library, VXCTL = binding_under_test.arguments()
    vxbus = binding_under_test.load(python_dir, library)
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
