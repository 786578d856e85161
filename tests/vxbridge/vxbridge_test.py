# SPDX-License-Identifier: MIT
"""vxbridge between two installations simulated on one machine: each has an
application and a bridge of its own, and the bridges meet on NATS servers
that each test starts on free loopback ports. Application B is `vxctl
serve`; A's side is `vxctl` and the test peer; a plain NATS client (the C
client, no vxbus) stands for programs in other languages. Run as:
python3 vxbridge_test.py VXBRIDGE VXCTL TEST_PEER NATS_PROBE NATS_SERVER [GROUP]"""

import json
import os
import signal
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from process_helpers import Program, free_tcp_port, run, wait_until, with_secret  # noqa: E402

BRIDGE = VXCTL = PEER = PROBE = NATS_SERVER = None
SECRET = "tea for two"


class Proc(Program):
    def expect_in(self, text, after=0):
        """The first line of standard error from index `after` on that holds `text`."""
        return self.expect(text, "err", after=after, anywhere=True)


def port_of(app_id):
    return int(app_id.rsplit("/", 1)[0].rsplit(":", 1)[1])


class BridgeCase(unittest.TestCase):
    def start(self, args, env=None):
        proc = Proc(args, env=env or with_secret(SECRET))
        self.addCleanup(self.end, proc)
        return proc

    def end(self, proc):
        """Stops `proc` with SIGTERM, reads it to the end, and fails the test
        if a sanitizer spoke in it."""
        try:
            proc.terminate()
        finally:
            proc.stop()
        for line in proc.errors:
            self.assertNotIn("Sanitizer", line, proc.args[:1])

    def on_a_free_port(self, port, launch, busy=""):
        """launch(port); with port=0 launch(a free port), taken again if another
        process was faster, which the failure tells by holding `busy`."""
        for _ in range(3):
            try:
                return launch(port or free_tcp_port())
            except AssertionError as failure:
                if port or busy not in str(failure):
                    raise
        raise AssertionError("no free port for " + launch.__name__)

    def nats_server(self, port=0, cluster=None, route=None):
        """A NATS server and its URL."""
        def nats_server(listen):
            args = [NATS_SERVER, "-a", "127.0.0.1", "-p", str(listen)]
            if cluster:
                args += ["--cluster_name", "vx", "--cluster", "nats://127.0.0.1:%d" % cluster,
                         "--routes", "nats://127.0.0.1:%d" % route]
            server = self.start(args)
            server.expect_in("Server is ready")
            return server, "nats://127.0.0.1:%d" % listen
        return self.on_a_free_port(port, nats_server)

    def serve_b(self, port=0):
        """Application B (`vxctl serve`, slot 1 echoes, slot 2 prints), and its port."""
        def application_b(listen):
            app = self.start([VXCTL, "serve", "appb", "--port", str(listen), "--signal", "shipped"])
            app.expect("ready ")
            return app, listen
        return self.on_a_free_port(port, application_b, busy="did not open")

    def bridge(self, name, nats, *args, port=None):
        """A bridge, and its appID; with port=None it takes no --port."""
        def bridge(listen):
            command = [BRIDGE, "--nats", nats, "--name", name] + list(args)
            process = self.start(command + (["--port", str(listen)] if listen else []))
            return process, process.expect("ready ").split()[1]
        return bridge(None) if port is None else self.on_a_free_port(port, bridge, busy="did not open")

    def vxctl(self, *args):
        return run([VXCTL] + list(args), env=with_secret(SECRET))

    def call(self, port, slot, *args):
        """A call through the bridge on `port`: (exit code, reply as a dict or None)."""
        code, out, err = self.vxctl("call", "127.0.0.1:%d" % port, str(slot), "--json", *args)
        return code, json.loads(out) if code == 0 else None

    def counters(self, port, subject, kind):
        """The counters of one mapping, from the info slot of the bridge on `port`."""
        code, info = self.call(port, 65535, "{}")
        self.assertEqual(code, 0)
        for mapping in info["mappings"]:
            if mapping["subject"] == subject and mapping["kind"] == kind:
                return {key.split(":")[0]: value for key, value in mapping.items()}
        raise AssertionError("no %s mapping of %s in %r" % (kind, subject, info))

    def listen(self, port, signal_name):
        listener = self.start([VXCTL, "listen", "127.0.0.1:%d" % port, signal_name, "--count",
                               "1", "--json"])
        listener.expect_in("listening to")
        return listener

    def notify_one_way(self, port, slot, count, size):
        """COUNT notifications without a callback from the test peer: publishes."""
        peer = self.start([PEER, "--name", "appa", "--host", "h", "--quiet", "1"])
        peer.expect("ready ")
        peer.send("connect 127.0.0.1 %d %s" % (port, SECRET.encode().hex()))
        app_id = peer.expect("connect-result ").split()
        self.assertEqual(app_id[1], "0")
        peer.send("notify %s %d %d %d" % (app_id[2], slot, count, size))
        self.assertIn("sent=%d " % count, peer.expect("notify-result "))
        return peer


