// SPDX-License-Identifier: MIT
// The hive file, as its bytes lie. All numbers are little-endian.
//
// A base block of 4096 bytes is followed by bins, each a multiple of 4096 bytes long. A bin is a
// head and then cells without gaps. A cell is a signed 32-bit size that counts itself, is a
// multiple of 8 and is negative while the cell is in use, and then its content. One cell refers to
// another by the offset of its size field from the end of the base block; kNoCell is none. Each
// table below gives positions from the start of the content.
#pragma once

#include <cstdint>
#include <cstring>

namespace offreg::format {

inline constexpr uint32_t kBlockSize = 4096;
inline constexpr uint32_t kNoCell = 0xFFFFFFFF;
inline constexpr uint32_t kCellHead = 4;

namespace base {
inline constexpr char kMagic[] = "regf";
inline constexpr uint32_t kSequence1 = 4;  // equal to the second one when the file is complete
inline constexpr uint32_t kSequence2 = 8;
inline constexpr uint32_t kTime = 12;
inline constexpr uint32_t kMajor = 20;
inline constexpr uint32_t kMinor = 24;
inline constexpr uint32_t kType = 28;    // 0: a hive, not a log
inline constexpr uint32_t kFormat = 32;  // 1
inline constexpr uint32_t kRootCell = 36;
inline constexpr uint32_t kBinsLength = 40;
inline constexpr uint32_t kClustering = 44;  // 1
inline constexpr uint32_t kFileName = 48;    // the end of the path, UTF-16
inline constexpr uint32_t kFileNameBytes = 64;
inline constexpr uint32_t kChecksum = 508;  // of the 127 words before it
}  // namespace base

namespace bin {
inline constexpr char kMagic[] = "hbin";
inline constexpr uint32_t kOffset = 4;
inline constexpr uint32_t kSize = 8;
inline constexpr uint32_t kTime = 20;
inline constexpr uint32_t kHead = 32;
}  // namespace bin

namespace key {
inline constexpr char kMagic[] = "nk";
inline constexpr uint32_t kFlags = 2;
inline constexpr uint32_t kTime = 4;
inline constexpr uint32_t kParent = 16;
inline constexpr uint32_t kSubkeyCount = 20;
inline constexpr uint32_t kVolatileCount = 24;
inline constexpr uint32_t kSubkeyList = 28;
inline constexpr uint32_t kVolatileList = 32;
inline constexpr uint32_t kValueCount = 36;
inline constexpr uint32_t kValueList = 40;
inline constexpr uint32_t kSecurity = 44;
inline constexpr uint32_t kClass = 48;
inline constexpr uint32_t kLongestSubkey = 52;  // these four in bytes of UTF-16
inline constexpr uint32_t kLongestClass = 56;
inline constexpr uint32_t kLongestValueName = 60;
inline constexpr uint32_t kLongestData = 64;
inline constexpr uint32_t kNameBytes = 72;
inline constexpr uint32_t kClassBytes = 74;
inline constexpr uint32_t kName = 76;

inline constexpr uint16_t kIsRoot = 0x0004;
inline constexpr uint16_t kCannotBeDeleted = 0x0008;
inline constexpr uint16_t kIsLink = 0x0010;
inline constexpr uint16_t kNarrowName = 0x0020;  // one byte for each unit, none above 0xFF
}  // namespace key

namespace value {
inline constexpr char kMagic[] = "vk";
inline constexpr uint32_t kNameBytes = 2;
inline constexpr uint32_t kDataBytes = 4;
inline constexpr uint32_t kData = 8;  // the data's cell, or the data itself
inline constexpr uint32_t kType = 12;
inline constexpr uint32_t kFlags = 16;
inline constexpr uint32_t kName = 20;

inline constexpr uint32_t kInlineData = 0x80000000;  // in kDataBytes
inline constexpr uint32_t kMostInline = 4;
inline constexpr uint16_t kNarrowName = 0x0001;
}  // namespace value

namespace security {
inline constexpr char kMagic[] = "sk";
inline constexpr uint32_t kNext = 4;  // a ring of all of them
inline constexpr uint32_t kPrevious = 8;
inline constexpr uint32_t kUsers = 12;
inline constexpr uint32_t kBytes = 16;
inline constexpr uint32_t kDescriptor = 20;
}  // namespace security

// Lists of subkeys: "li" has bare cells, "lf" and "lh" have a cell and a hint for each (the name's
// first four characters, or its hash); "ri" has the cells of such lists. All sorted by name.
namespace list {
inline constexpr uint32_t kCount = 2;
inline constexpr uint32_t kItems = 4;
inline constexpr uint32_t kBareItem = 4;
inline constexpr uint32_t kHintedItem = 8;
inline constexpr uint32_t kMostHinted = 507;  // what the system puts into one list
}  // namespace list

// Data above this size is cut into segments of it, from format 1.4 on; a cell of its own ("db")
// has their number and the cell of the list of their cells.
namespace big {
inline constexpr char kMagic[] = "db";
inline constexpr uint32_t kCount = 2;
inline constexpr uint32_t kList = 4;
inline constexpr uint32_t kHead = 8;
inline constexpr uint32_t kSegment = 16344;
}  // namespace big

template <class T>
T Load(const uint8_t* at) noexcept {
    T number;
    std::memcpy(&number, at, sizeof number);
    return number;
}
template <class T>
void Store(uint8_t* at, T number) noexcept {
    std::memcpy(at, &number, sizeof number);
}

// The sum in the base block.
inline uint32_t Checksum(const uint8_t* block) noexcept {
    uint32_t sum = 0;
    for (uint32_t at = 0; at < base::kChecksum; at += 4) sum ^= Load<uint32_t>(block + at);
    return sum == 0xFFFFFFFF ? 0xFFFFFFFE : sum == 0 ? 1 : sum;
}

}  // namespace offreg::format
