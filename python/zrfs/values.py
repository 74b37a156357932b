# SPDX-License-Identifier: MIT
"""Values: typed bytes, and what they are in Python."""
from __future__ import annotations

import dataclasses
import enum
from typing import Any, Union

from ._library import encoded


class Type(enum.IntEnum):
    """The types that programs agree on. The library keeps any other number, too."""
    NONE = 0
    SZ = 1
    EXPAND_SZ = 2
    BINARY = 3
    DWORD = 4
    DWORD_BE = 5
    LINK = 6
    MULTI_SZ = 7
    QWORD = 11


@dataclasses.dataclass(frozen=True)
class Value:
    """A value as it is stored."""
    type: int
    data: bytes

    def to_python(self) -> Any:
        """int for the numbers, str for texts, list[str] for MULTI_SZ, else bytes; bytes, too, for
        data that does not fit its type. Zeros at the end of a text end it; those inside stay."""
        numbers = {Type.DWORD: (4, "little"), Type.DWORD_BE: (4, "big"), Type.QWORD: (8, "little")}
        if self.type in numbers:
            size, order = numbers[Type(self.type)]
            return int.from_bytes(self.data, order) if len(self.data) == size else self.data
        if len(self.data) % 2 == 0:
            if self.type in (Type.SZ, Type.EXPAND_SZ, Type.LINK):
                return _decoded(self.data).rstrip("\0")
            if self.type == Type.MULTI_SZ:
                texts = _decoded(self.data).rstrip("\0")
                return texts.split("\0") if texts else []
        return self.data


Stored = Union[Value, int, str, bytes, bytearray, memoryview, list, tuple]


def _decoded(data: bytes) -> str:
    return data.decode("utf-16-le", "surrogatepass")


def from_python(value: Stored) -> Value:
    """A number of up to 32 bits is a DWORD, of up to 64 a QWORD; a str is an SZ, bytes are BINARY,
    and a list of str is a MULTI_SZ. A Value goes as it is. What was read can be written: a zero
    inside a text and an empty text before others of a list are kept, though other programs may end
    there; at the end, where they would be lost, they are refused."""
    if isinstance(value, Value):
        if not isinstance(value.data, bytes) or not 0 <= value.type < 1 << 32:
            raise TypeError("a Value has a type from 0 to 0xffffffff and bytes, "
                            f"unlike {value!r}")
        return value
    if isinstance(value, int):
        if not 0 <= value < 1 << 64:
            raise OverflowError(f"{value} has no place in 64 bits without a sign")
        return Value(Type.DWORD, value.to_bytes(4, "little")) if value < 1 << 32 else \
            Value(Type.QWORD, value.to_bytes(8, "little"))
    if isinstance(value, str):
        if value.endswith("\0"):
            raise ValueError(f"a zero character at the end of {value!r}, which ends the text; "
                             "a Value of Type.SZ keeps it")
        return Value(Type.SZ, encoded(value) + b"\0\0")
    if isinstance(value, (bytes, bytearray, memoryview)):
        return Value(Type.BINARY, bytes(value))
    if isinstance(value, (list, tuple)):
        for text in value:
            if not isinstance(text, str) or "\0" in text:
                raise TypeError(f"a list must hold texts without a zero character, unlike {text!r}")
        if value and not value[-1]:
            raise TypeError("a list must not end in an empty text, which ends the list")
        return Value(Type.MULTI_SZ, b"\0\0".join([*map(encoded, value), b"\0\0"]))
    raise TypeError(f"no type of value for {type(value).__name__}")
