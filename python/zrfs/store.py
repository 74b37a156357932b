# SPDX-License-Identifier: MIT
"""Stores and keys."""
from __future__ import annotations

import ctypes
import dataclasses
import datetime
import enum
import itertools
import os
import shutil
import warnings
from typing import Any, Iterator, Mapping, MutableMapping, Optional

from . import _library as lib
from .errors import NotFoundError, Status, check as _check, shown
from .values import Stored, Value, from_python

_library = lib.library


class Method(enum.IntEnum):
    """How a store is kept."""
    CONTAINER = 1
    NATIVE = 2
    REMOTE_CONTAINER = 4
    HIVE = 5
    OFFLINE = 6
    CLUSTER = 16


class Lock(enum.IntEnum):
    """What a lock is for."""
    WRITE = 1
    READ = 3


def _must_be_possible(name: str) -> int:
    """A status: nothing is called by a name with a zero."""
    return Status.NOT_FOUND if isinstance(name, str) and "\0" in name else Status.SUCCESS


class _OpenKey:
    """A key handle for as long as a `with` lasts."""

    def __init__(self, store: "Store", path: str, create: bool = False):
        self._store, self._path, self._create = store, path, create
        self._key = lib.Key()

    def __enter__(self) -> lib.Key:
        handle = self._store._open_handle()
        if self._create:
            # One by one: a container makes a key of a path below a value, too, where no list
            # shows it.
            names = self._path.split("\\")
            if self._is_missing(handle):
                for count in range(1, len(names)):
                    self._make(handle, "\\".join(names[:count]))
                    self._close()
            self._make(handle, self._path)
        else:
            _check(_must_be_possible(self._path) or self._open(handle, self._path), self._what())
        return self._key

    def _what(self) -> str:
        return f"{'make' if self._create else 'open'} key \\{self._path} in {self._store.path}"

    def _open(self, handle: lib.Handle, path: str) -> int:
        return _library.FBR_OpenDirEx(0, lib.to_units("\\" + path), ctypes.byref(self._key), handle)

    def _is_missing(self, handle: lib.Handle) -> bool:
        status = self._open(handle, self._path.rpartition("\\")[0])
        if status == Status.SUCCESS:
            self._close()
        return status != Status.SUCCESS

    def _make(self, handle: lib.Handle, path: str) -> None:
        status = _library.FBR_CreateDirEx(0, lib.to_units("\\" + path), 0,
                                          ctypes.byref(self._key), handle)
        self._store._check_change(Status.SUCCESS if status == Status.ALREADY_EXISTS else status,
                                  self._what())

    def _close(self) -> None:
        _library.FBR_CloseDirEx(self._key, self._store._handle)

    def __exit__(self, *_: object) -> None:
        self._close()


