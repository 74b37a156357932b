// SPDX-License-Identifier: MIT
#include "tests/support/ContainerBytes.h"

#include <algorithm>
#include <bit>
#include <cctype>

namespace support::container {

void Reverse16(uint8_t* at) {
    std::swap(at[0], at[1]);
}
void Reverse32(uint8_t* at) {
    std::reverse(at, at + 4);
}
void Reverse32From(uint8_t* page, uint32_t pageSize, size_t at) {
    for (; at + 4 <= pageSize; at += 4) Reverse32(page + at);
}

namespace {

// Fields one behind the other, by their widths in bytes, with "." for a byte that is not turned and
// behind "*" how often a field comes.
constexpr const char kEntry[] = "444442*22";
constexpr const char kSuper[] = "2..4422*64..44442244444442*22....44....4";
constexpr const char kPage[] = "2..44444422";
constexpr const char kHeaderPage[] = "2..44444442";
constexpr uint32_t kEntrySize = 64;

void Turn(uint8_t* at, const uint8_t* end, const char* widths) {
    for (const char* next = widths; *next != 0;) {
        const ptrdiff_t width = *next == '.' ? 1 : *next - '0';
        int times = *++next == '*' ? 0 : 1;
        if (times == 0)
            while (std::isdigit(*++next) != 0) times = times * 10 + *next - '0';
        for (; times > 0 && end - at >= width; --times, at += width) std::reverse(at, at + width);
    }
}

void TurnEntries(uint8_t* at, const uint8_t* end) {
    for (; end - at >= kEntrySize; at += kEntrySize) Turn(at, end, kEntry);
}

void TurnUnits(uint8_t* at, const uint8_t* end) {
    for (; end - at >= 2; at += 2) Reverse16(at);
}

void TurnRecords(uint8_t* at, const uint8_t* end, const uint8_t* pageEnd, bool fromForeign) {
    while (end - at >= 12) {
        const uint16_t before[] = {Get16(at, 0), Get16(at, 2)};
        Turn(at, end, "2244");
        const uint16_t type = fromForeign ? Get16(at, 0) : before[0];
        const uint16_t size = fromForeign ? Get16(at, 2) : before[1];
        uint8_t *payload = at + 12, *next = at + size;
        if (size < 12 || next > pageEnd) return;
        if (type == FileInfo && size >= 48) Turn(payload, next, "....88844");
        if (type == DirectoryRec) TurnEntries(payload, next);
        if (type == 3) Turn(payload, next, "4");
        if (type == LinkRec) TurnUnits(payload, next);
        at = next;
    }
}

}  // namespace

void Convert(uint8_t* page, uint32_t pageSize, bool fromForeign, uint16_t layout) {
    const uint8_t* end = page + pageSize;
    uint16_t kind = Get16(page, 0);
    if (fromForeign) kind = static_cast<uint16_t>(kind << 8 | kind >> 8);
    if (kind == std::countr_zero(pageSize)) return TurnUnits(page, end);
    if (layout != 0) kind = layout;
    if (kind == SuperPage) return Turn(page, end, kSuper);
    const uint16_t recordsEnd = Get16(page, 32);
    Turn(page, end, kind == HeaderPage ? kHeaderPage : kPage);
    if (kind == NamePage || kind == LinkPage) TurnUnits(page + 32, end);
    if (kind == EntryPage) TurnEntries(page + 32, end);
    if (kind == HeaderPage)
        TurnRecords(page + 36,
                    page + std::min<uint32_t>(fromForeign ? Get16(page, 32) : recordsEnd, pageSize),
                    end, fromForeign);
}

Bytes EncodeRunLengths(const Bytes& plain) {
    Bytes code;
    for (size_t at = 0; at < plain.size();) {
        size_t run = 1;
        while (at + run < plain.size() && plain[at + run] == plain[at]) ++run;
        if (plain[at] != 0xFF && run <= 3) {
            code.insert(code.end(), run, plain[at]);
        } else {
            code.push_back(0xFF);
            size_t count = run;
            for (; count >= 0x80; count >>= 7) code.push_back(static_cast<uint8_t>(count | 0x80));
            code.push_back(static_cast<uint8_t>(count));
            code.push_back(plain[at]);
        }
        at += run;
    }
    code.push_back(0xFF);
    code.push_back(0);
    return code;
}

bool DecodeRunLengths(const Bytes& code, Bytes* plain) {
    constexpr size_t kSaneLimit = 1 << 24;
    plain->clear();
    for (size_t at = 0; at < code.size();) {
        if (code[at] != 0xFF) {
            plain->push_back(code[at++]);
            continue;
        }
        size_t count = 0;
        int shift = 0;
        do {
            if (++at >= code.size() || shift > 28) return false;
            count |= static_cast<size_t>(code[at] & 0x7F) << shift;
            shift += 7;
        } while ((code[at] & 0x80) != 0);
        ++at;
        if (count == 0) return true;
        if (at >= code.size() || count > kSaneLimit) return false;
        plain->insert(plain->end(), count, code[at++]);
    }
    return false;
}

Bytes UnitBytes(const std::u16string& text) {
    Bytes bytes;
    for (char16_t unit : text) {
        bytes.push_back(static_cast<uint8_t>(unit));
        bytes.push_back(static_cast<uint8_t>(unit >> 8));
    }
    return bytes;
}

}  // namespace support::container
