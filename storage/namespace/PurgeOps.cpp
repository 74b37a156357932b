// SPDX-License-Identifier: MIT
#include <algorithm>

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Handles.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Operations.h"
#include "storage/namespace/ParentOperation.h"
#include "storage/namespace/Purge.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

// Pages side by side as they stand in the file, for one who only wants to know where they lead to.
struct PageRun {
    static constexpr uint32_t kBytes = 8 << 10;  // most chains
    uint32_t first = 0;
    uint32_t count = 0;
    uint8_t bytes[kBytes];
};

// Is the file so small that memory may well have all of it?
bool FitsInMemory(const StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    return uint64_t{context->totalPages} << context->pageShift <= CleanBlocks::kLimit;
}

// The page `number`, with those behind it that a chain of `wanted` pages may have. Null when it is
// not to be had so: memory may know it better than the file.
Status ReadAhead(StorageContext* context, uint32_t number, uint32_t wanted, PageRun* run,
                 const uint8_t** bytes) {
    *bytes = nullptr;
    const uint32_t size = context->pageSize;
    if (context->byteSwapped || number >= context->totalPages || !context->IsLocked() ||
        FitsInMemory(context) || context->pageTable.Find(number) != nullptr)
        return kOk;
    if (number - run->first >= run->count) {
        run->first = number;
        run->count = 0;
        const uint32_t count =
            std::min({wanted, PageRun::kBytes / size, context->totalPages - number});
        if (count < 2) return kOk;  // memory may have a single one
        const uint64_t address = uint64_t{context->basePage} + number;
        const Status status = ReadPageRaw(context->file, run->bytes, count * size, address, size);
        if (status != kOk) return status;
        run->count = count;
    }
    *bytes = run->bytes + (number - run->first) * size;
    return kOk;
}

// The page behind one of a chain.
Status NextOfChain(StorageContext* context, uint32_t number, uint16_t kind, uint32_t fileId,
                   const uint8_t* bytes, uint32_t* next, StorageTransaction* transaction) {
    PageHeader header;
    if (bytes == nullptr) {
        const PageBytes found = ViewPage(context, number);
        if (found.count >= sizeof header) bytes = found.bytes;
    }
    if (bytes != nullptr) {
        std::memcpy(&header, bytes, sizeof header);
        if (header.kind != kind || header.fileId != fileId) return Corrupt(context);
        *next = header.nextPage;
        return kOk;
    }
    CachePage* page = nullptr;
    Status status = GetPageChecked(context, number, kind, &page, fileId, transaction);
    if (status != kOk) return status;
    *next = HeaderOf(page->buffer)->nextPage;
    if ((page->flags & kPageFreed) != 0) status = Corrupt(context);  // the chain came back to it
    ReleasePage(context, page);
    return status;
}

}  // namespace

Status FreeChainUnread(StorageContext* context, uint32_t first, uint16_t kind, uint32_t fileId,
                       uint64_t expected, StorageTransaction* transaction) {
    if (first == 0) return kOk;
    PageRun run;
    uint32_t left = context->totalPages;
    for (uint32_t number = first, next = 0; number != 0; number = next) {
        if (left-- == 0) return Corrupt(context);
        const auto wanted = static_cast<uint32_t>(std::min<uint64_t>(expected, left));
        const uint8_t* bytes = nullptr;
        Status status = ReadAhead(context, number, wanted, &run, &bytes);
        if (status == kOk)
            status = NextOfChain(context, number, kind, fileId, bytes, &next, transaction);
        if (status == kOk) status = FreePageNumber(transaction, number);
        if (status != kOk) return status;
        if (expected != 0) --expected;
    }
    return kOk;
}