class Key(MutableMapping[str, Any]):
    """A key of a store as a mapping from names to values; "" is the unnamed value.

    It is a path, and need not be there: reading a value of a missing key is a NotFoundError (a
    KeyError), setting one makes the key. A listing asks name by name: where others add or remove
    names meanwhile, take store.lock(Lock.READ) for it, or names are left out or told twice."""

    def __init__(self, store: "Store", path: str):
        if not isinstance(path, str):
            raise TypeError(f"the path of a key is a str, not {type(path).__name__}: {path!r}")
        self._store = store
        self.path = path.strip("\\")

    def __repr__(self) -> str:
        return f"<zrfs.Key {self}>"

    def __str__(self) -> str:
        return shown(f"\\{self.path} in {self._store.path}")

    def __truediv__(self, name: str) -> "Key":
        if not isinstance(name, str):
            return NotImplemented
        return Key(self._store, f"{self.path}\\{name}")

    def _what(self, name: str) -> str:
        return f"value {name!r} of key {self}"

    def exists(self) -> bool:
        try:
            with _OpenKey(self._store, self.path):
                return True
        except NotFoundError:
            return False

    def create(self) -> "Key":
        """Makes the key, and those on the way to it, where they are missing."""
        with _OpenKey(self._store, self.path, create=True):
            return self

    def delete(self) -> None:
        """Deletes the key and all below it. The root is refused, for a path that is empty by a slip
        would take all along."""
        if not self.path:
            raise ValueError(f"the root of {self._store.path} cannot be deleted; its keys and values "
                             "can, one by one")
        with _OpenKey(self._store, self.path):
            pass  # a container would take a value at the path, too
        status = _library.FBR_DeleteDirNamedEx(lib.to_units("\\" + self.path),
                                               self._store._open_handle())
        _check(status, f"delete key {self}")

    def rename(self, name: str) -> "Key":
        """Renames the key below its parent, and answers it under the new name."""
        if "\\" in name:
            raise ValueError(f"{name!r} is a path, and a key is renamed to a name")
        with _OpenKey(self._store, self.path) as key:
            _check(_library.FBR_RenameDirEx(key, lib.to_units(name), self._store._handle),
                   f"rename key {self} to {name!r}")
        parent = self.path.rpartition("\\")[0]
        return Key(self._store, f"{parent}\\{name}")

    def modified(self) -> datetime.datetime:
        """The time of the last change in the key; CorruptError where the store has none."""
        time = lib.SystemTime()
        with _OpenKey(self._store, self.path) as key:
            _check(_library.FBR_GetDirTimesEx(key, ctypes.byref(time), self._store._handle),
                   f"read the time of key {self}")
        try:
            first = datetime.datetime(time.year, time.month, 1, time.hour, time.minute,
                                      time.second, 1000 * time.milliseconds,
                                      datetime.timezone.utc)
            if time.year < 1601 or time.day > 31:
                raise ValueError
        except ValueError:
            _check(Status.FILE_CORRUPT, f"read the time of key {self}")
        return first + datetime.timedelta(days=time.day - 1)  # day 0 is the one before the first

    def subkeys(self) -> Iterator["Key"]:
        """The keys right below this one, in the store's order."""
        for name in self._names(_library.FBR_EnumIntDirEx):
            yield self / name

    def value(self, name: str) -> Value:
        """A value as it is stored."""
        with _OpenKey(self._store, self.path) as key:
            return self._query(key, name)

    def to_dict(self) -> dict[str, Any]:
        """All below the key: {"values": {name: value}, "keys": {name: the same of a subkey}}."""
        return {"values": dict(self.items()),
                "keys": {key.path.rpartition("\\")[2]: key.to_dict() for key in self.subkeys()}}

    def __getitem__(self, name: str) -> Any:
        return self.value(name).to_python()

    def __setitem__(self, name: str, value: Stored) -> None:
        stored = from_python(value)
        with _OpenKey(self._store, self.path, create=True) as key:
            status = _library.FBR_SetValue(key, lib.to_units(name), stored.type, stored.data,
                                           len(stored.data), self._store._handle)
            self._store._check_change(status, f"set {self._what(name)}")

    def __delitem__(self, name: str) -> None:
        with _OpenKey(self._store, self.path) as key:
            status = _must_be_possible(name) or _library.FBR_DeleteValue(
                key, lib.to_units(name), self._store._handle)
            _check(status, f"delete {self._what(name)}")

    def __contains__(self, name: object) -> bool:
        try:
            return isinstance(name, str) and self.value(name) is not None
        except NotFoundError:
            return False

    def __iter__(self) -> Iterator[str]:
        return iter(self._names(_library.FBR_EnumIntFileEx))

    def __len__(self) -> int:
        return len(self._names(_library.FBR_EnumIntFileEx))

    def _names(self, enumerate_: Any) -> list[str]:
        names: list[str] = []
        with _OpenKey(self._store, self.path) as key:
            for index in itertools.count():
                name = lib.Units()
                status = enumerate_(key, index, ctypes.byref(name), self._store._handle)
                if status == Status.NO_MORE_ENTRIES:
                    break
                if status == Status.INVALID_NAME:
                    warnings.warn(f"entry {index} of key {self} is left out: by its name, with a "
                                  "zero in it, nothing can be asked for", stacklevel=3)
                    continue
                _check(status, f"list key {self}")
                names.append(lib.take_text(name))
        return names

    def _query(self, key: lib.Key, name: str) -> Value:
        _check(_must_be_possible(name), f"read {self._what(name)}")
        units, room = lib.to_units(name), 512
        size, kind = ctypes.c_uint64(), ctypes.c_uint32()
        while True:
            # A buffer that comes back full may have more behind it.
            buffer = ctypes.create_string_buffer(room)
            status = _library.FBR_QueryValue(key, units, buffer, room, ctypes.byref(size),
                                             ctypes.byref(kind), self._store._handle)
            if status == Status.SUCCESS and size.value < room:
                return Value(kind.value, buffer.raw[:size.value])
            if status not in (Status.SUCCESS, Status.BUFFER_OVERFLOW) or room > 1 << 32:
                _check(status or Status.FAILED, f"read {self._what(name)}")
            room *= 4


