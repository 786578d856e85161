# SPDX-License-Identifier: MIT
"""Parameter lists as Python mappings.

Types map to Python as follows, both ways:

    PT_STRING        str (the bytes as UTF-8; others survive as surrogate escapes)
    PT_INT32         int (read back unsigned, 0 to 2**32-1)
    PT_INT64         Int64 (an int); a plain int too large for 32 bits is stored as one
    PT_BINARY        bytes (bytearray and memoryview are taken as well)
    PT_PARAMHANDLE   dict (any Mapping, or a ParamList, is taken); None for no list
    arrays           Array(type, items); a plain list or tuple of one kind is taken too

A plain int is stored in 32 bits when it lies between -2**31 and 2**32-1.
"""

import collections.abc
import ctypes
import struct
from typing import Any, Dict, Iterable, Iterator, Mapping, Optional

from . import _native
from ._native import lib

PT_STRING, PT_INT32, PT_INT64, PT_PARAMHANDLE, PT_BINARY, PT_ARRAY = 1, 2, 3, 4, 5, 0x80
MAX_NAME_LENGTH = 253
MAX_DEPTH = 64
_NULL_INDEX = 0xFFFFFFFF


class Int64(int):
    """An int that is stored as a 64-bit value whatever its size."""

    def __repr__(self) -> str:
        return "Int64(%d)" % int(self)


class Array(list):
    """The items of an array parameter, with the type of its items (PT_...)."""

    def __init__(self, item_type: int, items: Iterable[Any] = ()) -> None:
        if item_type not in (PT_STRING, PT_INT32, PT_INT64, PT_PARAMHANDLE, PT_BINARY):
            raise ValueError("no array of type %r" % (item_type,))
        super().__init__(items)
        self.type = item_type

    def __repr__(self) -> str:
        return "Array(%d, %s)" % (self.type, list.__repr__(self))


def _name(name):
    if not isinstance(name, str):
        raise TypeError("parameter names are str, not %s" % type(name).__name__)
    encoded = name.encode("utf-8", "surrogateescape")
    if len(encoded) > MAX_NAME_LENGTH or b"\0" in encoded:
        raise ValueError("a parameter name is at most 253 bytes with no NUL: %r" % name)
    return encoded


def _text(value):
    encoded = value.encode("utf-8", "surrogateescape")
    if b"\0" in encoded:
        raise ValueError("a text value cannot hold a NUL character")
    return encoded


def _fits32(n):
    return -(1 << 31) <= n <= 0xFFFFFFFF


def _int64(n):
    if not -(1 << 63) <= n <= 0xFFFFFFFFFFFFFFFF:
        raise OverflowError("%d does not fit 64 bits" % n)
    return n & 0xFFFFFFFFFFFFFFFF


def _kind(value):
    """The stored type that a Python value takes when none is given."""
    if isinstance(value, bool):
        raise TypeError("bool has no list type: use 0 or 1")
    if isinstance(value, Int64):
        return PT_INT64
    if isinstance(value, int):
        return PT_INT32 if _fits32(value) else PT_INT64
    if isinstance(value, str):
        return PT_STRING
    if isinstance(value, (bytes, bytearray, memoryview)):
        return PT_BINARY
    if value is None or isinstance(value, collections.abc.Mapping):
        return PT_PARAMHANDLE
    if isinstance(value, Array):
        return PT_ARRAY | value.type
    if isinstance(value, (list, tuple)):
        kinds = {_kind(item) for item in value}
        if not kinds:
            raise ValueError("an empty list needs a type: use Array(PT_..., [])")
        if kinds == {PT_INT32, PT_INT64}:
            return PT_ARRAY | PT_INT64
        if len(kinds) != 1 or next(iter(kinds)) & PT_ARRAY:
            raise TypeError("an array holds items of one type: use Array(PT_..., items)")
        return PT_ARRAY | kinds.pop()
    raise TypeError("%s has no list type" % type(value).__name__)


def _child(value, depth):
    """A new handle for a nested list (the caller closes it), or None."""
    if value is None:
        return None
    if isinstance(value, ParamList):
        return lib.VXReferenceHandle(value.handle)
    return _new_handle(value, depth + 1)