class TwoInstallations(BridgeCase):
    def test_calls_notifications_and_signals_cross_between_installations(self):
        _, url = self.nats_server()
        b, pb = self.serve_b()
        target = "127.0.0.1:%d" % pb
        bridge_b, b_id = self.bridge("bridgeb", url, "--export", "svc.echo=%s,1" % target,
                                     "--export", "svc.note=%s,2" % target,
                                     "--signal", "ev.shipped=%s,shipped" % target, port=0)
        bridge_a, a_id = self.bridge("bridgea", url, "--import", "svc.echo=21",
                                     "--import", "svc.note=22", "--import", "svc.nobody=23",
                                     "--emit", "ev.shipped=shipped", port=0)
        pa, pbb = port_of(a_id), port_of(b_id)
        self.assertEqual(bridge_a.lines[:4], ["import slot 21 -> svc.echo",
                                              "import slot 22 -> svc.note",
                                              "import slot 23 -> svc.nobody",
                                              "emit ev.shipped -> signal shipped"])
        self.assertEqual(bridge_b.lines[2], "signal %s shipped -> ev.shipped" % target)

        # A calls B's echo slot through both bridges; nested lists survive.
        sent = {"id": 7, "big:int64": 1 << 40, "sub": {"s": "hi"}, "raw:hex": "00ff"}
        self.assertEqual(self.call(pa, 21, json.dumps(sent)), (0, sent))

        # A notify with a callback waits for B's slot (a request); one without
        # is a publish, as a plain subscriber sees.
        plain = self.start([PROBE, url, "listen", "svc.note", "4"])
        plain.expect("listening")
        code, _, err = self.vxctl("notify", "127.0.0.1:%d" % pa, "22", "note=fragile")
        self.assertEqual(code, 0, err)
        b.expect('note:string = "fragile"')
        self.notify_one_way(pa, 22, 3, 5)
        b.expect("slot 2 from " + b_id, count=4)  # exactly 4: counted at B's bridge below
        plain.expect("message reply=no ", count=3)
        plain.expect("message reply=yes ")  # the probe stops after 4: 3 and 1 exactly

        # B's signal reaches A's subscriber.
        listener = self.listen(pa, "shipped")
        b.send("emit shipped id=3")
        got = json.loads(listener.expect("{"))
        self.assertEqual((got["from"], got["list"]), (a_id, {"id": 3}))
        self.assertEqual(listener.finish(), 0)

        # Nobody exports svc.nobody: the caller gets an empty list at once.
        code, _, _ = self.vxctl("call", "127.0.0.1:%d" % pa, "23")
        self.assertEqual(code, 5)
        bridge_a.expect_in("import slot 23 -> svc.nobody: nobody answers on svc.nobody; "
                           "the caller gets an empty list")

        # Counted on both ends.
        self.assertEqual(self.counters(pa, "svc.echo", "import")["forwarded"], 1)
        wait_until(lambda: self.counters(pa, "svc.note", "import")["forwarded"] == 4, "4 notes")
        self.assertEqual(self.counters(pa, "svc.nobody", "import")["failed"], 1)
        self.assertEqual(self.counters(pa, "ev.shipped", "emit")["forwarded"], 1)
        self.assertEqual(self.counters(pbb, "svc.note", "export")["forwarded"], 4)
        self.assertEqual(self.counters(pbb, "ev.shipped", "signal")["forwarded"], 1)

        # SIGTERM drains and stops cleanly.
        for bridge in (bridge_a, bridge_b):
            self.assertEqual(bridge.terminate(), 0, bridge.errors)
            self.assertEqual(bridge.lines[-1], "stopped")


