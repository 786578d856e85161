"""Joining the bus: one Bus per process, a Peer per connection.

Slot functions and notify callbacks run on the library's threads; ctypes
takes the interpreter lock for them. Calls block without a time limit of
their own, as the library's do, and end when the session ends.
"""

import os
import socket
import sys
import threading
import traceback

from . import _lifetime, paramlist
from ._native import NOTIFY_CALLBACK, SLOT_FUNCTION, lib

VX_SUCCESS, VX_ERROR_FAILED, VX_ERROR_NO_SLOT, VX_ERROR_NO_SIGNAL = 0, -1, -3, -4
VX_ERROR_NO_APPLICATION, VX_ERROR_NAME_IN_USE, VX_ERROR_QUEUE_FULL = -5, -7, -8

# The line the library logs once its TCP listener accepts peers.
_LISTENING = b"listen for incoming connection on"


class VxbusError(Exception):
    """A call of the library failed; `code` is its return code."""

    def __init__(self, code, message):
        super().__init__("%s (%d)" % (message, code))
        self.code = code


def _check(code, what):
    if code != VX_SUCCESS:
        raise VxbusError(code, what)


def _list_handle(data):
    """(handle, owned) for a mapping, a ParamList or None."""
    if data is None:
        return None, False
    if isinstance(data, paramlist.ParamList):
        return data.handle, False
    return paramlist._new_handle(data), True


class Peer:
    """One connected application. Leaving a `with` block disconnects it."""

    def __init__(self, bus, app_id):
        self.bus = bus
        self.app_id = app_id
        self._name = app_id.encode()

    def call(self, slot, data=None):
        """Calls `slot` with `data` (a mapping) and gives the reply as a
        ParamList. Raises VxbusError when the session ends first."""
        handle, owned = _list_handle(data)
        try:
            reply = lib.VXCall(self._name, slot, handle)
        finally:
            if owned:
                lib.VXCloseHandle(handle)
        if not reply:
            raise VxbusError(VX_ERROR_FAILED, "the session with %s ended before the reply" % self.app_id)
        return paramlist.ParamList._adopt(reply)

    def notify(self, slot, data=None, callback=None):
        """Sends `data` to `slot` without waiting for a reply. While the
        peer's send queue is full it waits for room, and raises VxbusError
        with VX_ERROR_QUEUE_FULL when none came in time. `callback(reply)`,
        if given, runs on a library thread with the reply as a dict, or None
        when the session ended first."""
        handle, owned = _list_handle(data)
        c_callback = self.bus._keep_callback(callback) if callback else NOTIFY_CALLBACK()
        try:
            code = lib.VXNotify(self._name, slot, handle, c_callback, None)
        finally:
            if owned:
                lib.VXCloseHandle(handle)
        if code == VX_ERROR_QUEUE_FULL:
            raise VxbusError(code, "the queue to %s stayed full" % self.app_id)
        _check(code, "no session with %s" % self.app_id)

    def connect_signal(self, signal, slot):
        """Subscribes our `slot` to `signal` of this peer."""
        _check(lib.VXConnectSignal(self._name, signal.encode(), slot), "connect_signal")

    def disconnect_signal(self, signal, slot):
        _check(lib.VXDisconnectSignal(self._name, signal.encode(), slot), "disconnect_signal")

    def disconnect(self):
        lib.VXDisconnect(self._name)

    def __enter__(self):
        return self

    def __exit__(self, *_):
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

    def __init__(self, name, port=0, pipe=None, bind=None, secret=b"", log=None):
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
            raise VxbusError(code, "the library did not start as %s" % name)
        self.app_id = "%s:%d/%s" % (socket.gethostname(), port, name)

    def _on_log(self, level, text):
        if text.startswith(_LISTENING):
            self._listening.set()
        if self._log:
            self._log(level, text.decode(errors="replace"))

    def ready(self, timeout=10.0):
        """Lets peers in; with a port, waits until the listener accepts."""
        lib.VXConnectionReady()
        if self.port and not self._listening.wait(timeout):
            raise VxbusError(VX_ERROR_FAILED, "port %d did not open" % self.port)

    def connect(self, target, secret=b""):
        """Connects to "host:port" (an appID's "/name" is ignored) or
        "pipe:NAME" and gives the Peer."""
        if isinstance(secret, str):
            secret = secret.encode()
        buffer = (b"\0" * 256)
        if target.startswith("pipe:"):
            code = lib.VXConnectEx(target[5:].encode(), None, 0, buffer, 256, secret, len(secret))
        else:
            host, _, port = target.split("/", 1)[0].rpartition(":")
            code = lib.VXConnect(host.encode(), int(port), buffer, 256, secret, len(secret))
        if code == VX_ERROR_NAME_IN_USE:
            raise VxbusError(code, "%s refused the connection (wrong secret?)" % target)
        _check(code, "cannot reach %s" % target)
        return Peer(self, buffer.split(b"\0", 1)[0].decode())

    def register_slot(self, slot, function):
        """`function(args, sender)` serves `slot`: `args` is the input as a
        dict, `sender` the caller's appID; a mapping it returns is the reply."""

        def run(input_handle, output_handle, context):
            try:
                result = function(paramlist.to_dict(input_handle) or {},
                                  context.contents.senderName.decode(errors="replace"))
                if result is not None and output_handle:
                    paramlist.fill(output_handle, result)
                return VX_SUCCESS
            except Exception:  # a slot's failure must not unwind into the library
                traceback.print_exc(file=sys.stderr)
                return VX_ERROR_FAILED

        c_function = SLOT_FUNCTION(run)
        # Slots outlive a shutdown in the library, so they outlive this Bus here.
        _lifetime.keep_slot(slot, c_function)
        _check(lib.VXRegisterSlot(slot, c_function, None), "register_slot %d" % slot)

    def unregister_slot(self, slot):
        _check(lib.VXUnregisterSlot(slot), "unregister_slot %d" % slot)
        _lifetime.drop_slot(slot)

    def register_signal(self, signal):
        _check(lib.VXRegisterSignal(signal.encode()), "register_signal %s" % signal)

    def emit(self, signal, data=None):
        """Sends `data` to every subscriber of `signal`."""
        handle, owned = _list_handle(data)
        try:
            code = lib.VXEmit(signal.encode(), handle, NOTIFY_CALLBACK(), None)
        finally:
            if owned:
                lib.VXCloseHandle(handle)
        _check(code, "no signal %s" % signal)

    def _keep_callback(self, callback):
        """A C callback that calls `callback` once and then lets itself go."""
        token = object()

        def run(_application, _slot, _input, output_handle, _user):
            try:
                callback(paramlist.to_dict(output_handle))
            except Exception:
                traceback.print_exc(file=sys.stderr)
            finally:
                _lifetime.release_once(token)
            return VX_SUCCESS

        c_callback = NOTIFY_CALLBACK(run)
        _lifetime.keep_once(token, c_callback)
        return c_callback

    def shutdown(self):
        """Ends every session and stops the library in this process."""
        if self._running:
            self._running = False
            lib.VXShutdown()
            _lifetime.bus_stopped(self)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.shutdown()
