# SPDX-License-Identifier: MIT
"""Everything the library may call back into, kept alive for as long as it
may be called, and stopped before the interpreter finalises.

The library calls the log sink, slot functions and notify callbacks on its
own threads. A ctypes callback that is freed while the library still holds
its address, or that is entered after the interpreter has finalised, ends the
process with a segfault. So each callback is held here from the moment it is
handed to the library until the library can no longer call it, whatever
becomes of the Bus that made it, and an atexit hook shuts down every Bus
still open and silences the log sink while the interpreter is still whole.
"""

import atexit
import threading
from typing import Any, Dict, List

from ._native import LOG_SINK, lib

_lock = threading.Lock()
_open_buses: List[Any] = []  # started and not yet shut down; each is held until it is
_slots: Dict[int, Any] = {}  # slot number -> the SLOT_FUNCTION the library holds for it
_retired: List[Any] = []  # slot functions replaced or unregistered: one may still run
_once: Dict[object, Any] = {}  # token -> a NOTIFY_CALLBACK the library has yet to call
_sink_mask = 0


def _forward_log(level, _reserved, text):
    with _lock:
        buses = list(_open_buses)
    for bus in buses:
        bus._on_log(level, text)


# One sink for the whole process: the library keeps only one, and may still
# call it while it is being replaced, so it is never replaced or freed.
_SINK = LOG_SINK(_forward_log)


def bus_started(bus, wants_all_levels):
    """Registers a running Bus for its log lines and for the exit hook.
    Level 8 always reaches it: it carries the listener's line."""
    global _sink_mask
    with _lock:
        _open_buses.append(bus)
        _sink_mask |= 0xF if wants_all_levels else 0x8
        mask = _sink_mask
    lib.VXSetLogLevel(mask, 0, _SINK)


def bus_stopped(bus):
    """A Bus that is shut down gets no more log lines."""
    with _lock:
        if bus in _open_buses:
            _open_buses.remove(bus)


def keep_slot(slot, c_function):
    """Holds the function the library is about to call for `slot`. The one
    it replaces is kept too: a slot may replace or unregister itself while
    it runs, and freeing code that runs is fatal. Slots are few and seldom
    replaced, so what this keeps is small."""
    with _lock:
        old = _slots.get(slot)
        if old is not None:
            _retired.append(old)
        _slots[slot] = c_function


def drop_slot(slot):
    """After the library has unregistered `slot`."""
    with _lock:
        old = _slots.pop(slot, None)
        if old is not None:
            _retired.append(old)


def keep_once(token, c_callback):
    """Holds a notify callback until release_once(token), which it calls
    itself when it has run."""
    with _lock:
        _once[token] = c_callback


def release_once(token):
    with _lock:
        _once.pop(token, None)


@atexit.register
def _stop_before_finalising():
    # atexit runs while threads can still take the interpreter lock: a slot
    # or callback in flight finishes while VXShutdown waits for it (ctypes
    # lets the lock go during the call).
    with _lock:
        buses = list(_open_buses)
    for bus in reversed(buses):
        bus.shutdown()
    # No library thread runs now. A writer that read the sink just before it
    # was cleared may still enter it, which is why _SINK itself is never freed.
    lib.VXSetLogLevel(0, -1, LOG_SINK())