class Cluster(BridgeCase):
    def test_notifications_buffered_without_a_server_arrive_after_failover(self):
        p1, p2, c1, c2 = (free_tcp_port() for _ in range(4))
        s1, url1 = self.nats_server(p1, cluster=c1, route=c2)
        s2, url2 = self.nats_server(p2, cluster=c2, route=c1)
        _, pb = self.serve_b()
        target = "127.0.0.1:%d" % pb
        _, b_id = self.bridge("bridgeb", url2, "--export", "svc.echo=%s,1" % target,
                              "--export", "svc.note=%s,2" % target, port=0)
        bridge_a, a_id = self.bridge("bridgea", url1 + "," + url2, "--import", "svc.echo=21",
                                     "--import", "svc.note=22", "--buffer-bytes", "4096", port=0)
        pa, pbb = port_of(a_id), port_of(b_id)
        bridge_a.expect_in("connected to NATS at " + url1)
        # B's interest reaches s1 over the route shortly after it subscribed.
        wait_until(lambda: self.call(pa, 21, "id=1")[0] == 0, "a call across the cluster")

        # s2 pauses, so that A stays without a server for as long as the test
        # wants; then s1, A's server, dies.
        os.kill(s2.proc.pid, signal.SIGSTOP)
        self.addCleanup(lambda: s2.proc.poll() is None and os.kill(s2.proc.pid, signal.SIGCONT))
        with open("/proc/%d/stat" % s2.proc.pid) as stat:
            wait_until(lambda: stat.seek(0) == 0 and stat.read().rsplit(")", 1)[1].split()[0] == "T",
                       "s2 stopped")
        s1.proc.kill()
        s1.proc.wait()
        bridge_a.expect_in("disconnected from NATS")
        self.notify_one_way(pa, 22, 10, 1000)
        wait_until(lambda: sum(self.counters(pa, "svc.note", "import")[k]
                               for k in ("buffered", "dropped")) == 10, "ten notifications")
        note = self.counters(pa, "svc.note", "import")
        self.assertGreaterEqual(note["buffered"], 1)
        self.assertGreaterEqual(note["dropped"], 1)
        self.assertEqual(note["forwarded"], note["buffered"])
        bridge_a.expect_in("the buffer of 4096 bytes is full")

        os.kill(s2.proc.pid, signal.SIGCONT)
        bridge_a.expect_in("reconnected to NATS at %s; %d buffered messages sent, %d dropped" %
                           (url2, note["buffered"], note["dropped"]))
        # Calls resume through s2, and every buffered notification arrives.
        self.assertEqual(self.call(pa, 21, "id=2"), (0, {"id": 2}))
        wait_until(lambda: self.counters(pbb, "svc.note", "export")["forwarded"] ==
                   note["buffered"], "the buffered notifications at B")
        self.assertEqual(self.counters(pbb, "svc.note", "export")["failed"], 0)


class Restarts(BridgeCase):
    def test_calls_resume_after_the_target_or_its_bridge_restarts(self):
        _, url = self.nats_server()
        b, pb = self.serve_b()
        target = "127.0.0.1:%d" % pb
        b_args = ("--export", "svc.echo=%s,1" % target, "--signal", "ev.shipped=%s,shipped" % target)
        bridge_b, b_id = self.bridge("bridgeb", url, *b_args, port=0)
        bridge_a, a_id = self.bridge("bridgea", url, "--import", "svc.echo=21",
                                     "--emit", "ev.shipped=shipped", port=0)
        pa, pbb = port_of(a_id), port_of(b_id)
        self.assertEqual(self.call(pa, 21, "id=1"), (0, {"id": 1}))

        # B goes away: the caller gets an empty list, told why on both sides.
        b.send("quit")
        self.assertEqual(b.finish(), 0)
        bridge_b.expect_in("lost %s " % target)
        self.assertEqual(self.call(pa, 21, "id=2")[0], 5)
        bridge_a.expect_in("svc.echo: the other side answered: ")
        # B comes back on its port: the bridge connects again and subscribes
        # to its signal again.
        mark = len(bridge_b.errors)
        b, _ = self.serve_b(pb)
        bridge_b.expect_in("connected to %s " % target, after=mark)
        self.assertEqual(self.call(pa, 21, "id=3"), (0, {"id": 3}))
        listener = self.listen(pa, "shipped")
        b.send("emit shipped id=4")
        self.assertEqual(json.loads(listener.expect("{"))["list"], {"id": 4})

        # B's bridge restarts: meanwhile nobody answers; then calls work again.
        self.assertEqual(bridge_b.terminate(), 0)
        self.assertEqual(self.call(pa, 21, "id=5")[0], 5)
        bridge_a.expect_in("nobody answers on svc.echo")
        self.bridge("bridgeb", url, *b_args, port=pbb)
        self.assertEqual(self.call(pa, 21, "id=6"), (0, {"id": 6}))