class _HeldLock:
    def __init__(self, store: "Store", kind: Lock):
        self._store, self._kind = store, kind

    def __enter__(self) -> "Store":
        _check(_library.FBR_GetLockEx(self._kind, self._store._open_handle()),
               f"lock {self._store.path}")
        return self._store

    def __exit__(self, *_: object) -> None:
        _library.FBR_ReleaseLockEx(self._kind, self._store._handle)


def _why_not_opened(path: str, method: Method, status: int) -> Optional[str]:
    """What to do, where the path or the method tells more than the status."""
    server = path.partition("|")[0]
    if method == Method.REMOTE_CONTAINER and not all(path.partition("|")):
        return "a store behind a server is named SERVER|PATH: the server's pipe, and the file there"
    if server and server not in (path, "!REMOTE"):
        if status == Status.FAILED:
            return (f"no server may answer at {server} (fbr serve is one), or it cannot open the "
                    "file")
        if status == Status.INVALID_PARAMETER:
            return "the server refuses it: one with --root opens files below that folder alone"
    if method == Method.HIVE and "!" not in path:
        return ("a hive is mounted as FILE!NAME, and by Windows alone; Method.OFFLINE opens FILE "
                "itself")
    return _what_its_file_tells(path, method, status)


def _what_its_file_tells(path: str, method: Method, status: int,
                         changes: bool = True) -> Optional[str]:
    """What to do after a general failure, where a look at a store's file shows the reason."""
    if status != Status.FAILED or method not in (Method.CONTAINER, Method.OFFLINE):
        return None
    if os.path.isdir(path):
        return "that is a folder: name a file in it"
    there = os.path.exists(path)
    if there and not os.access(path, os.R_OK):
        return "its file may not be read: ask its owner for the right"
    if changes and not os.access(path if there else os.path.dirname(path) or ".", os.W_OK):
        return "its file may not be written: ask its owner for the right, or take a copy of it"
    try:
        if shutil.disk_usage(os.path.dirname(path) or ".").free < 1 << 20:
            return "the disk is full: make room on it"
    except OSError:
        pass
    return None


