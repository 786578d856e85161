# SPDX-License-Identifier: MIT
"""Joining the bus: one Bus per process, a Peer per connection.

Slot functions and notify callbacks run on the library's threads; ctypes
takes the interpreter lock for them. A call waits until its reply comes, its
session ends or its `timeout` passes; on the main thread Ctrl-C interrupts it
(see _waiting for what becomes of the call given up on).
"""

import asyncio
import logging
import socket
import threading
from typing import Any, Callable, Dict, Mapping, Optional, Tuple, Union

from . import _lifetime, _waiting, paramlist
from ._native import NO_NOTIFY_CALLBACK, SLOT_FUNCTION, CFunction, lib
from .errors import TargetError, TimeoutError, VxbusError

VX_SUCCESS, VX_ERROR_FAILED, VX_ERROR_NO_SLOT, VX_ERROR_NO_SIGNAL = 0, -1, -3, -4
VX_ERROR_NO_APPLICATION, VX_ERROR_NAME_IN_USE, VX_ERROR_QUEUE_FULL = -5, -7, -8

# What a call or notification carries: a mapping of names to values, a
# ParamList, or None for an empty list.
Data = Optional[Union[Mapping[str, Any], paramlist.ParamList]]
# What a notify callback gets: the reply, None when the session ended first,
# or the TimeoutError when the timeout passed first.
NotifyCallback = Callable[[Union[Dict[str, Any], None, TimeoutError]], None]
SlotFunction = Callable[[Dict[str, Any], str], Optional[Mapping[str, Any]]]
LogFunction = Callable[[int, str], None]

# The line the library logs once its TCP listener accepts peers.
_LISTENING = b"listen for incoming connection on"
_MAX_TARGET_LENGTH = 1024
_TARGET_FORMS = '"host:port" (as "127.0.0.1:47001", or an appID "host:port/name") or "pipe:NAME"'

log = logging.getLogger("vxbus")


def error_text(code: int) -> str:
    """The library's short English text for a return code."""
    return lib.VXErrorText(code).decode()


def _check(code: int, what: str) -> None:
    if code != VX_SUCCESS:
        raise VxbusError(code, what)


def _list_handle(data: Data) -> Tuple[Optional[int], bool]:
    """(handle, owned) for a mapping, a ParamList or None."""
    if data is None:
        return None, False
    if isinstance(data, paramlist.ParamList):
        return data.handle, False
    return paramlist._new_handle(data), True


def _parse_target(target: str) -> Tuple[str, int]:
    """(host, port) for "host:port[/name]", or (pipe name, 0) for "pipe:NAME"."""
    if not isinstance(target, str):
        raise TypeError("a target is a str: %s, not %s" % (_TARGET_FORMS, type(target).__name__))
    if len(target) > _MAX_TARGET_LENGTH or "\0" in target:
        raise TargetError("a target is at most %d characters with no NUL: %s" %
                          (_MAX_TARGET_LENGTH, _TARGET_FORMS))
    if target.startswith("pipe:"):
        if len(target) > len("pipe:"):
            return target[len("pipe:"):], 0
    else:
        host, colon, port = target.split("/", 1)[0].rpartition(":")
        if colon and host and port.isdigit() and 0 < int(port) < 65536:
            return host, int(port)
    raise TargetError("cannot connect to %r: a target is %s" % (target, _TARGET_FORMS))