def _set(handle, name, value, depth):
    key = _name(name)
    kind = _kind(value)
    if kind == PT_STRING:
        lib.VXSetStringValue(handle, key, _text(value))
    elif kind == PT_INT32:
        lib.VXSetInt32Value(handle, key, value & 0xFFFFFFFF)
    elif kind == PT_INT64:
        lib.VXSetInt64Value(handle, key, _int64(value))
    elif kind == PT_BINARY:
        data = bytes(value)
        lib.VXSetBinaryValue(handle, key, data, len(data))
    elif kind == PT_PARAMHANDLE:
        child = _child(value, depth)
        lib.VXSetHandleValue(handle, key, child)
        if child:
            lib.VXCloseHandle(child)
    else:
        _set_array(handle, key, kind & ~PT_ARRAY, list(value), depth)


def _set_array(handle, key, item_type, items, depth):
    n = len(items)
    if item_type == PT_STRING:
        lib.VXSetStringArray(handle, key, n, (ctypes.c_char_p * n)(*map(_text, items)))
    elif item_type == PT_INT32:
        for item in items:
            if not _fits32(item):
                raise OverflowError("%d does not fit 32 bits" % item)
        lib.VXSetInt32Array(handle, key, n, (ctypes.c_uint32 * n)(*(i & 0xFFFFFFFF for i in items)))
    elif item_type == PT_INT64:
        lib.VXSetInt64Array(handle, key, n, (ctypes.c_uint64 * n)(*map(_int64, items)))
    elif item_type == PT_BINARY:
        data = [bytes(item) for item in items]
        lib.VXSetBinaryArray(handle, key, n,
                             (ctypes.c_void_p * n)(*(ctypes.cast(ctypes.c_char_p(d), ctypes.c_void_p)
                                                     for d in data)),
                             (ctypes.c_uint32 * n)(*map(len, data)))
    else:
        children = [_child(item, depth) for item in items]
        try:
            lib.VXSetHandleArray(handle, key, n, (_native.H * n)(*children))
        finally:
            for child in children:
                if child:
                    lib.VXCloseHandle(child)


def _new_handle(mapping: Mapping[str, Any], depth: int = 0) -> int:
    if depth > MAX_DEPTH:
        raise ValueError("lists nested deeper than %d (does a dict hold itself?)" % MAX_DEPTH)
    handle = lib.VXCreateParamList()
    try:
        for name, value in mapping.items():
            _set(handle, name, value, depth)
    except BaseException:
        lib.VXCloseHandle(handle)
        raise
    return handle


class _Image:
    """The bytes of one list as the library holds them, read in place."""

    def __init__(self, handle):
        self.handle = handle
        self.first = lib.VXGetFirstParam(handle)
        size = lib.VXGetHandleSize(handle) if self.first else 0
        self.data = ctypes.string_at(self.first, size) if size else b""

    def records(self):
        at = 0
        while at < len(self.data):
            yield at
            at = self.end_of(at)

    def name_at(self, at):
        end = self.data.index(b"\0", at + 1)
        return self.data[at + 1:end].decode("utf-8", "surrogateescape")

    def end_of(self, at):
        return self._value(at, None)[1]

    def value_at(self, at, depth):
        return self._value(at, depth)[0]

    def _u32(self, at):
        return struct.unpack_from("<I", self.data, at)[0]

    def _text(self, at):
        end = self.data.index(b"\0", at)
        return self.data[at:end].decode("utf-8", "surrogateescape"), (end - at + 4) & ~3

    def _binary(self, at):
        n = self._u32(at)
        return self.data[at + 4:at + 4 + n], 4 + ((n + 3) & ~3)

    def _list(self, index, depth):
        if index == _NULL_INDEX:
            return None
        child = lib.VXGetHandleById(self.handle, index)  # borrowed from this list
        return _decode(child, depth + 1) if child else None

    def _value(self, at, depth):
        """(value, end of the record); depth 0 of None skips nested lists."""
        t = at + self.data[at]
        kind = self.data[t]
        v = t + 1
        if kind == PT_STRING:
            text, size = self._text(v)
            return text, v + size
        if kind == PT_INT32:
            return self._u32(v), v + 4
        if kind == PT_INT64:
            return Int64(struct.unpack_from("<Q", self.data, v)[0]), v + 8
        if kind == PT_BINARY:
            data, size = self._binary(v)
            return data, v + size
        if kind == PT_PARAMHANDLE:
            return (self._list(self._u32(v), depth) if depth is not None else None), v + 4
        if not kind & PT_ARRAY:
            raise ValueError("unknown type byte %d" % kind)
        item_type, count, base = kind & ~PT_ARRAY, self._u32(v), v + 4
        if item_type == PT_INT32:
            return Array(item_type, struct.unpack_from("<%dI" % count, self.data, base)), base + 4 * count
        if item_type == PT_INT64:
            return (Array(item_type, map(Int64, struct.unpack_from("<%dQ" % count, self.data, base))),
                    base + 8 * count)
        if item_type == PT_PARAMHANDLE:
            ids = struct.unpack_from("<%dI" % count, self.data, base)
            items = [self._list(i, depth) for i in ids] if depth is not None else []
            return Array(item_type, items), base + 4 * count
        items, end = Array(item_type), base + 4 * count
        read = self._text if item_type == PT_STRING else self._binary
        for i in range(count):
            item, size = read(base + 4 * count + self._u32(base + 4 * i))
            items.append(item)
            end = base + 4 * count + self._u32(base + 4 * i) + size
        return items, end

    def find(self, name):
        info = lib.VXParamInfo(self.handle, _name(name))
        return None if info is None else info - self.first


