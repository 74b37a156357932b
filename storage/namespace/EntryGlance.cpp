// SPDX-License-Identifier: MIT
// One entry of a directory that memory does not have: who passes through needs no other one.
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Records.h"

namespace storage {

namespace {

using platform::WStringView;

// Who comes back, or finds a long list, loads it.
constexpr uint32_t kMostGlances = 2;
constexpr uint32_t kMostPagesGlancedAt = 16;

// 0 where there is none, or more to be known before it is found.
uint32_t FirstEntryPage(const FileObject* directory) {
    RecordWalk walk;
    if (!walk.Begin(ViewPage(directory->context, directory->headerPage), directory->fileId))
        return 0;
    const uint8_t* record = nullptr;
    while (walk.Next(&record) && record != nullptr)
        if (LoadU16(record, record::kType) == kDirectoryRecord)
            return LoadU32(record, record::kLink);
    return 0;
}

bool HasName(const DirectoryEntry& bytes, WStringView name, bool caseSensitive) {
    WChar units[kEntryNameUnits];
    std::memcpy(units, bytes.name, sizeof units);
    const WStringView text(units, bytes.nameLength);
    return caseSensitive ? text == name : platform::CompareFolded(text, name) == 0;
}

// The entry's place on the page, or their number.
uint32_t FindOnEntryPage(const StorageContext* context, const uint8_t* page, WStringView name,
                         DirectoryEntry* bytes) {
    const uint32_t count = EntriesPerPage(context);
    uint32_t at = 0;
    for (; at < count; ++at) {
        const uint32_t offset = kPageHeaderSize + at * kEntrySize;
        if (LoadU32(page, offset + offsetof(DirectoryEntry, nameLength)) != name.size() ||
            LoadU32(page, offset + offsetof(DirectoryEntry, fileId)) == 0)
            continue;
        *bytes = Load<DirectoryEntry>(page, offset);
        if (HasName(*bytes, name, context->caseSensitive)) break;
    }
    return at;
}

}  // namespace

bool GlanceAt(FileObject* directory, WStringView name, DirectoryEntry* bytes, uint32_t* entry) {
    StorageContext* context = directory->context;
    if (directory->transaction != nullptr || directory->glances == kMostGlances ||
        name.size() > kEntryNameUnits)
        return false;
    ++directory->glances;
    const uint32_t count = EntriesPerPage(context);
    uint32_t number = FirstEntryPage(directory);
    for (uint32_t place = 0; number != 0 && place < kMostPagesGlancedAt; ++place) {
        const PageBytes found = ViewPage(context, number);
        if (found.count != context->pageSize) return false;
        const PageHeader header = Load<PageHeader>(found.bytes, 0);
        if (header.kind != kEntryPage || header.fileId != directory->fileId) return false;
        const uint32_t at = FindOnEntryPage(context, found.bytes, name, bytes);
        *entry = place * count + at;
        if (at < count) return bytes->headerPage != 0;
        number = header.nextPage;
    }
    return false;
}

}  // namespace storage