class Failures(BridgeCase):
    def test_a_bad_option_fails_with_code_2_naming_the_argument(self):
        base = ["--nats", "nats://127.0.0.1:4222", "--name", "x"]
        cases = [
            (["--name", "x", "--import", "a=1"], "--nats is missing"),
            (["--nats", "http://h:1", "--name", "x", "--import", "a=1"], "'http://h:1'"),
            (["--nats", "nats://h:0", "--name", "x", "--import", "a=1"], "'nats://h:0'"),
            (base, "nothing to bridge"),
            (base + ["--import", "a.>=1"], "--import 'a.>=1': wildcards"),
            (base + ["--emit", "a..b=sig"], "--emit 'a..b=sig': the subject has an empty token"),
            (base + ["--export", "a=127.0.0.1,1"], "target '127.0.0.1'"),
            (base + ["--export", "a=h:1,x"], "--export 'a=h:1,x': the slot is not a number"),
            (base + ["--signal", "a=pipe:,s"], "the pipe name is empty"),
            (base + ["--import", "a=1", "--import", "b=1"], "slot 1 is imported twice"),
            (base + ["--import", "a=65535"], "the info slot 65535 is also imported"),
            (base + ["--import", "a=4026531840"], "the slot is not a number below"),
            (base + ["--import", "a=1", "--request-timeout", "0"], "--request-timeout '0'"),
            (base + ["--import", "a=1", "--buffer-bytes", "-1"], "--buffer-bytes '-1'"),
            (base + ["--import", "a=1", "--port", "70000"], "--port '70000'"),
            (base + ["--import", "a=1", "--name", "a/b"], "--name 'a/b'"),
            (base + ["--import", "a=1", "--nats-creds", "/nonexistent"], "--nats-creds"),
            (base + ["--import", "a=1", "--bogus"], "unknown option '--bogus'"),
            (base + ["--import", "a=1", "--secret-file", "/nonexistent"], "--secret-file"),
            (base + ["--import", "a=1", "--port"], "--port wants a value"),
        ]
        for args, message in cases:
            code, _, err = run([BRIDGE] + args, env=with_secret(SECRET))
            self.assertEqual(code, 2, (args, err))
            self.assertIn(message, err, args)
        env = {k: v for k, v in os.environ.items() if k != "VXBUS_SECRET"}
        code, _, err = run([BRIDGE] + base + ["--import", "a=1"], env=env)
        self.assertEqual((code, "no secret" in err), (2, True), err)
        code, out, _ = run([BRIDGE, "--help"])
        for flag in ("--nats", "--export", "--import", "--signal", "--emit", "--json",
                     "--request-timeout", "--buffer-bytes", "--info-slot", "--nats-creds",
                     "--nats-tls-ca", "--secret-file", "65535"):
            self.assertIn(flag, out)

    def test_a_wrong_local_secret_ends_with_4(self):
        _, pb = self.serve_b()
        code, _, err = run([BRIDGE, "--nats", "nats://127.0.0.1:%d" % free_tcp_port(), "--name", "x",
                            "--export", "a=127.0.0.1:%d,1" % pb], env=with_secret("not the secret"))
        self.assertEqual(code, 4, err)
        self.assertIn("127.0.0.1:%d refused the bridge: wrong secret" % pb, err)

    def test_a_missing_nats_server_is_retried_until_it_comes(self):
        nats_port = free_tcp_port()
        _, pb = self.serve_b()
        url = "nats://127.0.0.1:%d" % nats_port
        bridge, _ = self.bridge("bridgeb", url, "--json", "--export",
                                "svc.echo=127.0.0.1:%d,1" % pb)
        bridge.expect_in("cannot reach NATS at %s: nothing answered; retrying" % url)
        self.nats_server(nats_port)
        bridge.expect_in("connected to NATS at " + url)
        code, out, _ = run([PROBE, url, "request", "svc.echo", '{"id":5}', "10000"])
        self.assertEqual((code, out.strip()), (0, 'reply format=json error=- {"id":5}'))


