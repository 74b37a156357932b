// SPDX-License-Identifier: MIT
#include "storage/namespace/Lookup.h"

#include <algorithm>

#include "platform/Prefetch.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Path.h"

namespace storage {

namespace {

constexpr uint32_t kFetchedAhead = 64;
constexpr uint32_t kEntriesAhead = 3;
constexpr uint32_t kLookedAt = 128;  // of a directory's object, by a look-up

// Only a directory has its entries loaded; its record is looked at no more then.
bool IsPlainDirectory(const FileObject* object) {
    return ((object->flags & kEntriesLoaded) != 0 ||
            (object->entry->attributes & kAttrDirectory) != 0) &&
           object->transaction == nullptr &&
           (object->flags & (kObjectDeleted | kObjectCreated)) == 0;
}

// What the records of an object's one HeaderPage say of its stream.
struct StreamRecords {
    const uint8_t* info = nullptr;
    const uint8_t* data = nullptr;
};

// False where there is more to it, or less, than a plain stream has.
bool ReadRecords(const PageBytes& found, uint32_t fileId, StreamRecords* records) {
    const uint8_t* const page = found.bytes;
    HeaderPageHeader header;
    if (found.count < sizeof header) return false;
    std::memcpy(&header, page, sizeof header);
    if (header.kind != kHeaderPage || header.fileId != fileId || header.nextPage != 0 ||
        header.endOffset > found.count)
        return false;
    uint32_t at = kRecordsStart;
    // Mostly the first one is this, and the next one the last.
    constexpr uint32_t kFileInfo = kFileInfoSize << 16 | kFileInfoRecord;
    if (at + kFileInfoSize <= header.endOffset && LoadU32(page, at) == kFileInfo) {
        records->info = page + at;
        at += kFileInfoSize;
    }
    while (at < header.endOffset) {
        if (at + kRecordHeaderSize > header.endOffset) return false;
        const uint16_t type = LoadU16(page, at + record::kType);
        const uint32_t size = LoadU16(page, at + record::kSize);
        if (size < kRecordHeaderSize || at + size > header.endOffset) return false;
        if (type == kFileInfoRecord && size >= kFileInfoSize && records->info == nullptr)
            records->info = page + at;
        else if (type == kDataRecord && records->data == nullptr)
            records->data = page + at;
        else if (type != kPageListRecord)
            return false;
        at += size;
    }
    return records->info != nullptr && records->data != nullptr;
}

// The pages of a long stream mostly stand one behind the other: they are read in one go, in a
// shorter one behind one that brought little.
class PageRun {
  public:
    explicit PageRun(StorageContext* context) : context_(context) {}

    // The page `number`, which `wanted` pages of the stream begin with.
    PageBytes View(uint32_t number, uint32_t wanted) ZRFS_REQUIRES(context_->containerLock) {
        const uint32_t size = context_->pageSize;
        if (number - first_ >= count_ && wanted > 1) {
            const uint32_t most = (2 * used_ >= count_ ? kLongRun : kShortRun) / size;
            count_ = ReadPageRun(context_, bytes_, number, std::min(wanted, most));
            first_ = number;
            used_ = 0;
        }
        if (number - first_ >= count_) return ViewPage(context_, number, wanted > 1);
        ++used_;
        return {bytes_ + size_t{number - first_} * size, size};
    }

  private:
    static constexpr uint32_t kLongRun = 16384;  // bytes
    static constexpr uint32_t kShortRun = 4096;