namespace {

// The pages of a directory's entries, which memory knows once they were loaded.
Status FreeEntryPages(FileObject* directory, StorageTransaction* transaction) {
    Status status = kOk;
    for (const uint32_t number : directory->directoryPages)
        if (status == kOk) status = FreePageNumber(transaction, number);
    return status;
}

// Frees what the records of one HeaderPage link to.
Status FreeLinkedPages(FileObject* object, CachePage* page, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    const NumberList& entryPages = object->directoryPages;
    Status status = kOk;
    uint32_t offset = 0;
    while (status == kOk && NextRecord(context, page, &offset, &status)) {
        const RecordPlace place{page, offset};
        const uint16_t type = LoadU16(place.Bytes(), record::kType);
        const bool known =
            type == kDirectoryRecord && !entryPages.Empty() && entryPages[0] == place.Link();
        status = known ? FreeEntryPages(object, transaction)
                       : FreeChainUnread(context, place.Link(),
                                         static_cast<uint16_t>(type + kRecordKindBase),
                                         HeaderOf(page->buffer)->fileId, 0, transaction);
    }
    return status;
}

Status FreeHeaderChain(FileObject* object, StorageTransaction* transaction) {
    StorageContext* context = object->context;
    uint32_t left = context->totalPages;
    for (uint32_t number = object->headerPage; number != 0;) {
        if (left-- == 0) return Corrupt(context);
        CachePage* page = nullptr;
        Status status =
            GetPageChecked(context, number, kHeaderPage, &page, object->fileId, transaction);
        if (status != kOk) return status;
        number = HeaderOf(page->buffer)->nextPage;
        status = FreeLinkedPages(object, page, transaction);
        if (status == kOk)
            status = FreePage(context, page);
        else
            ReleasePage(context, page);
        if (status != kOk) return status;
    }
    return kOk;
}

// The pages of an object and its entry.
Status FreeObjectPages(FileObject* object, StorageTransaction* transaction) {
    FileObject* directory = object->parent;
    object->flags |= kStreamChanged;
    bool freed = false;
    Status status = FreeStream(object, &freed, transaction);
    DirectoryEntry bytes{};
    if (status == kOk)
        status = ReadDirEntry(directory, object->entry, &bytes, nullptr, transaction);
    if (status != kOk || bytes.fileId == 0) return status;
    status = FreeHeaderChain(object, transaction);
    if (status == kOk)
        status =
            FreePageChain(object->context, bytes.namePage, kNamePage, object->fileId, transaction);
    if (status == kOk)
        status = WriteDirEntry(directory, DirectoryEntry{}, object->entry->entry, transaction);
    return status;
}

// First half of a purge: what stands in the way of it. The handles are closed even if somebody
// else holds the object.
Status BeginPurge(FileObject* object, StorageTransaction* transaction) {
    Status status = object->references > 1 ? kSharing : kOk;
    while (!object->handles.Empty()) {
        const Status closed = CloseStream(object->handles.Last(), true);
        if (status == kOk) status = closed;
    }
    if (status == kOk) status = LoadDirectory(object, transaction);
    object->purgeNext = object->children.Count();
    return status;
}

// Second half, when nothing is below the object any more.
Status FinishPurge(FileObject* object, StorageTransaction* transaction) {
    const Status status = FreeObjectPages(object, transaction);
    if (status != kOk) return status;
    ForgetPath(object);
    object->parent->flags |= kDirectoryChanged;
    RemoveEntry(object->parent, object->entry);
    object->flags |= kObjectDeleted;
    object->parent = nullptr;
    return kOk;
}

// The next child, from the end of the list, in the transaction and with a reference; null when
// none is left.
Status TakePurgeChild(FileObject* object, FileObject** child, StorageTransaction* transaction) {
    *child = nullptr;
    if (object->purgeNext == 0) return kOk;
    FileObject* taken = nullptr;
    Status status = OpenEntry(object, object->children[--object->purgeNext], &taken);
    if (status != kOk) return status;
    status = JoinTransaction(transaction, taken);
    if (status == kOk) status = BeginPurge(taken, transaction);
    if (status != kOk) {
        --taken->references;
        SettleObject(taken);
        return status;
    }
    *child = taken;
    return kOk;
}

}  // namespace

// Depth first without recursion: what lies below a file that was used as a directory can be as
// deep as its maker liked.
Status PurgeObject(FileObject* top, StorageTransaction* transaction) {
    FileObject* object = top;
    Status status = BeginPurge(top, transaction);
    while (status == kOk) {
        FileObject* child = nullptr;
        status = TakePurgeChild(object, &child, transaction);
        if (child != nullptr) object = child;
        if (status != kOk || child != nullptr) continue;
        FileObject* parent = object->parent;
        status = FinishPurge(object, transaction);
        if (status != kOk) break;
        if (object == top) return kOk;
        --object->references;
        object = parent;
    }
    // The references of the way down to where it stopped.
    for (; object != top; object = object->parent) --object->references;
    return status;
}

