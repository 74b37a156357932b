# SPDX-License-Identifier: MIT
"""Failures: an exception for each status that a program may want to tell from others."""
from __future__ import annotations

import enum


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


class Error(Exception):
    """A failed operation. `status` is the library's answer."""

    def __init__(self, what: str, status: int):
        name = Status(status).name.lower().replace("_", " ") if status < 20 else f"status {status}"
        super().__init__(f"{what}: {name} ({status})")
        self.status = status

    def __str__(self) -> str:
        return self.args[0]


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


def check(status: int, what: str) -> None:
    """Raises the exception of a status, none for success. `what` tells what was done to what."""
    if status != Status.SUCCESS:
        raise _KINDS.get(status, Error)(what, status)
