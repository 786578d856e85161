# SPDX-License-Identifier: MIT
"""Calls that wait: deadlines, Ctrl-C and asyncio, against the test peer,
whose slot 8 holds its reply until the command "release" comes (once per
peer) and whose slot 1 echoes its input.

    python3 waiting_test.py PYTHON_DIR LIBVXBUS TEST_PEER [SANITIZER]
"""

import asyncio
import builtins
import os
import signal
import socket
import sys
import textwrap
import threading
import unittest

import binding_under_test

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from process_helpers import LIMIT, Program, free_tcp_port, wait_until  # noqa: E402

PYTHON_DIR = TEST_PEER = None
vxbus = None
SHORT = 0.1  # seconds: a deadline that slot 8 always misses


def start_peer():
    port = free_tcp_port()
    peer = Program([TEST_PEER, "--name", "shop", "--host", socket.gethostname(),
                    "--port", str(port), "--quiet", "1"])
    peer.expect("ready ")
    return peer, "127.0.0.1:%d" % port


class WaitingTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bus = vxbus.Bus("waiter")

    @classmethod
    def tearDownClass(cls):
        cls.bus.shutdown()

    def setUp(self):
        self.peer, self.target = start_peer()
        self.addCleanup(self.peer.stop)
        self.shop = self.bus.connect(self.target)
        self.addCleanup(self.shop.disconnect)
        self.lists_before = self.bus.info()["counters"]["paramLists"]

    def session(self):
        (session,) = self.bus.info()["sessions"]
        return session

    def assert_lists_let_go(self):
        """The count of lists alive comes back: they are let go on whichever
        library thread drops them last."""
        wait_until(lambda: self.bus.info()["counters"]["paramLists"] == self.lists_before,
                   "every list let go")

    def test_every_kind_of_wait_keeps_its_deadline(self):
        def timed_out(error):
            self.assertIsInstance(error, vxbus.TimeoutError)
            self.assertIsInstance(error, builtins.TimeoutError)
            self.assertIsInstance(error, vxbus.VxbusError)
            self.assertEqual(str(error), "slot 8 of %s gave no reply within %g s" %
                             (self.shop.app_id, SHORT))

        with self.assertRaises(vxbus.TimeoutError) as raised:  # the main thread's way
            self.shop.call(8, {"n": 1}, timeout=SHORT)
        timed_out(raised.exception)

        results = []  # any other thread's way, which slot functions take too
        thread = threading.Thread(target=lambda: results.append(self.attempt(8, SHORT)))
        thread.start()
        thread.join(LIMIT)
        timed_out(results[0])

        answered = threading.Event()
        self.shop.notify(8, {"n": 3}, lambda reply: (results.append(reply), answered.set()), SHORT)
        self.assertTrue(answered.wait(LIMIT))
        timed_out(results[1])

        async def both_async():
            for waiting in (self.shop.call_async(8, timeout=SHORT),
                            self.shop.notify_async(8, {"n": 5}, timeout=SHORT)):
                with self.assertRaises(vxbus.TimeoutError) as raised:
                    await waiting
                timed_out(raised.exception)
        asyncio.run(both_async())

        self.assertEqual(self.session()["pendingCalls"], 5)  # given up on, not forgotten
        # Once released, the late replies reach us before the echo's: they
        # are read and let go, and the peer goes on.
        self.peer.send("release")
        with self.shop.call(1, {"after": "release"}, timeout=LIMIT) as reply:
            self.assertEqual(reply["after"], "release")
        self.assertEqual(self.session()["pendingCalls"], 0)
        self.assert_lists_let_go()

    def attempt(self, slot, timeout):
        try:
            return self.shop.call(slot, timeout=timeout)
        except vxbus.VxbusError as error:
            return error

    def test_a_call_ends_with_its_session_whichever_thread_waits(self):
        def kill_when_held():
            self.peer.expect("holding")
            self.peer.proc.kill()

        for on_main in (True, False):
            with self.subTest(main_thread=on_main):
                if not on_main:
                    self.setUp()  # a new peer: the first one was killed
                results = []

                def call():
                    results.append(self.attempt(8, None))

                helper = threading.Thread(target=kill_when_held if on_main else call)
                helper.start()
                call() if on_main else kill_when_held()
                helper.join(LIMIT)
                self.assertEqual(str(results[0]), "the session with %s ended before the reply "
                                 "(%d)" % (self.shop.app_id, vxbus.VX_ERROR_FAILED))

    def test_ctrl_c_interrupts_a_call_at_once(self):
        script = textwrap.dedent("""
            import sys, time
            sys.path.insert(0, %r)
            import vxbus
            bus = vxbus.Bus("interrupted")
            shop = bus.connect(%r)
            before = bus.info()["counters"]["paramLists"]
            try:
                shop.call(8)
            except KeyboardInterrupt:
                print("interrupted", flush=True)
            with shop.call(8) as reply:  # waits for the release, after the first reply
                print("served by", reply["servedBy"], flush=True)
            deadline = time.monotonic() + %r  # lists go on whichever thread drops them last
            while bus.info()["counters"]["paramLists"] != before and time.monotonic() < deadline:
                time.sleep(0.001)
            info = bus.info()
            print("left", info["sessions"][0]["pendingCalls"],
                  info["counters"]["paramLists"] - before, flush=True)
            """) % (PYTHON_DIR, self.target, LIMIT)
        caller = Program([sys.executable, "-c", script])
        self.addCleanup(caller.stop)
        self.peer.expect("holding")  # the call is waiting in the caller now
        caller.proc.send_signal(signal.SIGINT)
        # KeyboardInterrupt comes within 100 ms; the bound leaves room for a loaded machine.
        caller.expect("interrupted", limit=5.0)
        self.peer.send("release")
        caller.expect("served by hold")
        self.assertEqual(caller.expect("left "), "left 0 0")
        self.assertEqual(caller.finish(), 0)
        self.assertEqual(caller.errors, [])

    def test_asyncio_calls_leave_the_loop_free(self):
        async def scenario():
            held = asyncio.ensure_future(self.shop.call_async(8, {"n": 1}))
            await asyncio.sleep(0)  # lets the call go out
            self.assertFalse(held.done())  # the loop runs while slot 8 holds its reply
            self.peer.expect("holding")
            self.peer.send("release")
            reply = await asyncio.wait_for(held, LIMIT)
            self.assertEqual(reply.to_dict(), {"servedBy": "hold"})
            reply.close()

            # Replies find their own calls, however many are in flight.
            replies = await asyncio.wait_for(asyncio.gather(
                *(self.shop.call_async(1, {"i": i}) for i in range(20))), LIMIT)
            self.assertEqual([r["i"] for r in replies], list(range(20)))
            for r in replies:
                r.close()
            echo = await asyncio.wait_for(self.shop.notify_async(1, {"note": "x"}), LIMIT)
            self.assertEqual(echo, {"note": "x", "servedBy": self.shop.app_id})

            # A cancelled await lets its reply go when it comes.
            cancelled = asyncio.ensure_future(self.shop.call_async(1, {"i": -1}))
            await asyncio.sleep(0)
            cancelled.cancel()
            with self.assertRaises(asyncio.CancelledError):
                await cancelled
            after = await asyncio.wait_for(self.shop.call_async(1, {"i": -2}), LIMIT)
            after.close()  # its reply came behind the cancelled one's, on the same loop
            with self.assertRaisesRegex(ValueError, "timeout is a number of seconds"):
                await self.shop.call_async(1, timeout=-1)

        asyncio.run(scenario())
        with self.shop.call(1, timeout=LIMIT):  # after the cancelled call's reply
            pass
        self.assert_lists_let_go()


def main():
    global PYTHON_DIR, TEST_PEER, vxbus
    PYTHON_DIR, library, TEST_PEER = binding_under_test.arguments()
    vxbus = binding_under_test.load(PYTHON_DIR, library)
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
