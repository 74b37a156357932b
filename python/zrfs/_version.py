# SPDX-License-Identifier: MIT
"""The version: in include/ZrFsVersion.h of the sources, else what the installation noted of it."""
from __future__ import annotations

import pathlib
import re


def _find() -> str:
    package = pathlib.Path(__file__).resolve().parent
    header = package.parent.parent / "include" / "ZrFsVersion.h"
    if header.exists():
        found = re.search(r'ZRFS_VERSION "(.*)"', header.read_text(encoding="utf-8"))
    else:
        noted = (name.stem for name in package.parent.glob("zrfs-*.dist-info"))
        found = re.search(r"zrfs-(.*)", next(noted, ""))
    return found[1] if found else "unknown"


version = _find()
