# SPDX-License-Identifier: MIT
"""The C functions of libvxbus, declared for ctypes.

The library is looked for in $VXBUS_LIBRARY, then beside this module (a
wheel may carry it there), then by the system's search
(ctypes.util.find_library), then as libvxbus.so.0. When none loads, the
import raises LibraryNotFoundError, which says what was tried.

A list handle is a structure of one pointer passed by value; on the platforms
the library supports it travels exactly as a pointer does, so handles are
declared as c_void_p here.
"""

import ctypes
import ctypes.util
import os
from typing import Any, List

from .errors import LibraryNotFoundError

H = ctypes.c_void_p
_u32 = ctypes.c_uint32
_i32 = ctypes.c_int32
_str = ctypes.c_char_p


class SlotContext(ctypes.Structure):
    _fields_ = [("senderName", ctypes.c_char_p), ("userData", ctypes.c_void_p)]


SLOT_FUNCTION = ctypes.CFUNCTYPE(_i32, H, H, ctypes.POINTER(SlotContext))
NOTIFY_CALLBACK = ctypes.CFUNCTYPE(_i32, _str, _u32, H, H, ctypes.c_void_p)
LOG_SINK = ctypes.CFUNCTYPE(None, _u32, _u32, _str)
DISCONNECT_LISTENER = ctypes.CFUNCTYPE(None, _str, _str, _i32, _str)
# A function pointer made from one of the types above; ctypes gives them no
# static type of their own.
CFunction = Any
# The null callback: a notification that wants no reply.
NO_NOTIFY_CALLBACK: CFunction = NOTIFY_CALLBACK()  # type: ignore[call-overload]


_BESIDE = ("libvxbus.so.0", "libvxbus.so", "vxbus.dll")
_HOW_TO_POINT = ("Install libvxbus (the Debian package libvxbus0, or `cmake --install`), or set "
                 "VXBUS_LIBRARY to the library's file, as in "
                 "VXBUS_LIBRARY=build/src/libvxbus.so.0 python3 app.py")


def _candidates() -> List[str]:
    """Where the library is looked for, in order: $VXBUS_LIBRARY alone when
    it is set (a wrong setting is an error, not a reason to look elsewhere),
    otherwise a library beside this module, then the system's."""
    if os.environ.get("VXBUS_LIBRARY"):
        return [os.environ["VXBUS_LIBRARY"]]
    here = os.path.dirname(os.path.abspath(__file__))
    beside = [os.path.join(here, name) for name in _BESIDE]
    return [path for path in beside if os.path.isfile(path)] + \
        [ctypes.util.find_library("vxbus") or "libvxbus.so.0"]


def _load() -> ctypes.CDLL:
    tried = []
    for path in _candidates():
        try:
            return ctypes.CDLL(path)
        except OSError as error:
            tried.append("%s (%s)" % (path, error))
    where = "VXBUS_LIBRARY=" if os.environ.get("VXBUS_LIBRARY") else ""
    raise LibraryNotFoundError("vxbus cannot load libvxbus; tried %s%s. %s" %
                               (where, "; ".join(tried), _HOW_TO_POINT))


lib = _load()

_SIGNATURES = {
    # lists
    "VXCreateParamList": (H, []),
    "VXReferenceHandle": (H, [H]),
    "VXCloseHandle": (_i32, [H]),
    "VXGetHandleById": (H, [H, _u32]),
    "VXGetHandleSize": (_u32, [H]),
    "VXGetParamCount": (_u32, [H]),
    "VXGetFirstParam": (ctypes.c_void_p, [H]),
    "VXGetNextParam": (ctypes.c_void_p, [H, ctypes.c_void_p]),
    "VXParamInfo": (ctypes.c_void_p, [H, _str]),
    "VXSetStringValue": (_i32, [H, _str, _str]),
    "VXSetInt32Value": (_i32, [H, _str, _u32]),
    "VXSetInt64Value": (_i32, [H, _str, ctypes.c_uint64]),
    "VXSetBinaryValue": (_i32, [H, _str, ctypes.c_void_p, _u32]),
    "VXSetHandleValue": (_i32, [H, _str, H]),
    "VXSetStringArray": (_i32, [H, _str, _u32, ctypes.POINTER(_str)]),
    "VXSetInt32Array": (_i32, [H, _str, _u32, ctypes.POINTER(_u32)]),
    "VXSetInt64Array": (_i32, [H, _str, _u32, ctypes.POINTER(ctypes.c_uint64)]),
    "VXSetBinaryArray": (_i32, [H, _str, _u32, ctypes.POINTER(ctypes.c_void_p),
                                ctypes.POINTER(_u32)]),
    "VXSetHandleArray": (_i32, [H, _str, _u32, ctypes.POINTER(H)]),
    "VXRemoveValue": (_i32, [H, _str]),
    # the bus
    "VXSetAuthenticationInfo": (_i32, [ctypes.c_void_p, _i32]),
    "VXInitializeWithPipeChannel": (_i32, [_str, _str, _str, _i32, ctypes.c_void_p]),
    "VXConnectionReady": (_i32, []),
    "VXShutdown": (_i32, []),
    "VXConnect": (_i32, [_str, _i32, ctypes.c_char_p, _u32, ctypes.c_char_p, _i32]),
    "VXConnectEx": (_i32, [_str, _str, _i32, ctypes.c_char_p, _u32, ctypes.c_char_p, _i32]),
    "VXDisconnect": (_i32, [_str]),
    "VXCall": (H, [_str, _u32, H]),
    "VXNotify": (_i32, [_str, _u32, H, NOTIFY_CALLBACK, ctypes.c_void_p]),
    "VXRegisterSlot": (_i32, [_u32, SLOT_FUNCTION, ctypes.c_void_p]),
    "VXUnregisterSlot": (_i32, [_u32]),
    "VXRegisterSignal": (_i32, [_str]),
    "VXUnregisterSignal": (_i32, [_str]),
    "VXConnectSignal": (_i32, [_str, _str, _u32]),
    "VXDisconnectSignal": (_i32, [_str, _str, _u32]),
    "VXEmit": (_i32, [_str, H, NOTIFY_CALLBACK, ctypes.c_void_p]),
    "VXSetLogLevel": (None, [_u32, _i32, LOG_SINK]),
    "VXSetDisconnectListener": (_i32, [DISCONNECT_LISTENER]),
    # additions to the designed interface
    "VXCallWithTimeout": (H, [_str, _u32, H, _i32]),
    "VXNotifyWithTimeout": (_i32, [_str, _u32, H, NOTIFY_CALLBACK, ctypes.c_void_p, _i32]),
    "VXGetBusInfo": (H, []),
    "VXServeBusInfo": (_i32, [_u32]),
    "VXGetVersion": (_str, []),
    "VXErrorText": (_str, [_i32]),
}

for _name, (_result, _arguments) in _SIGNATURES.items():
    try:
        _function = getattr(lib, _name)
    except AttributeError:
        raise LibraryNotFoundError("%s has no %s: it is not libvxbus, or one older than "
                                   "this binding. %s" % (lib._name, _name, _HOW_TO_POINT)) from None
    _function.restype = _result
    _function.argtypes = _arguments