class Json(BridgeCase):
    def test_a_plain_nats_client_takes_part_without_loops(self):
        _, url = self.nats_server()
        b, pb = self.serve_b()
        pipe = "vxbridge-test-%d" % os.getpid()
        self.start([VXCTL, "serve", "appp", "--pipe", pipe]).expect("ready ")
        target = "127.0.0.1:%d" % pb
        bridge, j_id = self.bridge("bridgej", url, "--json", "--export", "svc.echo=%s,1" % target,
                                "--export", "svc.piped=pipe:%s,1" % pipe,
                                "--import", "svc.silent=31", "--signal",
                                "ev.loop=%s,shipped" % target, "--emit", "ev.loop=shipped",
                                "--request-timeout", "1", port=0)
        pj = port_of(j_id)
        version = run([BRIDGE, "--version"])[1].split()[1]

        # A request from a plain client is answered by B as vxctl's JSON.
        sent = {"id": 7, "big:int64": 1 << 40, "sub": {"s": "hi"}, "words": ["a", "b"],
                "raw:hex": "00ff"}
        code, out, _ = run([PROBE, url, "request", "svc.echo", json.dumps(sent), "10000"])
        self.assertEqual(code, 0, out)
        self.assertEqual(out.split(" ", 3)[1:3], ["format=json", "error=-"])
        self.assertEqual(json.loads(out.split(" ", 3)[3]), sent)
        # An application reached over local pipes.
        bridge.expect_in("connected to pipe:%s " % pipe)
        code, out, _ = run([PROBE, url, "request", "svc.piped", '{"p":1}', "10000"])
        self.assertEqual((code, out.strip()), (0, 'reply format=json error=- {"p":1}'))
        # Hostile payloads get an error reply and are counted, nothing more.
        for payload in ("not json", "[1,2]", '{"a":' * 100 + "1" + "}" * 100):
            code, out, _ = run([PROBE, url, "request", "svc.echo", payload, "10000"])
            self.assertIn("error=the request is not a list", out)
        self.assertEqual(self.counters(pj, "svc.echo", "export")["failed"], 3)

        # B's signal reaches a plain subscriber, and what the bridge published
        # does not come back into it: its own subscriber's first emission is
        # the one the plain client published after it.
        plain = self.start([PROBE, url, "listen", "ev.loop", "1"])
        plain.expect("listening")
        local = self.listen(pj, "shipped")
        b.send("emit shipped id=1")
        self.assertEqual(plain.expect("message "),
                         'message reply=no format=json version=%s {"id":1}' % version)
        code, out, _ = run([PROBE, url, "publish", "ev.loop", '{"from":"probe"}'])
        self.assertEqual((code, out.strip()), (0, "published"))
        self.assertEqual(json.loads(local.expect("{"))["list"], {"from": "probe"})

        # An imported call that a subscriber never answers times out.
        silent = self.start([PROBE, url, "listen", "svc.silent", "1"])
        silent.expect("listening")
        code, _, _ = self.vxctl("call", "127.0.0.1:%d" % pj, "31", "x=1")
        self.assertEqual(code, 5)
        self.assertEqual(silent.expect("message "),
                         'message reply=yes format=json version=%s {"x":1}' % version)
        bridge.expect_in("import slot 31 -> svc.silent: no answer within 1 s; "
                         "the caller gets an empty list")


if __name__ == "__main__":
    BRIDGE, VXCTL, PEER, PROBE, NATS_SERVER = sys.argv[1:6]
    unittest.main(argv=sys.argv[:1] + sys.argv[6:], verbosity=2)  # the rest name groups
