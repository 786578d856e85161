"""vxbus from Python: parameter lists as mappings, calls, notifications,
slots and signals, over the C interface of libvxbus (ctypes only).

    import vxbus
    with vxbus.Bus("till", secret=b"s3cr3t") as bus:
        with bus.connect("127.0.0.1:47001", secret=b"s3cr3t") as shop:
            with shop.call(1, {"quantity": 3}) as reply:
                print(reply.to_dict())
"""

from .bus import (VX_ERROR_FAILED, VX_ERROR_NAME_IN_USE, VX_ERROR_NO_APPLICATION,
                  VX_ERROR_NO_SIGNAL, VX_ERROR_NO_SLOT, VX_ERROR_QUEUE_FULL, VX_SUCCESS, Bus,
                  Peer, VxbusError)
from .paramlist import (PT_ARRAY, PT_BINARY, PT_INT32, PT_INT64, PT_PARAMHANDLE, PT_STRING,
                        Array, Int64, ParamList)

__all__ = [
    "Bus", "Peer", "VxbusError", "ParamList", "Array", "Int64",
    "PT_STRING", "PT_INT32", "PT_INT64", "PT_PARAMHANDLE", "PT_BINARY", "PT_ARRAY",
    "VX_SUCCESS", "VX_ERROR_FAILED", "VX_ERROR_NO_SLOT", "VX_ERROR_NO_SIGNAL",
    "VX_ERROR_NO_APPLICATION", "VX_ERROR_NAME_IN_USE", "VX_ERROR_QUEUE_FULL",
]
