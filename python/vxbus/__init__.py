# SPDX-License-Identifier: MIT
"""vxbus from Python: parameter lists as mappings, calls, notifications,
slots and signals, over the C interface of libvxbus (ctypes only).

    import vxbus
    with vxbus.Bus("till", secret=b"s3cr3t") as bus:
        with bus.connect("127.0.0.1:47001", secret=b"s3cr3t") as shop:
            with shop.call(1, {"quantity": 3}, timeout=5.0) as reply:
                print(reply.to_dict())

In a coroutine: `reply = await shop.call_async(1, {"quantity": 3})`.
"""

from ._version import __version__
from .errors import LibraryNotFoundError, TargetError, TimeoutError, VxbusError
from ._native import lib as _lib
from .bus import (VX_ERROR_FAILED, VX_ERROR_NAME_IN_USE, VX_ERROR_NO_APPLICATION,
                  VX_ERROR_NO_SIGNAL, VX_ERROR_NO_SLOT, VX_ERROR_QUEUE_FULL, VX_SUCCESS, Bus,
                  Data, NotifyCallback, Peer, SlotFunction, error_text)
from .paramlist import (PT_ARRAY, PT_BINARY, PT_INT32, PT_INT64, PT_PARAMHANDLE, PT_STRING,
                        Array, Int64, ParamList)


def library_version() -> str:
    """The version of the libvxbus that was loaded, "MAJOR.MINOR.PATCH";
    __version__ is this package's."""
    return _lib.VXGetVersion().decode()


__all__ = [
    "Bus", "Peer", "ParamList", "Array", "Int64", "Data", "NotifyCallback", "SlotFunction",
    "VxbusError", "TimeoutError", "TargetError", "LibraryNotFoundError",
    "library_version", "error_text", "__version__",
    "PT_STRING", "PT_INT32", "PT_INT64", "PT_PARAMHANDLE", "PT_BINARY", "PT_ARRAY",
    "VX_SUCCESS", "VX_ERROR_FAILED", "VX_ERROR_NO_SLOT", "VX_ERROR_NO_SIGNAL",
    "VX_ERROR_NO_APPLICATION", "VX_ERROR_NAME_IN_USE", "VX_ERROR_QUEUE_FULL",
]