class Peer:
    """One connected application. Leaving a `with` block disconnects it.

    `timeout` is in seconds (None waits without limit); when it passes first,
    vxbus.TimeoutError is raised and the session goes on: the reply that
    still comes is read and let go.
    """

    def __init__(self, bus: "Bus", app_id: str) -> None:
        self.bus = bus
        self.app_id = app_id
        self._name = app_id.encode()

    def call(self, slot: int, data: Data = None, timeout: Optional[float] = None
             ) -> paramlist.ParamList:
        """Calls `slot` with `data` and gives the reply as a ParamList.
        Raises TimeoutError when `timeout` passed first, VxbusError when the
        session ended first. On the main thread Ctrl-C raises
        KeyboardInterrupt at once; the call then stands, and its reply is let
        go when it comes. A ParamList given as `data` must not change until
        then. There the call goes out as a notification, so, as notify, it
        raises VxbusError with VX_ERROR_QUEUE_FULL when the peer's send queue
        stayed full."""
        deadline = _waiting.Deadline(timeout)
        handle, owned = _list_handle(data)
        try:
            if threading.current_thread() is threading.main_thread():
                code, outcome = _waiting.call_on_main_thread(
                    lambda callback, ms: lib.VXNotifyWithTimeout(self._name, slot, handle, callback,
                                                                 None, ms),
                    deadline, self._connected)
                self._check_sent(code)
            else:
                outcome = _waiting.call_blocking(
                    lambda ms: lib.VXCallWithTimeout(self._name, slot, handle, ms), deadline)
        finally:
            if owned:
                lib.VXCloseHandle(handle)
        return self._reply(slot, timeout, outcome)

    def notify(self, slot: int, data: Data = None, callback: Optional[NotifyCallback] = None,
               timeout: Optional[float] = None) -> None:
        """Sends `data` to `slot` without waiting for a reply. While the
        peer's send queue is full it waits for room, and raises VxbusError
        with VX_ERROR_QUEUE_FULL when none came in time. `callback(reply)`,
        if given, runs once on a library thread with the reply as a dict,
        None when the session ended first, or, with a `timeout`, the
        TimeoutError (not raised) when that passed first. An exception it
        raises is logged to the "vxbus" logger."""
        deadline = _waiting.Deadline(timeout)
        handle, owned = _list_handle(data)
        c_callback, token = self._notify_callback(slot, callback, deadline) if callback else \
            (NO_NOTIFY_CALLBACK, None)
        try:
            code = lib.VXNotifyWithTimeout(self._name, slot, handle, c_callback, None, deadline.ms)
        finally:
            if owned:
                lib.VXCloseHandle(handle)
        if code != VX_SUCCESS and token is not None:
            _waiting.forget(token)
        self._check_sent(code)

    async def call_async(self, slot: int, data: Data = None, timeout: Optional[float] = None
                         ) -> paramlist.ParamList:
        """call() for asyncio: the loop goes on while the reply travels, and
        the reply completes the await through loop.call_soon_threadsafe.
        Cancelling the await lets the reply go when it comes. Only a full
        send queue holds the loop, as it holds notify()."""

        def settle(future: "asyncio.Future[object]", outcome: _waiting.Outcome) -> None:
            try:
                future.set_result(self._reply(slot, timeout, outcome))
            except VxbusError as error:
                future.set_exception(error)

        result = await self._send_async(slot, data, timeout, settle)
        assert isinstance(result, paramlist.ParamList)
        return result

    async def notify_async(self, slot: int, data: Data = None, timeout: Optional[float] = None
                           ) -> Optional[Dict[str, Any]]:
        """A notification whose reply is awaited: the reply as a dict, or
        None when the session ended first. Raises TimeoutError when `timeout`
        passed first."""

        def settle(future: "asyncio.Future[object]", outcome: _waiting.Outcome) -> None:
            reply, timed_out = outcome
            if timed_out:
                future.set_exception(self._timeout_error(slot, timeout))
            elif reply is None:
                future.set_result(None)
            else:
                with reply:
                    future.set_result(reply.to_dict())

        result = await self._send_async(slot, data, timeout, settle)
        assert result is None or isinstance(result, dict)
        return result

    async def _send_async(self, slot: int, data: Data, timeout: Optional[float],
                          settle: Callable[["asyncio.Future[object]", _waiting.Outcome], None]
                          ) -> object:
        loop = asyncio.get_running_loop()
        future: "asyncio.Future[object]" = loop.create_future()
        deadline = _waiting.Deadline(timeout)
        handle, owned = _list_handle(data)
        c_callback, token = _waiting.future_completion(loop, future, deadline, settle)
        try:
            code = lib.VXNotifyWithTimeout(self._name, slot, handle, c_callback, None, deadline.ms)
        finally:
            if owned:
                lib.VXCloseHandle(handle)
        if code != VX_SUCCESS:
            _waiting.forget(token)
        self._check_sent(code)
        return await future

    def _notify_callback(self, slot: int, callback: NotifyCallback, deadline: _waiting.Deadline
                         ) -> Tuple[CFunction, object]:
        timeout = None if deadline.at is None else deadline.ms / 1000.0

        def on_output(output: Optional[int]) -> None:
            try:
                if output:
                    callback(paramlist.to_dict(output))
                else:
                    callback(self._timeout_error(slot, timeout) if deadline.passed() else None)
            except Exception:  # it must not unwind into the library
                log.exception("the callback of a notification to slot %d of %s raised", slot,
                              self.app_id)

        return _waiting.completion(on_output)

    def _check_sent(self, code: int) -> None:
        if code == VX_ERROR_QUEUE_FULL:
            raise VxbusError(code, "the queue to %s stayed full" % self.app_id)
        _check(code, "no session with %s" % self.app_id)

    def _timeout_error(self, slot: int, timeout: Optional[float]) -> TimeoutError:
        return TimeoutError("slot %d of %s gave no reply within %g s" % (slot, self.app_id,
                                                                        timeout or 0))

    def _reply(self, slot: int, timeout: Optional[float], outcome: _waiting.Outcome
               ) -> paramlist.ParamList:
        reply, timed_out = outcome
        if reply is not None:
            return reply
        if timed_out:
            raise self._timeout_error(slot, timeout)
        raise VxbusError(VX_ERROR_FAILED,
                         "the session with %s ended before the reply" % self.app_id)

    def _connected(self) -> bool:
        return any(session["appId"] == self.app_id for session in self.bus.info()["sessions"])

    def connect_signal(self, signal: str, slot: int) -> None:
        """Subscribes our `slot` to `signal` of this peer."""
        _check(lib.VXConnectSignal(self._name, signal.encode(), slot), "connect_signal")

    def disconnect_signal(self, signal: str, slot: int) -> None:
        _check(lib.VXDisconnectSignal(self._name, signal.encode(), slot), "disconnect_signal")

    def disconnect(self) -> None:
        lib.VXDisconnect(self._name)

    def __enter__(self) -> "Peer":
        return self

    def __exit__(self, *_: object) -> None:
        self.disconnect()