    StorageContext* context_;
    uint32_t first_ = 0;
    uint32_t count_ = 0;
    uint32_t used_ = 0;
    uint8_t bytes_[kLongRun];
};

// The payload of a page of the stream; null for another one's page or one out of turn.
const uint8_t* StreamPage(const PlainStream& stream, const PageBytes& found, uint32_t level,
                          uint32_t* next) {
    if (found.count != stream.context->pageSize) return nullptr;
    const uint8_t* const page = found.bytes;
    PageHeader header;
    std::memcpy(&header, page, sizeof header);
    if (header.kind != kDataRecord + kRecordKindBase || header.fileId != stream.fileId ||
        header.level != level || header.recordType != kDataRecord || header.recordInfo != 0)
        return nullptr;
    *next = header.nextPage;
    return page + kPageHeaderSize;
}

// Where the bytes of a stream go, in their order.
struct Split {
    uint8_t* head;
    uint32_t headLeft;
    uint8_t* data;
    uint32_t dataLeft;

    uint32_t Left() const { return headLeft + dataLeft; }
    void Take(const uint8_t* from, uint32_t count) {
        const uint32_t first = std::min(count, headLeft);
        if (first != 0) std::memcpy(head, from, first);
        head += first;
        headLeft -= first;
        const uint32_t second = std::min(count - first, dataLeft);
        if (second != 0) std::memcpy(data, from + first, second);
        data += second;
        dataLeft -= second;
    }
};

bool ReadStreamPages(const PlainStream& stream, Split* split)
    ZRFS_REQUIRES(stream.context->containerLock) {
    const uint32_t payloadSize = stream.context->payloadSize;
    PageRun run(stream.context);
    uint32_t number = stream.firstPage;
    for (uint32_t level = 0; split->Left() != 0; ++level) {
        const uint32_t wanted = split->Left() / payloadSize + (split->Left() % payloadSize != 0);
        const uint8_t* payload = StreamPage(stream, run.View(number, wanted), level, &number);
        if (payload == nullptr) return false;
        split->Take(payload, std::min(split->Left(), payloadSize));
    }
    return true;
}

}  // namespace

FileObject* FindDirectory(StorageContext* context, const WChar* path, DirectoryHint* hint) {
    platform::Prefetch(hint->directory, kLookedAt);
    ObjectState* state = context->objects;
    if (hint->list != state->lookedIn && hint->list != nullptr)
        platform::Prefetch(hint->list, hint->listBytes);
    const bool holds = hint->epoch == state->paths.epoch;
    FileObject* directory = holds && hint->gone == state->hintedGone ? hint->directory : nullptr;
    if (directory == nullptr && holds) directory = state->fileObjects.Find(hint->fileId);
    if (directory == nullptr) {
        EvictIdleObjects(context);
        ResolvedPath resolved;
        if (ResolvePath(context, path, false, false, true, &resolved, nullptr) != kOk)
            return nullptr;
        directory = resolved.object;
        ReleaseObjectChain(directory);
        // Through a link the same path may lead elsewhere with no word to this directory. A file
        // whose entries were looked for has them loaded, and is none for all that.
        if (resolved.storage != nullptr || (directory->entry->attributes & kAttrDirectory) == 0)
            return nullptr;
    }
    if (!holds || hint->gone != state->hintedGone) {
        *hint = {directory->fileId, state->paths.epoch, directory, state->hintedGone, nullptr, 0};
        directory->flags |= kObjectHinted;
    }
    hint->list = state->lookedIn = directory->children.Memory(&hint->listBytes);
    directory->lastUsed = state->operations;
    return IsPlainDirectory(directory) ? directory : nullptr;
}

FileObject* FindLoadedDirectory(StorageContext* context, const WChar* path, DirectoryHint* hint) {
    FileObject* directory = FindDirectory(context, path, hint);
    return directory != nullptr && EnsureLoaded(directory) ? directory : nullptr;
}

bool EnsureLoaded(FileObject* directory) {
    if ((directory->flags & kEntriesLoaded) != 0) return true;
    AddReference(directory);
    LeaveIdle(directory);  // it comes back among those that hold memory
    const Status status = LoadDirectory(directory, nullptr);
    --directory->references;
    SettleObject(directory);
    return status == kOk;
}

bool DirectoryListing::Next(uint32_t attributeMask, platform::WStringView* name) {
    for (const EntryList& list = directory->children; position < list.Count();) {
        const EntryChunk::Item& item = list.ItemAt(position++);
        const DirEntry* entry = item.entry;
        if (position + kEntriesAhead < list.Count())
            platform::Prefetch(list[position + kEntriesAhead], sizeof *entry);
        if ((entry->attributes & kAttrHidden) != 0 || (entry->attributes & attributeMask) == 0)
            continue;
        // Who asks for the names of a key's values mostly asks for the values next.
        if (position <= kFetchedAhead && (entry->attributes & kAttrDirectory) == 0)
            PrefetchPage(directory->context, entry->headerPage, item.pagePlace);
        *name = {entry->name, entry->nameUnits};
        return true;
    }
    return false;
}

bool ListDirectory(StorageContext* context, const WChar* path, DirectoryHint* hint,
                   DirectoryListing* listing) {
    if (!context->searchEnabled) return false;
    FileObject* directory = FindLoadedDirectory(context, path, hint);
    if (directory == nullptr || SortDirectory(directory, nullptr) != kOk) return false;
    *listing = {directory, 0};
    return true;
}

namespace {

// The stream of the file whose object is `object`, if it has one.
Look LookAtStream(StorageContext* context, const FileObject* object, uint32_t fileId,
                  uint32_t headerPage, uint32_t* pagePlace, PlainStream* stream) {
    if (object != nullptr && (object->transaction != nullptr || !object->handles.Empty()))
        return Look::Unusual;
    if (context->updateAccessTime || context->byteSwapped) return Look::Unusual;
    const PageBytes page = ViewPage(context, headerPage, false, pagePlace);
    StreamRecords records;
    if (page.bytes == nullptr || !ReadRecords(page, fileId, &records)) return Look::Unusual;
    const uint64_t size = LoadU64(records.info, record::kFileSize);
    const uint32_t link = LoadU32(records.data, record::kLink);
    const uint32_t stored = LoadU16(records.data, record::kSize) - kRecordHeaderSize;
    if (size > UINT32_MAX || LoadU32(records.data, record::kInfo) != 0) return Look::Unusual;
    if (link == 0 && stored < size) return Look::Unusual;
    *stream = {context, static_cast<uint32_t>(size), fileId,
               link == 0 ? records.data + record::kPayload : nullptr, link};
    return Look::Found;
}

constexpr uint32_t kNotPlainAttributes = kAttrDirectory | kAttrLink | kAttrReadOnly;

}  // namespace

Look FindPlainStream(FileObject* directory, platform::WStringView name, PlainStream* stream) {
    StorageContext* context = directory->context;
    DirectoryEntry bytes;
    uint32_t place = 0;
    if ((directory->flags & kEntriesLoaded) == 0) {
        if (GlanceAt(directory, name, &bytes, &place)) {
            if ((bytes.attributes & kNotPlainAttributes) != 0) return Look::Unusual;
            const FileObject* object = context->objects->fileObjects.Find(bytes.fileId);
            return LookAtStream(context, object, bytes.fileId, bytes.headerPage, nullptr, stream);
        }
        if (!EnsureLoaded(directory)) return Look::Unusual;
    }
    bool found = false;
    if (FindEntry(directory, name, &found, &place, nullptr) != kOk) return Look::Unusual;
    if (!found) return Look::Missing;
    EntryChunk::Item& item = directory->children.ItemAt(place);
    const DirEntry* entry = item.entry;
    if ((entry->attributes & kNotPlainAttributes) != 0) return Look::Unusual;
    return LookAtStream(context, entry->object, entry->fileId, entry->headerPage, &item.pagePlace,
                        stream);
}

bool ReadLongStream(const PlainStream& stream, void* head, uint32_t headBytes, void* data,
                    uint32_t bytes) {
    Split split{static_cast<uint8_t*>(head), headBytes, static_cast<uint8_t*>(data),
                std::min(bytes, stream.size - headBytes)};
    return ReadStreamPages(stream, &split);
}

}  // namespace storage
