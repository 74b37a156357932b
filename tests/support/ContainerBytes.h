// SPDX-License-Identifier: MIT
// The container format once more, for tests: numbers at places, the other byte order and run-length
// coding, written from docs/container-format.md and sharing nothing with the engine, so that the
// two can be held against each other.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/TempDir.h"

namespace support::container {

enum Kind : uint16_t {
    Free = 0,
    NamePage = 31,
    HeaderPage = 32,
    EntryPage = 33,
    DataPage = 34,
    RecordPage = 36,
    LinkPage = 37,
    RootDataPage = 40,
    PageListPage = 43,
    SuperPage = 0x574E,
};
enum Record : uint16_t {
    FileInfo = 0,
    DirectoryRec = 1,
    DataRec = 2,
    LinkRec = 5,
    BlockSettings = 6,
    FindSettings = 7,
    RootDataRec = 8,
    PageListRec = 11,
};

inline uint16_t Get16(const uint8_t* page, size_t at) {
    return static_cast<uint16_t>(page[at] | page[at + 1] << 8);
}
inline uint32_t Get32(const uint8_t* page, size_t at) {
    return Get16(page, at) | static_cast<uint32_t>(Get16(page, at + 2)) << 16;
}
inline uint64_t Get64(const uint8_t* page, size_t at) {
    return Get32(page, at) | static_cast<uint64_t>(Get32(page, at + 4)) << 32;
}
inline void Put16(uint8_t* page, size_t at, uint32_t value) {
    page[at] = static_cast<uint8_t>(value);
    page[at + 1] = static_cast<uint8_t>(value >> 8);
}
inline void Put32(uint8_t* page, size_t at, uint32_t value) {
    Put16(page, at, value);
    Put16(page, at + 2, value >> 16);
}
inline void Put64(uint8_t* page, size_t at, uint64_t value) {
    Put32(page, at, static_cast<uint32_t>(value));
    Put32(page, at + 4, static_cast<uint32_t>(value >> 32));
}

// Turns one page between little-endian and the other order, in place. `fromForeign` tells which of
// the two it is in. A page that is to be laid out as another kind than its own (one that waits for
// a log) has that kind in `layout`; 0 for its own. Never leaves the page, whatever it holds.
void Convert(uint8_t* page, uint32_t pageSize, bool fromForeign, uint16_t layout = 0);
// Reverses the halves of every 32-bit number from `at` to the page's end.
void Reverse32From(uint8_t* page, uint32_t pageSize, size_t at);
void Reverse16(uint8_t* at);
void Reverse32(uint8_t* at);

// Method 4. Decoding stops at the count of 0, and fails without one.
Bytes EncodeRunLengths(const Bytes& plain);
bool DecodeRunLengths(const Bytes& code, Bytes* plain);

// UTF-16 text as the bytes of a little-endian container, and back.
Bytes UnitBytes(const std::u16string& text);

}  // namespace support::container