class Bus:
    """This process as an application on the bus.

    Bus(name, port=0, pipe=None, bind=None, secret=b"", log=None): `port` 0
    connects out only; `pipe` also listens on a pair of local pipes. `secret`
    is what connecting peers must prove they know. `log(level, text)`, if
    given, receives the library's log lines. The bus starts at once; call
    ready() once slots and signals are registered, so that peers may come in.
    Leaving a `with` block (or shutdown()) stops it; a Bus still running
    when the interpreter exits is shut down then, before callbacks into
    Python could no longer run.
    """

    def __init__(self, name: str, port: int = 0, pipe: Optional[str] = None,
                 bind: Optional[str] = None, secret: Union[bytes, str] = b"",
                 log: Optional[LogFunction] = None) -> None:
        self.name = name
        self.port = port
        self._log = log
        self._listening = threading.Event()
        self._running = False
        if isinstance(secret, str):
            secret = secret.encode()
        _check(lib.VXSetAuthenticationInfo(secret, len(secret)), "the secret is longer than 256 bytes")
        self._running = True
        _lifetime.bus_started(self, bool(log))
        code = lib.VXInitializeWithPipeChannel(pipe.encode() if pipe else None,
                                               bind.encode() if bind else None,
                                               name.encode(), port, None)
        if code != VX_SUCCESS:
            self.shutdown()
            raise VxbusError(code, "the library did not start as %s: %s" % (name, error_text(code)))
        self.app_id = "%s:%d/%s" % (socket.gethostname(), port, name)

    def _on_log(self, level: int, text: bytes) -> None:
        if text.startswith(_LISTENING):
            self._listening.set()
        if self._log:
            self._log(level, text.decode(errors="replace"))

    def ready(self, timeout: float = 10.0) -> None:
        """Lets peers in; with a port, waits until the listener accepts."""
        lib.VXConnectionReady()
        if self.port and not self._listening.wait(timeout):
            raise VxbusError(VX_ERROR_FAILED, "port %d did not open" % self.port)

    def connect(self, target: str, secret: Union[bytes, str] = b"") -> Peer:
        """Connects to "host:port" (an appID's "/name" is ignored) or
        "pipe:NAME" and gives the Peer. Raises TargetError for a target of
        neither form, VxbusError with the library's code and its text when
        the connection failed."""
        where, port = _parse_target(target)
        if isinstance(secret, str):
            secret = secret.encode()
        buffer = (b"\0" * 256)
        if target.startswith("pipe:"):
            code = lib.VXConnectEx(where.encode(), None, 0, buffer, 256, secret, len(secret))
        else:
            code = lib.VXConnect(where.encode(), port, buffer, 256, secret, len(secret))
        if code == VX_ERROR_NAME_IN_USE:
            raise VxbusError(code, "%s refused the connection: %s" % (target, error_text(code)))
        _check(code, "cannot connect to %s: %s" % (target, error_text(code)))
        return Peer(self, buffer.split(b"\0", 1)[0].decode())

    def register_slot(self, slot: int, function: SlotFunction) -> None:
        """`function(args, sender)` serves `slot`: `args` is the input as a
        dict, `sender` the caller's appID; a mapping it returns is the reply.
        When it raises, the traceback goes to the "vxbus" logger and the
        caller gets an empty reply, as from a slot that is not there."""

        def run(input_handle: int, output_handle: Optional[int], context: Any) -> int:
            try:
                result = function(paramlist.to_dict(input_handle) or {},
                                  context.contents.senderName.decode(errors="replace"))
                if result is not None and output_handle:
                    paramlist.fill(output_handle, result)
                return VX_SUCCESS
            except Exception:  # a slot's failure must not unwind into the library
                log.exception("slot %d raised; its caller gets an empty reply", slot)
                if output_handle:
                    paramlist.clear(output_handle)  # what a half-filled reply held
                return VX_ERROR_FAILED

        c_function = SLOT_FUNCTION(run)
        # Slots outlive a shutdown in the library, so they outlive this Bus here.
        _lifetime.keep_slot(slot, c_function)
        _check(lib.VXRegisterSlot(slot, c_function, None), "register_slot %d" % slot)

    def unregister_slot(self, slot: int) -> None:
        _check(lib.VXUnregisterSlot(slot), "unregister_slot %d" % slot)
        _lifetime.drop_slot(slot)

    def serve_info(self, slot: int) -> None:
        """Lets peers ask for info() by calling `slot` (which this replaces)."""
        _check(lib.VXServeBusInfo(slot), "serve_info %d" % slot)
        _lifetime.drop_slot(slot)

    def info(self) -> Dict[str, Any]:
        """This process as the library sees it now: "appId", "version",
        "slots", "signals" (each with "name", "subscribers" and "slots"),
        "sessions" (each with "appId", "channel", "address", "connectedMs",
        frame, byte and queue counts and "pendingCalls") and "counters"; the
        library's header documents every field."""
        handle = lib.VXGetBusInfo()
        try:
            return paramlist.to_dict(handle) or {}
        finally:
            lib.VXCloseHandle(handle)

    def register_signal(self, signal: str) -> None:
        _check(lib.VXRegisterSignal(signal.encode()), "register_signal %s" % signal)

    def emit(self, signal: str, data: Data = None) -> None:
        """Sends `data` to every subscriber of `signal`."""
        handle, owned = _list_handle(data)
        try:
            code = lib.VXEmit(signal.encode(), handle, NO_NOTIFY_CALLBACK, None)
        finally:
            if owned:
                lib.VXCloseHandle(handle)
        _check(code, "no signal %s" % signal)

    def shutdown(self) -> None:
        """Ends every session and stops the library in this process."""
        if self._running:
            self._running = False
            lib.VXShutdown()
            _lifetime.bus_stopped(self)

    def __enter__(self) -> "Bus":
        return self

    def __exit__(self, *_: object) -> None:
        self.shutdown()
