// SPDX-License-Identifier: MIT
// Status codes of the engine: 0, a small negative code below, or a positive Win32 error number.
#pragma once

#include <cstdint>

namespace storage {

using Status = int32_t;

inline constexpr Status kOk = 0;
inline constexpr Status kNotContainer = -1;  // not a container, or impossible page geometry
inline constexpr Status kBadPageSize = -2;
inline constexpr Status kCorrupt = -3;  // see Corrupt() in PageIo.h
inline constexpr Status kExists = -5;
inline constexpr Status kRecordExists = -7;
inline constexpr Status kNotFound = -8;       // path or object not found
inline constexpr Status kParentMissing = -9;  // a directory on the way is missing
inline constexpr Status kSharing = -10;       // held by another transaction or handle
inline constexpr Status kEndOfData = -11;
inline constexpr Status kNoMore = -12;  // no more matches in a search
inline constexpr Status kBadName = -13;
inline constexpr Status kNotOpen = -15;
inline constexpr Status kSearchOff = -16;
inline constexpr Status kReadOnly = -17;
inline constexpr Status kNoMemory = -19;
inline constexpr Status kBadPath = -20;  // climbs above the root, or too many links
inline constexpr Status kNoLink = -21;
inline constexpr Status kBadBlock = -23;  // a stored block will not decode
inline constexpr Status kInvalid = -24;   // invalid parameter, a null handle above all
inline constexpr Status kFull = -25;
inline constexpr Status kCancelled = -26;
inline constexpr Status kRecordMissing = -27;
inline constexpr Status kNotEmpty = -28;
inline constexpr Status kNoObject = -29;  // the file handle has no object any more
inline constexpr Status kAccess = -31;    // handle not opened for this access
inline constexpr Status kInternal = -200;
inline constexpr Status kVersion = -201;     // set by the key store
inline constexpr Status kLockLost = -203;    // for the engine's callers inside the library only
inline constexpr Status kNotPlain = -204;    // likewise
inline constexpr Status kTreeDelete = -202;  // set by the key store

}  // namespace storage
