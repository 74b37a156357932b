// SPDX-License-Identifier: MIT
#include "storage/check/CheckRecords.h"

#include "storage/core/Format.h"

namespace storage {

namespace {

constexpr uint32_t kLastType = 11;

bool Spills(uint32_t type) {
    return type == kDirectoryRecord || type == kDataRecord || type == kLinkRecord ||
           type == kRootDataRecord || type == kPageListRecord;
}

// The size that a record must have, whatever stands there; 0 where it can be any.
uint32_t KnownSize(const uint8_t* record) {
    const uint32_t type = LoadU16(record, record::kType);
    if (type == kFileInfoRecord) return kFileInfoSize;
    return Spills(type) && LoadU32(record, record::kLink) != 0 ? kRecordHeaderSize : 0;
}

struct Area {
    const uint8_t* page;
    uint32_t end;

    // Counts the records from `at` on if each makes sense beside those in `types` and they end
    // where they must; 0 otherwise.
    uint32_t CountTail(uint32_t at, uint32_t types) const {
        uint32_t count = 1;
        for (; at + kRecordHeaderSize <= end; ++count) {
            const uint8_t* record = page + at;
            const uint32_t type = LoadU16(record, record::kType);
            const uint32_t size = LoadU16(record, record::kSize);
            const uint32_t known = KnownSize(record);
            if (type > kLastType || (types >> type & 1) != 0 || size < kRecordHeaderSize ||
                at + size > end || (known != 0 && size != known))
                return 0;
            types |= 1u << type;
            at += size;
        }
        return at == end ? count : 0;
    }
};

struct Mend {
    uint32_t at = 0;
    uint32_t size = 0;
    uint32_t records = 0;
};

// The size for the record at `at` with which most records behind it make sense.
void TrySizes(const Area& area, uint32_t at, uint32_t before, uint32_t types, Mend* best) {
    const uint8_t* record = area.page + at;
    const uint32_t type = LoadU16(record, record::kType);
    if (type > kLastType || (types >> type & 1) != 0) return;
    const uint32_t known = KnownSize(record);
    const uint32_t room = area.end - at;
    for (uint32_t size = known != 0 ? known : kRecordHeaderSize; size <= room; ++size) {
        const uint32_t tail = area.CountTail(at + size, types | 1u << type);
        if (tail != 0 && before + tail > best->records) *best = Mend{at, size, before + tail};
        if (known != 0) return;
    }
}

}  // namespace

uint32_t WalkableEnd(const uint8_t* page, uint32_t end) {
    uint32_t at = kRecordsStart;
    while (at + kRecordHeaderSize <= end) {
        const uint32_t size = LoadU16(page, at + record::kSize);
        if (size < kRecordHeaderSize || at + size > end) break;
        at += size;
    }
    return at;
}

bool MendRecordSizes(uint8_t* page) {
    const Area area{page, LoadU16(page, 32)};
    bool wrong = WalkableEnd(page, area.end) != area.end;
    for (uint32_t at = kRecordsStart; !wrong && at < area.end;) {
        const uint32_t size = LoadU16(page, at + record::kSize);
        const bool spilled = Spills(LoadU16(page, at)) && LoadU32(page, at + record::kLink) != 0;
        wrong = spilled && size != kRecordHeaderSize;
        at += size;
    }
    if (!wrong) return false;
    Mend best;
    uint32_t before = 0, types = 0;
    for (uint32_t at = kRecordsStart; at + kRecordHeaderSize <= area.end; ++before) {
        TrySizes(area, at, before, types, &best);
        const uint32_t type = LoadU16(page, at + record::kType);
        const uint32_t size = LoadU16(page, at + record::kSize);
        if (type > kLastType || size < kRecordHeaderSize || at + size > area.end) break;
        types |= 1u << type;
        at += size;
    }
    if (best.at == 0) return false;
    Store(page, best.at + record::kSize, static_cast<uint16_t>(best.size));
    return true;
}

}  // namespace storage
