# SPDX-License-Identifier: MIT
"""Helpers for tests that drive programs: start one, read its lines with a
bound, free TCP ports. Standard library only."""

import os
import selectors
import signal
import socket
import subprocess
import time

LIMIT = 20.0  # seconds any single wait may take; sanitizer builds are slow


def with_secret(secret):
    """This process's environment, with the secret vxctl takes from it."""
    return dict(os.environ, VXBUS_SECRET=secret)


def free_tcp_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Program:
    """A running program whose standard output is read line by line."""

    def __init__(self, args, env=None, stdin=subprocess.PIPE):
        self.args = args
        self.proc = subprocess.Popen(args, stdin=stdin, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, env=env)
        self.lines = []
        self.errors = []
        self._buffers = {self.proc.stdout: b"", self.proc.stderr: b""}
        self._selector = selectors.DefaultSelector()
        for stream in self._buffers:
            os.set_blocking(stream.fileno(), False)
            self._selector.register(stream, selectors.EVENT_READ)

    def _pump(self, timeout):
        for key, _ in self._selector.select(timeout):
            data = key.fileobj.read()
            if not data:
                self._selector.unregister(key.fileobj)
                continue
            buffered = self._buffers[key.fileobj] + data
            *complete, self._buffers[key.fileobj] = buffered.split(b"\n")
            target = self.lines if key.fileobj is self.proc.stdout else self.errors
            target.extend(line.decode(errors="replace") for line in complete)

    def expect(self, text, stream="out", limit=LIMIT, count=1, after=0, anywhere=False):
        """The first line from index `after` on (seen so far or later) that
        starts with `text`, or holds it `anywhere`; with `count`, once that
        many have come."""
        deadline = time.monotonic() + limit
        seen = self.lines if stream == "out" else self.errors
        while True:
            found = [line for line in seen[after:]
                     if (text in line if anywhere else line.startswith(text))]
            if len(found) >= count:
                return found[0]
            left = deadline - time.monotonic()
            if left <= 0 or not self._selector.get_map():
                raise AssertionError("%s: no line %s %r; out=%r err=%r" %
                                     (self.args[:2], "holding" if anywhere else "starting with",
                                      text, self.lines, self.errors))
            self._pump(left)

    def send(self, line):
        self.proc.stdin.write((line + "\n").encode())
        self.proc.stdin.flush()

    def finish(self, limit=LIMIT):
        """Waits for the end; gives the exit code."""
        deadline = time.monotonic() + limit
        while self._selector.get_map() and time.monotonic() < deadline:
            self._pump(deadline - time.monotonic())
        return self.proc.wait(max(0.0, deadline - time.monotonic()))

    def terminate(self):
        """SIGTERM, then the exit code."""
        self.proc.send_signal(signal.SIGTERM)
        return self.finish()

    def stop(self):
        if self.proc.poll() is None:
            self.proc.kill()
            self.proc.wait()
        for stream in (self.proc.stdin, self.proc.stdout, self.proc.stderr):
            if stream:
                stream.close()


def run(args, env=None, stdin_data=None, limit=LIMIT):
    """Runs a program to its end: (exit code, stdout, stderr) as text."""
    done = subprocess.run(args, input=stdin_data, capture_output=True, env=env, timeout=limit)
    return done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace")


def wait_until(condition, what, limit=LIMIT):
    deadline = time.monotonic() + limit
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError("still not: " + what)
        time.sleep(0.05)  # polling a condition with a bound, not synchronising by time
