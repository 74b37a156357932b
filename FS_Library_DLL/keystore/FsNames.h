// SPDX-License-Identifier: MIT
// Names as callers know them and as the container stores them.
//
// A container entry cannot hold every character, so those it cannot hold, and all that do not
// print, are stored as "#" and four hexadecimal digits. "#" itself is escaped, which leaves it free
// to begin the marker "#FILE" of a value whose plain name is taken by a subkey.
#pragma once

#include <vector>

#include "FS_Library_DLL/keystore/FsText.h"

// Which characters are escaped beside those that do not print. In a key's name the backslash parts
// the keys of a path and stays as it is.
enum class FsNameSet { Value, Key };

// The stored form of a name: the caller's own units when nothing has to change, else text built in
// `buffer`. False when there is no memory.
bool FS_EscapeName(WStringView name, FsNameSet set, FsText* buffer, WStringView* stored);
// The same of a text that ends with 0, in one pass where nothing has to change.
bool FS_EscapeName(const WChar* name, FsNameSet set, FsText* buffer, WStringView* stored);

// The name behind a stored form, without its marker. True with *out null when nothing changes,
// with a heap string of the caller's else. False on a null argument or when there is no memory.
// Escapes that this layer never writes are read as far as they go.
bool FS_UnescapeName(const WChar* stored, WChar** out);
// The same, always as a heap string; null when there is no memory.
WChar* FsUnescapedCopy(WStringView stored);
// The same as one string more, which ends where the heap string would: before the first unit 0.
void FsAddUnescaped(WStringView stored, std::vector<WString>* names);
// The same into `out`; false when there is no memory.
bool FsUnescapeInto(WStringView stored, FsText* out);

// "\base\name" without trailing backslashes, so that the root is the empty text. Nothing else is
// normalised. False when there is no memory.
bool FS_JoinPath(WStringView base, WStringView name, FsText* out);

inline constexpr WStringView kCollisionMarker = WTEXT("#FILE");
// The path under which a value is kept while a subkey has its name: "#FILE" before the last
// component. False when there is no memory.
bool FS_CollisionPath(WStringView path, FsText* out);
