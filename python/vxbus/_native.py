"""The C functions of libvxbus, declared for ctypes.

The library is looked for in $VXBUS_LIBRARY, then beside this module (a
wheel may carry it there), then by the system's search
(ctypes.util.find_library), then as libvxbus.so.0.

A list handle is a structure of one pointer passed by value; on the platforms
the library supports it travels exactly as a pointer does, so handles are
declared as c_void_p here.
"""

import ctypes
import ctypes.util
import os

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


_BESIDE = ("libvxbus.so.0", "libvxbus.so", "vxbus.dll")


def _library_path():
    """The first of: $VXBUS_LIBRARY, a library beside this module, the system's."""
    if os.environ.get("VXBUS_LIBRARY"):
        return os.environ["VXBUS_LIBRARY"]
    here = os.path.dirname(os.path.abspath(__file__))
    for name in _BESIDE:
        if os.path.isfile(os.path.join(here, name)):
            return os.path.join(here, name)
    return ctypes.util.find_library("vxbus") or "libvxbus.so.0"


def _load():
    return ctypes.CDLL(_library_path())


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
}

for _name, (_result, _arguments) in _SIGNATURES.items():
    _function = getattr(lib, _name)
    _function.restype = _result
    _function.argtypes = _arguments
