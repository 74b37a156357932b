# SPDX-License-Identifier: MIT
"""The library's flat functions, as ctypes sees them."""
from __future__ import annotations

import ctypes
import ctypes.util
import os
import pathlib
import re
import sys

Units = ctypes.POINTER(ctypes.c_uint16)
Handle = ctypes.c_void_p
Key = ctypes.c_int64
Status = ctypes.c_uint32
CheckCallback = ctypes.CFUNCTYPE(None, Units, ctypes.c_uint32, ctypes.c_uint32, ctypes.c_uint32,
                                 ctypes.c_uint8, ctypes.POINTER(ctypes.c_uint8))


class SystemTime(ctypes.Structure):
    """FBR_SYSTEMTIME."""
    _fields_ = [(name, ctypes.c_uint16) for name in
                ("year", "month", "weekday", "day", "hour", "minute", "second", "milliseconds")]


_U32, _U64 = ctypes.c_uint32, ctypes.c_uint64
_OUT_KEY, _OUT_U32, _OUT_U64 = (ctypes.POINTER(kind) for kind in (Key, _U32, _U64))
_OUT_TEXT = ctypes.POINTER(Units)
_FUNCTIONS = {
    "FBR_InitialiseEx": [Units, ctypes.POINTER(Handle), _U32],
    "FBR_DeInitialiseEx": [Handle],
    "FBR_CheckFileEx": [Units, CheckCallback],
    "FBR_CheckAndRepairFileEx": [Units, CheckCallback],
    "FBR_Compact": [Handle, _OUT_U32],
    "FBR_GetLockEx": [_U32, Handle],
    "FBR_ReleaseLockEx": [_U32, Handle],
    "FBR_DeleteValue": [Key, Units, Handle],
    "FBR_SetValue": [Key, Units, _U32, ctypes.c_char_p, _U64, Handle],
    "FBR_QueryValue": [Key, Units, ctypes.c_char_p, _U64, _OUT_U64, _OUT_U32, Handle],
    "FBR_CreateDirEx": [Key, Units, _U32, _OUT_KEY, Handle],
    "FBR_OpenDirEx": [Key, Units, _OUT_KEY, Handle],
    "FBR_DeleteDirNamedEx": [Units, Handle],
    "FBR_RenameDirEx": [Key, Units, Handle],
    "FBR_CloseDirEx": [Key, Handle],
    "FBR_EnumIntFileEx": [Key, _U32, _OUT_TEXT, Handle],
    "FBR_EnumIntDirEx": [Key, _U32, _OUT_TEXT, Handle],
    "FBR_GetDirTimesEx": [Key, ctypes.POINTER(SystemTime), Handle],
}


def _candidates() -> list[str]:
    named = os.environ.get("ZRFS_LIBRARY")
    if named:
        return [named]
    name = "ZrFsLibrary.dll" if sys.platform == "win32" else "libZrFsLibrary.so.1"
    package = pathlib.Path(__file__).resolve().parent
    beside = [package / name]
    # Of a package in PREFIX/lib/python3* also where that installation has its libraries.
    for folder in package.parents:
        if folder.name.lower() in ("lib", "lib64", "python"):
            for place in ("lib*", "lib*/*", "bin"):
                beside += sorted(folder.parent.glob(f"{place}/{name}"))
            break
    found = ctypes.util.find_library("ZrFsLibrary")
    there = [str(file) for file in beside if file.exists()]
    return there + [name] + [found] * bool(found)


def _load() -> ctypes.CDLL:
    failures = []
    for candidate in _candidates():
        try:
            library = ctypes.CDLL(candidate)
            break
        except OSError as error:
            failures.append(f"{candidate}: {error}")
    else:
        raise ImportError("ZrFsLibrary was not found. Install it, or name its file in "
                          "ZRFS_LIBRARY. Tried " + "; ".join(failures))
    for name, arguments in _FUNCTIONS.items():
        function = getattr(library, name)
        function.argtypes = arguments
        function.restype = Status
    library.FBR_Release.argtypes = [ctypes.c_void_p]
    library.FBR_Release.restype = None
    return library


library = _load()


def encoded(text: str) -> bytes:
    """A text as UTF-16. Half a pair goes through, as a store may have it; two that make a pair are one
    character there, and would come back as that."""
    if re.search("[\ud800-\udbff][\udc00-\udfff]", text):
        raise ValueError(f"the two halves of a pair side by side in {text!r}, which are one character")
    return text.encode("utf-16-le", "surrogatepass")


def to_units(text: str) -> ctypes.Array:
    """A text as UTF-16 with a zero unit; it must have none inside."""
    if not isinstance(text, str):
        raise TypeError(f"a name or a path is a str, not {type(text).__name__}: {text!r}")
    if "\0" in text:
        raise ValueError(f"a zero character in {text!r}")
    data = encoded(text) + b"\0\0"
    return (ctypes.c_uint16 * (len(data) // 2)).from_buffer_copy(data)


def to_text(units) -> str:
    """The text at a pointer to units, up to its zero unit."""
    count = 0
    while units[count]:
        count += 1
    return ctypes.string_at(units, 2 * count).decode("utf-16-le", "surrogatepass")


def take_text(units) -> str:
    """A text that the library handed out, which is given back."""
    if not units:
        return ""
    try:
        return to_text(units)
    finally:
        library.FBR_Release(ctypes.cast(units, ctypes.c_void_p))