namespace {

// Purges a child that was opened, unless `status` says not to, and gives its reference back.
Status PurgeOpened(FileObject* child, Status status, StorageTransaction* transaction) {
    if (status == kOk) status = JoinTransaction(transaction, child);
    if (status == kOk) status = PurgeObject(child, transaction);
    --child->references;
    SettleObject(child);
    return status;
}

Status DeleteChild(ParentOperation* operation) {
    FileObject* directory = operation->parent.object;
    StorageTransaction* transaction = operation->transaction;
    FileObject* child = nullptr;
    Status status =
        OpenChild(directory, operation->parent.lastName, &child, kNotFound, transaction);
    if (status != kOk) return status;
    if ((child->entry->attributes & kAttrDirectory) != 0) {
        status = LoadDirectory(child, transaction);
        if (status == kOk && !child->children.Empty()) status = kNotEmpty;
    }
    if (status == kOk && child->references > 1) status = kSharing;
    return PurgeOpened(child, status, transaction);
}

// Nothing but files that nobody has open.
bool HoldsFilesAtRest(FileObject* directory) {
    const EntryList& list = directory->children;
    for (uint32_t i = 0; i < list.Count(); ++i)
        if (list[i]->attributes != kAttrFile ||
            (list[i]->object != nullptr && list[i]->object->references != 0))
            return false;
    return true;
}

// What the records of a file say of its pages, where it has one HeaderPage and nothing but a
// stream.
struct FilePages {
    uint32_t stream = 0;
    uint32_t index = 0;
    uint64_t bytes = 0;
};

bool FindFilePages(StorageContext* context, const DirEntry* entry, FilePages* pages) {
    RecordWalk walk;
    if (!walk.Begin(ViewPage(context, entry->headerPage, true), entry->fileId)) return false;
    for (const uint8_t* record = nullptr;;) {
        if (!walk.Next(&record)) return false;
        if (record == nullptr) return true;
        const uint16_t type = LoadU16(record, record::kType);
        const uint32_t size = LoadU16(record, record::kSize);
        const uint32_t link = LoadU32(record, record::kLink);
        uint32_t* const place = type == kDataRecord       ? &pages->stream
                                : type == kPageListRecord ? &pages->index
                                                          : nullptr;
        if (place != nullptr ? *place != 0 : type != kFileInfoRecord || link != 0) return false;
        if (place != nullptr) *place = link;
        if (place == nullptr && size >= kFileInfoSize)
            pages->bytes = LoadU64(record, record::kFileSize);
    }
}

// Frees the pages of a file that nobody has; its entry goes with the directory. kNotPlain, and
// nothing is done, where there is more to it.
Status FreeFilePages(FileObject* directory, DirEntry* entry, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    const FileObject* object = entry->object;
    if (object == nullptr ? context->objects->fileObjects.Find(entry->fileId) != nullptr
                          : object->transaction != nullptr || object->references != 0)
        return kNotPlain;
    FilePages pages;
    if (!FindFilePages(context, entry, &pages)) return kNotPlain;
    Status status = FreePageNumber(transaction, entry->headerPage);
    if (status == kOk)
        status = FreeChainUnread(context, pages.stream, kDataPage, entry->fileId,
                                 PagesOf(context, pages.bytes), transaction);
    if (status == kOk)
        status =
            FreeChainUnread(context, pages.index, kPageListPage, entry->fileId, 0, transaction);
    if (status == kOk && entry->nameLength > kEntryNameUnits) {
        DirectoryEntry bytes{};
        status = ReadDirEntry(directory, entry, &bytes, nullptr, transaction);
        if (status == kOk)
            status =
                FreeChainUnread(context, bytes.namePage, kNamePage, entry->fileId, 0, transaction);
    }
    if (status == kOk && entry->object != nullptr) DestroyObject(entry->object);
    return status;
}

// In the order in which they lie in the file, so that one reading brings many.
Status FreeFiles(FileObject* directory, StorageTransaction* transaction) {
    const EntryList& list = directory->children;
    const auto& objects = directory->context->objects->fileObjects;
    PointerList<DirEntry> entries;
    if (!entries.Reserve(list.Count())) return kNoMemory;
    for (uint32_t i = 0; i < list.Count(); ++i) {
        entries.Add(list[i]);
        objects.PrefetchBucket(list[i]->fileId);
    }
    std::sort(entries.begin(), entries.end(),
              [](const DirEntry* a, const DirEntry* b) { return a->headerPage < b->headerPage; });
    for (const DirEntry* entry : entries) {
        objects.PrefetchItem(entry->fileId);
        PrefetchPage(directory->context, entry->headerPage);
    }
    Status status = kOk;
    for (DirEntry* entry : entries) {
        status = FreeFilePages(directory, entry, transaction);
        FileObject* file = nullptr;
        if (status == kNotPlain) {
            status = OpenEntry(directory, entry, &file);
            if (status == kOk) status = PurgeOpened(file, status, transaction);
        }
        if (status != kOk) return status;
    }
    return kOk;
}

Status DeleteWithFiles(ParentOperation* operation) {
    StorageTransaction* transaction = operation->transaction;
    FileObject* child = nullptr;
    Status status = OpenChild(operation->parent.object, operation->parent.lastName, &child,
                              kNotPlain, transaction);
    if (status != kOk) return status;
    const bool plain = (child->entry->attributes & kAttrDirectory) != 0 && child->references == 1;
    status = plain ? LoadDirectory(child, transaction) : Status{kNotPlain};
    if (status == kOk && !HoldsFilesAtRest(child)) status = kNotPlain;
    if (status == kOk) status = JoinTransaction(transaction, child);
    if (status == kOk) status = LoadDirectory(child, transaction);
    if (status == kOk) status = FreeFiles(child, transaction);
    if (status == kOk) status = FinishPurge(child, transaction);
    --child->references;
    SettleObject(child);
    return status;
}

}  // namespace

Status DeleteWithFilesAt(StorageContext* context, const WChar* path) {
    if (!context->active) return kNotOpen;
    if (!context->MayChange()) return kNotPlain;
    ParentOperation operation(context);
    Status status = operation.Begin(path, false);
    if (status == kOk) status = DeleteWithFiles(&operation);
    return operation.End(status);
}

Status DeleteAt(StorageContext* context, const WChar* path) {
    if (!context->active) return kNotOpen;
    if (context->readOnly) return kReadOnly;
    ParentOperation operation(context);
    Status status = operation.Begin(path, false);
    if (status == kOk) status = DeleteChild(&operation);
    return operation.End(status);
}

}  // namespace storage
