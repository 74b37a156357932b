// SPDX-License-Identifier: MIT
// The structures of a container's pages as lists of named fields, and the values of fields as
// people read them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/Text.h"

namespace fbr {

enum class Show : uint8_t {
    kNumber,
    kHex,
    kKind,
    kRecordType,
    kMovedRecord,  // the same, 0 for none
    kAttributes,
    kFlags,
    kMethod,
    kDate,
    kText,  // UTF-16, up to its last unit that is not 0
};

struct Field {
    const char* name;
    uint16_t offset;  // in bytes from the start of its structure
    uint16_t width;   // in bytes: 2, 4 or 8, any even number for text
    Show show = Show::kNumber;
};

extern const std::span<const Field> kSuperblockFields;
extern const std::span<const Field> kEntryFields;
// What the headers of all pages begin with, and what is behind it by the kind of the page.
extern const std::span<const Field> kPageHeaderFields;
std::span<const Field> HeaderEndFields(uint16_t kind);
// The four numbers that every record begins with, and what is behind them by the type of the
// record.
extern const std::span<const Field> kRecordFields;
std::span<const Field> PayloadFields(uint16_t recordType);

// The number in a field; 0 for a text.
uint64_t NumberIn(const Field& field, const uint8_t* structure);
// The text at `units`, without the zeros at its end.
platform::WString UnitsAt(const uint8_t* units, size_t count);

struct Shown {
    std::string value;
    std::string meaning;  // what the number stands for, empty when it is just a number
};
Shown ShowField(const Field& field, const uint8_t* structure);
// A text in quotes, fit for one line.
std::string Quoted(platform::WStringView text);
const char* RecordName(uint16_t type);

// A record of a HeaderPage; offsets are in the page.
struct RecordView {
    uint32_t offset;
    uint16_t type, size;
    uint32_t link;
};
// The records that can be walked. *end is where the walk ended, in or out of the way.
std::vector<RecordView> RecordsOf(const std::vector<uint8_t>& page, uint32_t* end);

}  // namespace fbr
