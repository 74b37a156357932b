# SPDX-License-Identifier: MIT
"""A small registry of one's own: keys and named, typed values in a file.

    with zrfs.open("settings.fbr", write=True) as store:
        store["Software\\\\Hello"]["Count"] = 42
"""
from ._version import version as __version__
from .errors import (CorruptError, DeniedError, Error, ExistsError, LockError, NotFoundError, Status)
from .store import Finding, Key, Lock, Method, Store, check, open
from .values import Type, Value

__all__ = ["CorruptError", "DeniedError", "Error", "ExistsError", "Finding", "Key", "Lock",
           "LockError", "Method", "NotFoundError", "Status", "Store", "Type", "Value", "check",
           "open"]
