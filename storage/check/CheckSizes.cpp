// SPDX-License-Identifier: MIT
// Second pass: sizes. An object says how long its stream is, and a value of the key store how long
// its data is; neither can be more than there is, and they say the same. Where they do not, the
// larger one counts that can be.
#include <algorithm>

#include "storage/check/CheckRun.h"

namespace storage {

namespace {

constexpr uint32_t kValueHeader = 8;  // u32 type, u32 size of the data
constexpr uint32_t kValueSize = 4;
constexpr uint32_t kLeastRoom = 32;  // payload of a stream record made anew
// Its version, as a store makes it: a DWORD of 4 bytes, 2.
constexpr uint32_t kVersionValue[] = {4, 4, 2};

struct SizeCheck {
    CheckRun* run;
    uint32_t headerPage;
    const CheckStream& stream;
    uint64_t size = 0;    // that the object tells of
    uint64_t stored = 0;  // that there can be

    Status Load() {
        const Status status = LoadChecked(run, headerPage, run->header);
        size = LoadU64(run->header, kRecordsStart + record::kFileSize);
        stored = stream.stored;
        return status;
    }
    Status SetSize(uint64_t right);
    Status FindHeader(uint32_t* page, uint32_t* offset);
    Status CheckValue();
    Status MakeRoom();
};

Status SizeCheck::SetSize(uint64_t right) {
    TellBadLink(run, headerPage);
    const Status status = LoadChecked(run, headerPage, run->header);
    if (status != kOk) return status;
    size = right;
    Store(run->header, kRecordsStart + record::kFileSize, right);
    return StoreChecked(run, headerPage, run->header);
}

// Where the first bytes of the stream lie.
Status SizeCheck::FindHeader(uint32_t* page, uint32_t* offset) {
    *page = stream.first != 0 ? stream.first : stream.inlinePage;
    *offset = kPageHeaderSize;
    const Status status = LoadChecked(run, *page, run->other);
    if (status != kOk || stream.first != 0) return status;
    for (uint32_t at = kRecordsStart; at < HeaderPageOf(run->other)->endOffset;
         at += LoadU16(run->other, at + record::kSize)) {
        *offset = at + record::kPayload;
        if (LoadU16(run->other, at) == kDataRecord) break;
    }
    return kOk;
}

// A value that has no room for its header gets some, of zeros: it is empty then. But for the
// version of the store, which nobody could open with an empty one.
Status SizeCheck::MakeRoom() {
    Status status = LoadChecked(run, headerPage, run->header);
    if (status != kOk) return status;
    HeaderPageHeader* header = HeaderPageOf(run->header);
    uint32_t at = kRecordsStart;
    while (at < header->endOffset && LoadU16(run->header, at) != kDataRecord)
        at += LoadU16(run->header, at + record::kSize);
    const bool none = at >= header->endOffset;
    if (none) at = header->endOffset;
    const uint32_t old = none ? 0 : LoadU16(run->header, at + record::kSize);
    const uint32_t now = kRecordHeaderSize + kLeastRoom;
    if (stream.first != 0 || (stream.inlinePage != 0 && stream.inlinePage != headerPage) ||
        header->endOffset - old + now > run->context->pageSize)
        return kOk;
    uint8_t* place = run->header + at;
    std::memmove(place + now, place + old, header->endOffset - at - old);
    std::memset(place, 0, now);
    Store(place, record::kType, uint16_t{kDataRecord});
    Store(place, record::kSize, static_cast<uint16_t>(now));
    header->endOffset = static_cast<uint16_t>(header->endOffset - old + now);
    const bool isVersion = headerPage == run->versionHeader;
    if (isVersion) std::memcpy(place + record::kPayload, kVersionValue, sizeof kVersionValue);
    status = StoreChecked(run, headerPage, run->header);
    stored = kLeastRoom;
    return status == kOk ? SetSize(isVersion ? sizeof kVersionValue : kValueHeader) : status;
}

Status SizeCheck::CheckValue() {
    if (stored < kValueHeader) return MakeRoom();
    uint32_t page = 0, offset = 0;
    Status status = FindHeader(&page, &offset);
    if (status != kOk) return status;
    const uint64_t told = uint64_t{LoadU32(run->other, offset + kValueSize)} + kValueHeader;
    if (size > stored || size < std::min(told, stored)) status = SetSize(std::min(told, stored));
    if (status != kOk || told == size) return status;
    status = LoadChecked(run, page, run->other);
    if (status != kOk) return status;
    TellBadLink(run, page);
    Store(run->other, offset + kValueSize, static_cast<uint32_t>(size - kValueHeader));
    return StoreChecked(run, page, run->other);
}

}  // namespace

Status CheckStreamSize(CheckRun* run, uint32_t headerPage, const CheckStream& stream,
                       bool isValue) {
    SizeCheck check{run, headerPage, stream};
    const Status status = check.Load();
    if (status != kOk) return status;
    if (isValue && stream.method == 0) return check.CheckValue();
    return check.size > check.stored ? check.SetSize(check.stored) : kOk;
}

}  // namespace storage
