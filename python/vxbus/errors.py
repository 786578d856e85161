# SPDX-License-Identifier: MIT
"""The exceptions of the binding. Each is a VxbusError, and also the
built-in exception that Python code expects for its kind of failure, so
`except TimeoutError` and `except vxbus.VxbusError` both catch a deadline.

This module imports nothing of the library, so that the failure to load it
can be told with one of these.
"""

import builtins
from typing import Optional


class VxbusError(Exception):
    """A call of the library failed. `code` is its return code (VX_...), or
    None where the failure is the binding's own."""

    code: Optional[int]

    def __init__(self, code: Optional[int], message: str) -> None:
        super().__init__(message if code is None else "%s (%d)" % (message, code))
        self.code = code


# The built-in's name on purpose: vxbus.TimeoutError is the built-in one too.
class TimeoutError(VxbusError, builtins.TimeoutError):  # noqa: A001
    """The reply did not come within the `timeout` given. The session goes
    on: a reply that comes later is read and let go."""

    def __init__(self, message: str) -> None:
        super().__init__(None, message)


class TargetError(VxbusError, ValueError):
    """A target that is neither "host:port" nor "pipe:NAME"."""

    def __init__(self, message: str) -> None:
        super().__init__(None, message)


class LibraryNotFoundError(VxbusError, ImportError):
    """libvxbus could not be loaded; the message tells where it was looked
    for and how to point VXBUS_LIBRARY at it."""

    def __init__(self, message: str) -> None:
        super().__init__(None, message)