class Store(Mapping[str, Key]):
    """An open store as a mapping from paths to keys. It closes at the end of its `with`, or by
    close(). A path need not be there, see Key; what is listed and counted are the names of the keys
    right below the root."""

    __eq__ = object.__eq__
    __hash__ = object.__hash__

    def __init__(self, path: "str | bytes | os.PathLike[Any]", method: Method = Method.CONTAINER,
                 write: bool = False):
        """Opens the store at a path of FBR_InitialiseEx; a container that is missing is made.
        With `write` it holds the write lock until it is closed."""
        path = os.fsdecode(path)
        self.path, self.method = path, Method(method)
        self._handle: Optional[ctypes.c_void_p] = None
        handle = lib.Handle()
        status = _library.FBR_InitialiseEx(lib.to_units(path), ctypes.byref(handle), self.method)
        _check(status, f"open {path}", _why_not_opened(path, self.method, status))
        self._handle = handle
        if write:
            status = _library.FBR_GetLockEx(Lock.WRITE, handle)
            if status != Status.SUCCESS:
                self.close()
            _check(status, f"lock {path}")

    def __enter__(self) -> "Store":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_handle", None) is not None:
            self.close()

    def _open_handle(self) -> ctypes.c_void_p:
        if self._handle is None:
            raise ValueError(f"{self.path} is closed")
        return self._handle

    def _check_change(self, status: int, what: str) -> None:
        _check(status, what, _what_its_file_tells(self.path, self.method, status))

    def close(self) -> None:
        """Closes the store, and gives up its lock. Closing it again does nothing."""
        handle, self._handle = self._handle, None
        if handle is not None:
            _check(_library.FBR_DeInitialiseEx(handle), f"close {self.path}")

    def __getitem__(self, path: str) -> Key:
        """The key at a path from the root; "" is the root."""
        return Key(self, path)

    def __contains__(self, path: object) -> bool:
        return isinstance(path, str) and Key(self, path).exists()

    def get(self, path: str, default: Any = None) -> Any:
        """The key at a path that is there, else `default`."""
        return Key(self, path) if path in self else default

    def __iter__(self) -> Iterator[str]:
        return iter(Key(self, "")._names(_library.FBR_EnumIntDirEx))

    def __len__(self) -> int:
        return len(Key(self, "")._names(_library.FBR_EnumIntDirEx))

    def __bool__(self) -> bool:
        return self._handle is not None

    def __reduce__(self) -> Any:
        raise TypeError("an open store is one object: it cannot be copied or pickled")

    def lock(self, kind: Lock = Lock.WRITE) -> _HeldLock:
        """A lock for as long as a `with` lasts."""
        return _HeldLock(self, kind)

    def compact(self) -> None:
        """Gives free pages of a container back to the disk."""
        done = ctypes.c_uint32()
        _check(_library.FBR_Compact(self._open_handle(), ctypes.byref(done)),
               f"compact {self.path}")

    def to_dict(self) -> dict[str, Any]:
        """All of the store, see Key.to_dict."""
        return Key(self, "").to_dict()


@dataclasses.dataclass(frozen=True)
class Finding:
    """What a check found: 8 a bad reference, 9 a page that nothing refers to, 15 a bad entry."""
    code: int
    page: int
    name: str


def _why_not_checked(path: str, status: int, repair: bool) -> Optional[str]:
    if status not in (Status.FAILED, Status.FILE_CORRUPT):
        return None
    return (_what_its_file_tells(path, Method.CONTAINER, status, changes=repair) or
            "it is no container, or one whose beginning is lost: of that fbr salvage writes what "
            "can be read")


def check(path: "str | bytes | os.PathLike[Any]", repair: bool = False) -> list[Finding]:
    """Checks a container file and answers what is wrong with it; mends it, too, with `repair`.
    An empty list is a sound file."""
    path = os.fsdecode(path)
    findings: list[Finding] = []

    def found(name: Any, code: int, page: int, _all: int, _clean: int, _cancel: Any) -> None:
        if code >= 8:
            findings.append(Finding(code, page, lib.to_text(name) if code == 15 else ""))

    if not os.path.exists(path):
        raise NotFoundError(f"check {path}", Status.NOT_FOUND)
    run = _library.FBR_CheckAndRepairFileEx if repair else _library.FBR_CheckFileEx
    status = run(lib.to_units(path), lib.CheckCallback(found))
    _check(status, f"check {path}", _why_not_checked(path, status, repair))
    return findings


def open(path: "str | bytes | os.PathLike[Any]", write: bool = False,  # pylint: disable=redefined-builtin
         method: Method = Method.CONTAINER) -> Store:
    """Opens a store; with `write` for changes. A container that is missing is made."""
    return Store(path, method, write)
