# SPDX-License-Identifier: MIT
"""Failures: an exception for each status that a program may want to tell from others."""
from __future__ import annotations

import enum
from typing import Optional


class Status(enum.IntEnum):
    """FBR_STATUS."""
    SUCCESS = 0
    FAILED = 1
    INVALID_PARAMETER = 2
    NOT_FOUND = 3
    BUFFER_OVERFLOW = 4
    NO_MORE_ENTRIES = 5
    VERSION_MISMATCH = 6
    LOCK_FAILED = 7
    ALREADY_EXISTS = 8
    DIR_NOT_EMPTY = 9
    PATH_NOT_FOUND = 10
    INVALID_NAME = 11
    FILE_CORRUPT = 12
    NOT_IMPLEMENTED = 13
    OUT_OF_MEMORY = 14
    ACCESS_DENIED = 15
    SHARING_VIOLATION = 16
    MODULE_NOT_FOUND = 17
    INVALID_HANDLE = 18
    TREE_DELETE_FAILED = 19


# What the headers say of each, and what to do, where a program or a person can do something.
_TEXTS = {
    Status.SUCCESS: ("done", ""),
    Status.FAILED: ("the operation failed",
                    "the disk may be full, or the file damaged, no store of this kind or not to be "
                    "written: zrfs.check tells more of a container"),
    Status.INVALID_PARAMETER: ("an argument is missing or out of range", ""),
    Status.NOT_FOUND: ("there is no such key, value or file", ""),
    Status.BUFFER_OVERFLOW: ("the buffer is too small", ""),
    Status.NO_MORE_ENTRIES: ("there are no more entries", ""),
    Status.VERSION_MISMATCH: ("the store is of another version",
                              "take the version of the library that made it"),
    Status.LOCK_FAILED: ("the lock is missing or could not be had in time",
                         "a change needs store.lock() or a store that is open with write=True, and "
                         "nobody else who holds it"),
    Status.ALREADY_EXISTS: ("the name is taken", ""),
    Status.DIR_NOT_EMPTY: ("the key has content", ""),
    Status.PATH_NOT_FOUND: ("a folder or key on the way is missing", "make it first"),
    Status.INVALID_NAME: ("the name is not allowed", ""),
    Status.FILE_CORRUPT: ("the store's file is damaged",
                          "zrfs.check tells more of a container, and mends it with repair=True"),
    Status.NOT_IMPLEMENTED: ("this kind of store does not offer that",
                             "the live registry and mounted hives are parts of Windows; "
                             "Method.OFFLINE opens a hive's file anywhere"),
    Status.OUT_OF_MEMORY: ("there is not enough memory", ""),
    Status.ACCESS_DENIED: ("access is denied",
                           "ask its owner for the right, or take a copy of the file"),
    Status.SHARING_VIOLATION: ("another program keeps the file to itself",
                               "try again when it is done"),
    Status.MODULE_NOT_FOUND: ("a library that is needed could not be loaded", ""),
    Status.INVALID_HANDLE: ("the handle is not open", ""),
    Status.TREE_DELETE_FAILED: ("the key holds more levels than can be deleted at once",
                                "delete the lower ones first"),
}


def shown(text: str) -> str:
    """A text that any terminal takes: what is not printable, half a pair among it, as repr has it."""
    return "".join(c if c.isprintable() else repr(c)[1:-1] for c in text)


def status_text(status: int, advice: Optional[str] = None) -> str:
    """A status in words, with its name and, where something can be done, what: `advice`, or what
    there is to say in general."""
    if status not in _TEXTS:
        return f"unknown status ({status})"
    text, general = _TEXTS[Status(status)]
    advice = general if advice is None else advice
    return f"{text} (FSSTATUS_{Status(status).name})" + ("; " + advice if advice else "")


class Error(Exception):
    """A failed operation. `status` is the library's answer; the text tells what failed, why, and
    what to do."""

    def __init__(self, what: str, status: int, advice: Optional[str] = None):
        super().__init__(f"cannot {shown(what)}: {status_text(status, advice)}")
        self.status = status

    def __str__(self) -> str:
        return self.args[0]

    def __reduce__(self):  # as another process gets it
        return _remade, (type(self), self.args, self.status)


def _remade(kind: type, args: tuple, status: int) -> Error:
    error = kind.__new__(kind)
    error.args, error.status = args, status
    return error


class NotFoundError(Error, KeyError):
    """There is no such key or value."""


class LockError(Error):
    """The lock is missing, or could not be had in time."""


class ExistsError(Error):
    """The name is taken."""


class CorruptError(Error):
    """The store's file is damaged."""


class DeniedError(Error, PermissionError):
    """The system does not allow it."""


_KINDS = {Status.NOT_FOUND: NotFoundError, Status.LOCK_FAILED: LockError,
          Status.ALREADY_EXISTS: ExistsError, Status.FILE_CORRUPT: CorruptError,
          Status.ACCESS_DENIED: DeniedError, Status.OUT_OF_MEMORY: Error}


def check(status: int, what: str, advice: Optional[str] = None) -> None:
    """Raises the exception of a status, none for success. `what` tells what was to be done, such as
    "open x.fbr", and `advice` what to do."""
    if status != Status.SUCCESS:
        raise _KINDS.get(status, Error)(what, status, advice)
