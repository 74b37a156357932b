// SPDX-License-Identifier: MIT
#include "tests/support/ContainerBytes.h"

#include <algorithm>
#include <bit>

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

void Reverse16From(uint8_t* page, size_t at, size_t end) {
    for (; at + 2 <= end; at += 2) Reverse16(page + at);
}

void ConvertEntry(uint8_t* entry) {
    for (int field = 0; field < 5; ++field) Reverse32(entry + 4 * field);
    Reverse16From(entry, 20, 64);
}

void ConvertSuper(uint8_t* page) {
    Reverse16(page + 12);
    Reverse16From(page, 14, 142);
    for (size_t at : {144, 148, 152, 156, 164, 168, 240, 244, 252}) Reverse32(page + at);
    for (size_t at : {160, 162}) Reverse16(page + at);
    ConvertEntry(page + 172);
}

void ConvertPayload(uint8_t* record, uint16_t type, uint16_t size) {
    if (type == FileInfo && size >= 48) {
        for (size_t at : {16, 24, 32}) std::reverse(record + at, record + at + 8);
        for (size_t at : {40, 44}) Reverse32(record + at);
    } else if (type == DirectoryRec) {
        for (uint32_t at = 12; at + 64 <= size; at += 64) ConvertEntry(record + at);
    } else if (type == 3 && size >= 16) {
        Reverse32(record + 12);
    } else if (type == LinkRec) {
        Reverse16From(record, 12, size);
    }
}

void ConvertRecords(uint8_t* page, uint32_t pageSize, uint32_t end, bool fromForeign) {
    for (uint32_t at = 36; at + 12 <= std::min(end, pageSize);) {
        uint8_t* record = page + at;
        if (fromForeign) {
            Reverse16(record);
            Reverse16(record + 2);
        }
        const uint16_t type = Get16(record, 0), size = Get16(record, 2);
        if (!fromForeign) {
            Reverse16(record);
            Reverse16(record + 2);
        }
        Reverse32(record + 4);
        Reverse32(record + 8);
        if (size < 12 || at + size > pageSize) return;
        ConvertPayload(record, type, size);
        at += size;
    }
}

}  // namespace

void Convert(uint8_t* page, uint32_t pageSize, bool fromForeign, uint16_t layout) {
    uint16_t kind = Get16(page, 0);
    Reverse16(page);
    if (fromForeign) kind = Get16(page, 0);
    if (kind == std::countr_zero(pageSize)) {
        Reverse16From(page, 2, pageSize);
        return;
    }
    if (layout != 0) kind = layout;
    Reverse32(page + 4);
    Reverse32(page + 8);
    if (kind == SuperPage) {
        ConvertSuper(page);
        return;
    }
    for (size_t at : {12, 16, 20, 24}) Reverse32(page + at);
    if (kind == HeaderPage) {
        Reverse32(page + 28);
        if (fromForeign) Reverse16(page + 32);
        const uint16_t end = Get16(page, 32);
        if (!fromForeign) Reverse16(page + 32);
        ConvertRecords(page, pageSize, end, fromForeign);
        return;
    }
    Reverse16(page + 28);
    Reverse16(page + 30);
    if (kind == NamePage || kind == LinkPage) Reverse16From(page, 32, pageSize);
    if (kind == EntryPage)
        for (uint32_t at = 32; at + 64 <= pageSize; at += 64) ConvertEntry(page + at);
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
