# SPDX-License-Identifier: MIT
"""Waiting for a reply without shutting out Ctrl-C or an event loop.

A call on the main thread goes out as a notification with a completion
callback and is waited for in short slices, so that Python runs its signal
handlers between them: Ctrl-C raises KeyboardInterrupt at once instead of
when the reply comes. The call it abandons still stands in the library: the
peer's slot runs, and its reply, when it comes, is let go by the callback
(which the library calls exactly once when there is a deadline, and at the
reply or the session's end when there is none).

Other threads (slot functions among them, on the library's dispatch thread)
call the library's blocking VXCallWithTimeout: only the main thread gets
KeyboardInterrupt, and a slot that waits must do it inside the library,
which then lets the session readers queue requests past their bound.

A coroutine's call completes its future through loop.call_soon_threadsafe
from the library thread that brings the reply; the loop never waits.
"""

import asyncio
import math
import threading
import time
from typing import Callable, Optional, Tuple

from . import _lifetime
from ._native import NOTIFY_CALLBACK, CFunction, lib
from .paramlist import ParamList

# How long the main thread sleeps between looks for a signal. Linux wakes it
# for one at once; elsewhere this bounds the delay of Ctrl-C.
SLICE_SECONDS = 0.05
# Without a deadline, how often a waiting call checks that its session still
# exists: a notification queued just as its session ends may be let go with
# no completion.
LOOK_EVERY_SECONDS = 1.0
# The library's deadline and ours are read from clocks that may round apart
# by this much; a null reply later than this before our deadline is the
# session's end, not the deadline's.
_CLOCK_SLACK_SECONDS = 0.02
_MAX_TIMEOUT_MS = 2**31 - 1

# What the library gave: the reply (or None), and whether a missing reply
# was the deadline's doing. The reply is a ParamList from the moment it is
# referenced, so that one dropped on any path is still let go.
Outcome = Tuple[Optional[ParamList], bool]


def timeout_ms(timeout: Optional[float]) -> int:
    """The library's form of a timeout in seconds: -1 for none."""
    if timeout is None or timeout == math.inf:
        return -1
    if not isinstance(timeout, (int, float)) or isinstance(timeout, bool) or not timeout >= 0:
        raise ValueError("timeout is a number of seconds, 0 or more, or None to wait without "
                         "limit; not %r" % (timeout,))
    return min(math.ceil(timeout * 1000), _MAX_TIMEOUT_MS)


class Deadline:
    """When a call started and how long it may take."""

    def __init__(self, timeout: Optional[float]) -> None:
        self.ms = timeout_ms(timeout)
        self.at = None if self.ms < 0 else time.monotonic() + self.ms / 1000.0

    def passed(self) -> bool:
        return self.at is not None and time.monotonic() >= self.at - _CLOCK_SLACK_SECONDS


def completion(on_output: Callable[[Optional[int]], None]) -> Tuple[CFunction, object]:
    """A C completion callback that hands the output handle (borrowed, or
    None) to `on_output` once, and is held until then. Gives it with the
    token to pass to forget() when the library refused the notification,
    since the callback then never runs."""
    token = object()

    def run(_application, _slot, _input, output_handle, _user):
        try:
            on_output(output_handle or None)
        finally:
            _lifetime.release_once(token)
        return 0

    c_callback = NOTIFY_CALLBACK(run)
    _lifetime.keep_once(token, c_callback)
    return c_callback, token


def forget(token: object) -> None:
    _lifetime.release_once(token)


class _Reply:
    """One reply awaited by a thread: the library thread that brings it and
    the waiter that may give up meet under the lock, so that a reply is
    either taken by the waiter or let go, never both or neither."""

    def __init__(self, deadline: Deadline) -> None:
        self._deadline = deadline
        self._lock = threading.Lock()
        self._reply: Optional[ParamList] = None
        self._abandoned = False
        self.timed_out = False
        self.done = threading.Event()

    def arrive(self, output: Optional[int]) -> None:
        with self._lock:
            if self._abandoned:
                return  # the borrowed reply goes with its message
            if output:
                self._reply = _referenced(output)
            else:
                self.timed_out = self._deadline.passed()
            self.done.set()

    def take(self) -> Optional[ParamList]:
        with self._lock:
            reply, self._reply = self._reply, None
            return reply

    def abandon(self) -> None:
        with self._lock:
            self._abandoned = True
            reply, self._reply = self._reply, None
        if reply is not None:
            reply.close()


def _referenced(output: int) -> ParamList:
    """Our own reference to a borrowed output list."""
    return ParamList._adopt(lib.VXReferenceHandle(output))


def call_on_main_thread(send: Callable[[CFunction, int], int], deadline: Deadline,
                        session_exists: Callable[[], bool]) -> Tuple[int, Outcome]:
    """Sends through `send(callback, timeout_ms)` (VXNotifyWithTimeout's
    code) and waits for the completion in slices. Gives (code, outcome); a
    code other than 0 means nothing was sent. KeyboardInterrupt, or any
    exception raised between slices, abandons the call."""
    reply = _Reply(deadline)
    c_callback, token = completion(reply.arrive)
    try:  # from the send on: Ctrl-C may come as soon as it returns
        code = send(c_callback, deadline.ms)
        if code != 0:
            forget(token)
            return code, (None, False)
        next_look = time.monotonic() + LOOK_EVERY_SECONDS
        while not reply.done.wait(SLICE_SECONDS):
            if deadline.at is None and time.monotonic() >= next_look:
                next_look = time.monotonic() + LOOK_EVERY_SECONDS
                if not session_exists() and not reply.done.is_set():
                    reply.abandon()
                    return 0, (None, False)
    except BaseException:
        reply.abandon()
        raise
    return 0, (reply.take(), reply.timed_out)


def call_blocking(call: Callable[[int], Optional[int]], deadline: Deadline) -> Outcome:
    """Calls `call(timeout_ms)` (VXCallWithTimeout) on this thread."""
    handle = call(deadline.ms)
    return (ParamList._adopt(handle) if handle else None), not handle and deadline.passed()


def future_completion(loop: asyncio.AbstractEventLoop, future: "asyncio.Future[object]",
                      deadline: Deadline,
                      settle: Callable[["asyncio.Future[object]", Outcome], None]
                      ) -> Tuple[CFunction, object]:
    """A completion callback that passes the outcome to `settle(future,
    outcome)` on the loop's thread. A reply that finds the loop closed, or
    the future cancelled, is let go (one that finds it closing goes with its
    queue of callbacks)."""

    def on_output(output: Optional[int]) -> None:
        reply = _referenced(output) if output else None
        outcome = (reply, not output and deadline.passed())
        try:
            loop.call_soon_threadsafe(_settle_unless_done, future, outcome, settle)
        except RuntimeError:  # the loop is closed: nobody awaits this any more
            if reply is not None:
                reply.close()

    return completion(on_output)


def _settle_unless_done(future: "asyncio.Future[object]", outcome: Outcome,
                        settle: Callable[["asyncio.Future[object]", Outcome], None]) -> None:
    if future.done():  # cancelled while the reply travelled
        if outcome[0] is not None:
            outcome[0].close()
        return
    settle(future, outcome)
