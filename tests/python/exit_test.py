# SPDX-License-Identifier: MIT
"""Scripts that end without shutting their Bus down, or end by raising, must
end with their own exit status: a library thread must never call into an
interpreter that has finalised.

    python3 exit_test.py PYTHON_DIR LIBVXBUS VXCTL [SANITIZER]
"""

import ctypes.util
import os
import subprocess
import sys
import textwrap
import unittest

import binding_under_test

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from process_helpers import LIMIT, Program, free_tcp_port, with_secret  # noqa: E402

PYTHON_DIR = LIBRARY = VXCTL = None
SECRET = "tea for two"
RUNS = 2  # the crash this guards against came in every run; a second run shows a race

PRELUDE = """\
import atexit, subprocess, sys, threading
sys.path.insert(0, %r)
import vxbus
VXCTL, PORT, SERVER, SECRET = %r, %d, %r, %r
exiting = threading.Event()
atexit.register(exiting.set)  # registered last, so it runs before the binding's hook
"""


class ExitTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        port = free_tcp_port()
        cls.server = Program([VXCTL, "serve", "shop", "--port", str(port)], env=with_secret(SECRET))
        cls.server.expect("ready ")
        cls.target = "127.0.0.1:%d" % port

    @classmethod
    def tearDownClass(cls):
        cls.server.stop()

    def script(self, body, want_code, want_error="", only=False):
        source = PRELUDE % (PYTHON_DIR, VXCTL, free_tcp_port(), self.target, SECRET) + textwrap.dedent(body)
        for run in range(RUNS):
            done = subprocess.run([sys.executable, "-c", source], capture_output=True, timeout=LIMIT,
                                  env=dict(os.environ, VXBUS_LIBRARY=LIBRARY, VXBUS_SECRET=SECRET))
            err = done.stderr.decode(errors="replace")
            self.assertEqual(done.returncode, want_code, "run %d: %s" % (run, err))
            self.assertIn(want_error, err)
            if only:  # and nothing else: no exception ignored in a callback, say
                self.assertEqual(err.strip(), want_error)

    def test_a_script_keeps_its_exit_status_whatever_it_leaves_running(self):
        self.script("""
            vxbus.Bus("idle")  # held by no one
            """, 0)
        self.script("""
            with vxbus.Bus("raiser", port=PORT) as bus:
                bus.ready()
                raise RuntimeError("out of tea")
            """, 1, "RuntimeError: out of tea")
        self.script("""
            bus = vxbus.Bus("guesser")
            bus.connect(SERVER, secret=b"wrong")
            """, 1, "refused the connection")

    def test_a_library_that_cannot_load_says_what_was_tried(self):
        script = "import sys\nsys.path.insert(0, %r)\ntry:\n    import vxbus\n" \
                 "except ImportError as error:\n    print(type(error).__name__, error)" % PYTHON_DIR
        other = ctypes.util.find_library("m")
        for library, says in [("/nonexistent/libvxbus.so.0", "vxbus cannot load libvxbus; tried "
                               "VXBUS_LIBRARY=/nonexistent/libvxbus.so.0 (/nonexistent/"),
                              (other, "%s has no VXCreateParamList: it is not libvxbus" % other)]:
            done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True,
                                  timeout=LIMIT, env=dict(os.environ, VXBUS_LIBRARY=library))
            self.assertTrue(done.stdout.startswith("LibraryNotFoundError " + says), done.stdout)
            self.assertIn("set VXBUS_LIBRARY to the library's file", done.stdout)

    def test_calls_given_up_on_may_still_wait_at_exit(self):
        # Their replies come, if at all, after the loop closed or as the bus
        # shuts down at exit: they are let go, and the exit stays clean.
        self.script("""
            import asyncio
            shop = vxbus.Bus("leaver").connect(SERVER, secret=SECRET)
            for n in range(20):
                try:
                    shop.call(1, {"n": n}, timeout=0)
                except vxbus.TimeoutError:
                    pass
            async def give_up():
                for n in range(20):
                    try:
                        await asyncio.wait_for(shop.call_async(1, {"n": n}), 0.0005)
                    except asyncio.TimeoutError:
                        pass
                asyncio.ensure_future(shop.call_async(1))  # still waiting as the loop closes
            asyncio.run(give_up())
            print("gave up", file=sys.stderr)
            """, 0, "gave up", only=True)

    def test_callbacks_in_flight_at_exit_finish_first(self):
        # A slot called by another process, still running when the script
        # ends: the exit waits for it, and it can still use the interpreter.
        self.script("""
            entered = threading.Event()
            def slow(args, sender):
                entered.set()
                exiting.wait(20)
                print("slot finished", sum(range(100000)), file=sys.stderr)
                return {"done": 1}
            bus = vxbus.Bus("busy", port=PORT, secret=SECRET)
            bus.register_slot(1, slow)
            bus.ready()
            caller = subprocess.Popen([VXCTL, "call", "127.0.0.1:%d" % PORT, "1"],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            assert entered.wait(20)
            """, 0, "slot finished 4999950000")
        # A notify callback on a session's reader thread, the same way.
        self.script("""
            answered = threading.Event()
            def on_reply(reply):
                answered.set()
                exiting.wait(20)
                print("callback finished", sum(range(100000)), file=sys.stderr)
            bus = vxbus.Bus("notifier")
            bus.connect(SERVER, secret=SECRET).notify(1, {"n": 1}, on_reply)
            assert answered.wait(20)
            """, 0, "callback finished 4999950000")


def main():
    global PYTHON_DIR, LIBRARY, VXCTL
    PYTHON_DIR, LIBRARY, VXCTL = binding_under_test.arguments()
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