def _decode(handle: int, depth: int = 0) -> Dict[str, Any]:
    if depth > MAX_DEPTH:
        raise ValueError("lists nested deeper than %d (does a list hold itself?)" % MAX_DEPTH)
    image = _Image(handle)
    return {image.name_at(at): image.value_at(at, depth) for at in image.records()}


class ParamList(collections.abc.MutableMapping):  # type: ignore[type-arg]
    """A list of the library, owned by this object, as a mutable mapping.

    Reading a parameter gives a Python value (nested lists as dicts); setting
    one stores it in the list, where it moves to the end. close(), the end of
    a `with` block or garbage collection lets the list go.
    """

    _handle: Optional[int]

    def __init__(self, contents: Optional[Mapping[str, Any]] = None) -> None:
        self._handle = _new_handle(contents or {})

    @classmethod
    def _adopt(cls, handle: int) -> "ParamList":
        """Takes over a handle that the caller owned."""
        self = cls.__new__(cls)
        self._handle = handle
        return self

    @property
    def handle(self) -> int:
        if not self._handle:
            raise ValueError("the list is closed")
        return int(self._handle)

    def __getitem__(self, name: str) -> Any:
        image = _Image(self.handle)
        at = image.find(name)
        if at is None:
            raise KeyError(name)
        return image.value_at(at, 0)

    def __setitem__(self, name: str, value: Any) -> None:
        _set(self.handle, name, value, 0)

    def __delitem__(self, name: str) -> None:
        if lib.VXParamInfo(self.handle, _name(name)) is None:
            raise KeyError(name)
        lib.VXRemoveValue(self.handle, _name(name))

    def __iter__(self) -> Iterator[str]:
        image = _Image(self.handle)
        return iter([image.name_at(at) for at in image.records()])

    def __len__(self) -> int:
        return int(lib.VXGetParamCount(self.handle))

    def to_dict(self) -> Dict[str, Any]:
        return _decode(self.handle)

    def __repr__(self) -> str:
        return "ParamList(%r)" % (self.to_dict() if self._handle else "closed")

    def close(self) -> None:
        if getattr(self, "_handle", None):
            lib.VXCloseHandle(self._handle)
            self._handle = None

    def __enter__(self) -> "ParamList":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()


def to_dict(handle: Optional[int]) -> Optional[Dict[str, Any]]:
    """The contents of a borrowed handle as a dict."""
    return _decode(handle) if handle else None


def fill(handle: int, mapping: Mapping[str, Any]) -> None:
    """Sets the items of `mapping` on the existing list `handle`."""
    for name, value in mapping.items():
        _set(handle, name, value, 0)


def clear(handle: int) -> None:
    """Removes every record of the existing list `handle`."""
    image = _Image(handle)
    for name in [image.name_at(at) for at in image.records()]:
        lib.VXRemoveValue(handle, _name(name))
