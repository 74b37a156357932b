// SPDX-License-Identifier: MIT
#include "storage/namespace/Directory.h"

#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/EntryRecords.h"
#include "storage/namespace/Membership.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Records.h"

namespace storage {

namespace {

void FillEntry(DirEntry* entry, const DirectoryEntry& bytes, uint32_t number) {
    SetLongName(entry, nullptr, 0);
    entry->nameLength = bytes.nameLength;
    entry->nameUnits = bytes.nameLength < kEntryNameUnits ? bytes.nameLength : kEntryNameUnits;
    std::memcpy(entry->shortName, bytes.name, sizeof bytes.name);
    entry->fileId = bytes.fileId;
    entry->flags = bytes.nameLength <= kEntryNameUnits ? uint32_t{kNameComplete} : 0;
    entry->attributes = bytes.attributes;
    entry->entry = number;
    entry->headerPage = bytes.headerPage;
}

// The record of an object that outlived the list is taken up again.
DirEntry* AdoptOrphan(FileObject* directory, const DirectoryEntry& bytes) {
    if (directory->orphans.Empty()) return nullptr;
    FileObject* live = directory->context->objects->fileObjects.Find(bytes.fileId);
    if (live == nullptr || live->parent != directory || live->headerPage != bytes.headerPage ||
        (live->entry->flags & kEntryDetached) == 0)
        return nullptr;
    RemoveOrphan(live);
    return live->entry;
}

Status LoadEntry(FileObject* directory, const DirectoryEntry& bytes, uint32_t number,
                 uint32_t expected) {
    if (bytes.fileId == 0) return directory->freeEntries.Add(number) ? kOk : kNoMemory;
    if (bytes.headerPage == 0) return Corrupt(directory->context);
    if (!directory->children.ReserveOne()) return kNoMemory;
    DirEntry* entry = AdoptOrphan(directory, bytes);
    if (entry == nullptr)
        entry = NewDirEntry(directory->context->objects, &directory->records, expected);
    if (entry == nullptr) return kNoMemory;
    FillEntry(entry, bytes, number);
    entry->flags |= kEntryListed;
    directory->children.Add(entry);
    return kOk;
}

Status LoadEntries(FileObject* directory, const uint8_t* bytes, uint32_t count, uint32_t first) {
    uint32_t used = 0;
    for (uint32_t i = 0; i < count; ++i)
        if (LoadU32(bytes, i * kEntrySize + offsetof(DirectoryEntry, fileId)) != 0) ++used;
    for (uint32_t i = 0; i < count; ++i) {
        const Status status =
            LoadEntry(directory, Load<DirectoryEntry>(bytes, i * kEntrySize), first + i, used);
        if (status != kOk) return status;
    }
    return kOk;
}

Status LoadEntryPages(FileObject* directory, uint32_t link, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    const uint32_t count = EntriesPerPage(context);
    for (uint32_t number = link; number != 0;) {
        const uint32_t place = directory->directoryPages.Count();
        if (place >= context->totalPages) return Corrupt(context);
        CachePage* page = nullptr;
        Status status =
            GetPageChecked(context, number, kEntryPage, &page, directory->fileId, transaction);
        if (status != kOk) return status;
        status = directory->directoryPages.Add(number) ? kOk : kNoMemory;
        if (status == kOk)
            status = LoadEntries(directory, page->buffer + kPageHeaderSize, count, place * count);
        number = HeaderOf(page->buffer)->nextPage;
        ReleasePage(context, page);
        if (status != kOk) return status;
    }
    return kOk;
}

// The page names the page that holds the reference to it. A page that is not what the entry says
// is left to those who will need it.
Status RepointPage(StorageContext* context, uint32_t number, uint16_t kind, uint32_t fileId,
                   uint32_t prevPage, StorageTransaction* transaction) {
    CachePage* page = nullptr;
    Status status = GetPageChecked(context, number, kind, &page, fileId, transaction);
    if (status == kCorrupt) return kOk;
    if (status != kOk) return status;
    if (HeaderOf(page->buffer)->prevPage != prevPage) {
        status = MarkPageChanged(context, page);
        if (status == kOk) HeaderOf(page->buffer)->prevPage = prevPage;
    }
    ReleasePage(context, page);
    return status;
}

Status RepointChildren(StorageContext* context, CachePage* entryPage, uint32_t count,
                       StorageTransaction* transaction) {
    for (uint32_t i = 0; i < count; ++i) {
        const auto bytes =
            Load<DirectoryEntry>(entryPage->buffer + kPageHeaderSize, i * kEntrySize);
        if (bytes.fileId == 0) continue;
        Status status = RepointPage(context, bytes.headerPage, kHeaderPage, bytes.fileId,
                                    entryPage->number, transaction);
        if (status == kOk && bytes.nameLength > kEntryNameUnits && bytes.namePage != 0)
            status = RepointPage(context, bytes.namePage, kNamePage, bytes.fileId,
                                 entryPage->number, transaction);
        if (status != kOk) return status;
    }
    return kOk;
}

// *page is where they are then, 0 when the record has none; *count tells how many.
Status SpillEntries(FileObject* directory, uint32_t* page, uint32_t* count,
                    StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    *page = *count = 0;
    RecordPlace place;
    Status status = FindRecord(directory, kDirectoryRecord, &place, false, transaction);
    if (status != kOk || place.page == nullptr) return status;
    *count = place.Link() == 0 ? place.PayloadSize() / kEntrySize : 0;
    CachePage* entryPage = nullptr;
    if (*count != 0) status = SpillRecord(directory, place, &entryPage, transaction);
    if (status == kOk && entryPage != nullptr) {
        *page = entryPage->number;
        // A payload may end in a part of an entry.
        const uint32_t used = kPageHeaderSize + *count * kEntrySize;
        std::memset(entryPage->buffer + used, 0, context->pageSize - used);
        status = RepointChildren(context, entryPage, *count, transaction);
    }
    ReleasePage(context, entryPage);
    ReleasePage(context, place.page);
    return status;
}

// In a batch it is done with the batch, and stays when the operation that needs it fails.
Status SpillInBatch(FileObject* directory, uint32_t* page, uint32_t* count,
                    StorageTransaction* batch) {
    const uint32_t before = directory->context->changes;
    Status status = JoinTransaction(batch, directory);
    directory->flags |= kDirectoryChanged;
    if (status == kOk) status = SpillEntries(directory, page, count, batch);
    const uint32_t changes = directory->context->changes - before;
    if (status == kOk)
        batch->changesBefore += changes;
    else if (changes != 0 && batch->failure == kOk)
        batch->failure = status;
    return status;
}

// Entries that stand in the record itself, as older containers have them, get a page.
Status SpillInlineEntries(FileObject* directory) {
    StorageContext* context = directory->context;
    uint32_t page = 0, count = 0;
    if (context->batch != nullptr) return SpillInBatch(directory, &page, &count, context->batch);
    StorageTransaction* transaction = nullptr;
    Status status = BeginTransaction(context, &transaction, TransactionMode::Write);
    if (status != kOk) return status;
    status = SpillEntries(directory, &page, &count, transaction);
    if (status == kOk) return CommitTransaction(context, transaction);
    RollbackTransaction(context, transaction);
    return status;
}

// The same for a directory that was loaded before anything could be written and is now to change.
// Its entries keep their numbers.
Status SpillLoadedEntries(FileObject* directory, StorageTransaction* transaction) {
    const uint32_t all = EntriesPerPage(directory->context);
    if (!directory->directoryPages.Reserve(1) || !directory->freeEntries.Reserve(all))
        return kNoMemory;
    uint32_t page = 0, count = 0;
    directory->flags |= kDirectoryChanged;
    const Status status = transaction == directory->context->batch
                              ? SpillInBatch(directory, &page, &count, transaction)
                              : SpillEntries(directory, &page, &count, transaction);
    if (status != kOk || page == 0) return status;
    directory->directoryPages.Add(page);
    while (count < all) directory->freeEntries.Add(count++);
    return kOk;
}

Status LoadFromRecord(FileObject* directory, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    RecordPlace place;
    Status status = FindRecord(directory, kDirectoryRecord, &place, false, transaction);
    if (status != kOk || place.page == nullptr) return status;
    uint32_t link = place.Link();
    const uint32_t inlineEntries = link == 0 ? place.PayloadSize() / kEntrySize : 0;
    // They are read where they stand unless something may be written.
    const bool spills = context->MayChange() && context->IsLocked();
    if (inlineEntries != 0 && !spills) {
        status = LoadEntries(directory, place.Payload(), inlineEntries, 0);
        context->inlineEntries = true;
    }
    ReleasePage(context, place.page);
    if (inlineEntries != 0 && spills) {
        status = SpillInlineEntries(directory);
        if (status == kOk)
            status = FindRecord(directory, kDirectoryRecord, &place, true, transaction);
        if (status != kOk) return status;
        link = place.Link();
        ReleasePage(context, place.page);
    }
    return status == kOk ? LoadEntryPages(directory, link, transaction) : status;
}

// Objects whose entries are gone from the disk live on only while somebody uses them.
void DropLostOrphans(FileObject* directory) {
    if (directory->orphans.Empty() || HasMembers(directory->context)) return;
    for (FileObject* orphan = directory->orphans.head; orphan != nullptr;) {
        FileObject* next = orphan->orphanNext;
        if (orphan->references == 0) DestroyObject(orphan);
        orphan = next;
    }
}

Status ReadInlineEntry(FileObject* directory, uint32_t entry, DirectoryEntry* bytes,
                       StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    RecordPlace place;
    Status status = FindRecord(directory, kDirectoryRecord, &place, true, transaction);
    if (status != kOk) return status;
    if (place.Link() != 0 || entry >= place.PayloadSize() / kEntrySize)
        status = Corrupt(context);
    else if (bytes != nullptr)
        *bytes = Load<DirectoryEntry>(place.Payload(), entry * kEntrySize);
    ReleasePage(context, place.page);
    return status;
}

Status GetEntryPage(FileObject* directory, uint32_t entry, CachePage** page,
                    StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    const uint32_t place = entry / EntriesPerPage(context);
    if (place >= directory->directoryPages.Count()) return Corrupt(context);
    return GetPageChecked(context, directory->directoryPages[place], kEntryPage, page,
                          directory->fileId, transaction);
}

uint32_t EntryOffset(const StorageContext* context, uint32_t entry) {
    return kPageHeaderSize + entry % EntriesPerPage(context) * kEntrySize;
}

// The directory's first EntryPage: what its record spills to.
Status MakeFirstEntryPage(FileObject* directory, CachePage** page,
                          StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    RecordPlace place;
    Status status = FindRecord(directory, kDirectoryRecord, &place, false, transaction);
    if (status == kOk && place.page == nullptr)
        status = AddRecord(directory, kDirectoryRecord, nullptr, 0, &place, transaction);
    if (status != kOk) return status;
    status = SpillRecord(directory, place, page, transaction);
    if (status == kOk && *page == nullptr) status = Corrupt(context);
    ReleasePage(context, place.page);
    return status;
}

Status MakeNextEntryPage(FileObject* directory, CachePage** out, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    const uint32_t count = directory->directoryPages.Count();
    CachePage* last = nullptr;
    Status status = GetPageChecked(context, directory->directoryPages[count - 1], kEntryPage, &last,
                                   directory->fileId, transaction);
    if (status != kOk) return status;
    CachePage* page = nullptr;
    status = MarkPageChanged(context, last);
    if (status == kOk) status = AllocatePage(context, kEntryPage, &page, transaction);
    if (status == kOk) {
        PageHeader* header = HeaderOf(page->buffer);
        header->prevPage = last->number;
        header->fileId = directory->fileId;
        header->level = count;
        header->recordType = kDirectoryRecord;
        HeaderOf(last->buffer)->nextPage = page->number;
        *out = page;
    }
    ReleasePage(context, last);
    return status;
}

Status AddEntryPage(FileObject* directory, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    const uint32_t pages = directory->directoryPages.Count();
    const uint32_t entries = EntriesPerPage(context);
    if (!directory->directoryPages.Reserve(pages + 1) || !directory->freeEntries.Reserve(entries))
        return kNoMemory;
    CachePage* page = nullptr;
    const Status status = pages == 0 ? MakeFirstEntryPage(directory, &page, transaction)
                                     : MakeNextEntryPage(directory, &page, transaction);
    if (status != kOk) return status;
    directory->directoryPages.Add(page->number);
    for (uint32_t i = 0; i < entries; ++i) directory->freeEntries.Add(pages * entries + i);
    ReleasePage(context, page);
    return kOk;
}

}  // namespace

Status MoveEntriesOut(FileObject* directory, StorageTransaction* transaction) {
    if ((directory->flags & kEntriesLoaded) != 0) return SpillLoadedEntries(directory, transaction);
    uint32_t page = 0, count = 0;
    directory->flags |= kDirectoryChanged;
    return SpillEntries(directory, &page, &count, transaction);
}

bool HasInlineEntries(const FileObject* directory) {
    return directory->context->inlineEntries && directory->directoryPages.Empty();
}

Status LoadDirectory(FileObject* directory, StorageTransaction* transaction) {
    if ((directory->flags & kEntriesLoaded) != 0) {
        const bool changes = transaction != nullptr && directory->transaction == transaction &&
                             directory->context->MayChange();
        return changes && HasInlineEntries(directory) ? SpillLoadedEntries(directory, transaction)
                                                      : kOk;
    }
    const Status status = LoadFromRecord(directory, transaction);
    if (status != kOk) {
        DropEntries(directory);
        return status;
    }
    DropLostOrphans(directory);
    SortEntries(directory);
    directory->flags |= kEntriesLoaded;
    return kOk;
}

Status ReadDirEntry(FileObject* directory, const DirEntry* entry, DirectoryEntry* bytes,
                    uint32_t* pageNumber, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    if (pageNumber != nullptr) *pageNumber = 0;
    if (directory->directoryPages.Empty())
        return ReadInlineEntry(directory, entry->entry, bytes, transaction);
    CachePage* page = nullptr;
    const Status status = GetEntryPage(directory, entry->entry, &page, transaction);
    if (status != kOk) return status;
    if (bytes != nullptr)
        *bytes = Load<DirectoryEntry>(page->buffer, EntryOffset(context, entry->entry));
    if (pageNumber != nullptr) *pageNumber = page->number;
    ReleasePage(context, page);
    return kOk;
}

Status WriteDirEntry(FileObject* directory, const DirectoryEntry& bytes, uint32_t entry,
                     StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    const bool frees = bytes.fileId == 0;
    if (frees && !directory->freeEntries.Reserve(directory->freeEntries.Count() + 1))
        return kNoMemory;
    CachePage* page = nullptr;
    Status status = GetEntryPage(directory, entry, &page, transaction);
    if (status != kOk) return status;
    status = MarkPageChanged(context, page);
    if (status == kOk) {
        Store(page->buffer, EntryOffset(context, entry), bytes);
        directory->flags |= kDirectoryChanged;
        if (frees) directory->freeEntries.Add(entry);
    }
    ReleasePage(context, page);
    return status;
}

Status TakeFreeEntry(FileObject* directory, uint32_t* entry, uint32_t* page,
                     StorageTransaction* transaction) {
    directory->flags |= kDirectoryChanged;
    if (directory->freeEntries.Empty()) {
        const Status status = AddEntryPage(directory, transaction);
        if (status != kOk) return status;
    }
    *entry = directory->freeEntries[0];
    const uint32_t place = *entry / EntriesPerPage(directory->context);
    if (place >= directory->directoryPages.Count()) return Corrupt(directory->context);
    *page = directory->directoryPages[place];
    directory->freeEntries.RemoveAt(0);
    return kOk;
}

Status OpenEntry(FileObject* directory, DirEntry* entry, FileObject** object) {
    *object = entry->object;
    if (*object != nullptr) {
        AddReference(*object);
        LeaveIdle(*object);
        return kOk;
    }
    StorageContext* context = directory->context;
    // Two entries that share an id, or one that leads back up the tree.
    if (context->objects->fileObjects.Find(entry->fileId) != nullptr) return Corrupt(context);
    *object = CreateObject(context, directory, entry, entry->headerPage);
    return *object != nullptr ? kOk : kNoMemory;
}

namespace {

// The child waits, with its record, for the list that may be filled later.
Status OpenGlanced(FileObject* directory, const DirectoryEntry& bytes, uint32_t number,
                   FileObject** object) {
    DirEntry* entry = AdoptOrphan(directory, bytes);
    const bool isNew = entry == nullptr;
    if (isNew) entry = NewDirEntry(directory->context->objects, nullptr, 1);
    if (entry == nullptr) return kNoMemory;
    FillEntry(entry, bytes, number);
    const Status status = OpenEntry(directory, entry, object);
    if (status == kOk)
        AddOrphan(directory, *object);
    else if (isNew)
        DestroyDirEntry(entry);
    return status;
}

}  // namespace

Status OpenChild(FileObject* directory, platform::WStringView name, FileObject** object,
                 Status codeWhenAbsent, StorageTransaction* transaction) {
    *object = nullptr;
    DirectoryEntry bytes;
    uint32_t number = 0;
    // Who goes on in a transaction, or holds the child open, will want the list.
    if (transaction == nullptr && (directory->flags & kEntriesLoaded) == 0 &&
        GlanceAt(directory, name, &bytes, &number))
        return OpenGlanced(directory, bytes, number, object);
    Status status = LoadDirectory(directory, transaction);
    bool found = false;
    uint32_t position = 0;
    if (status == kOk) status = FindEntry(directory, name, &found, &position, transaction);
    if (status != kOk) return status;
    return found ? OpenEntry(directory, directory->children[position], object) : codeWhenAbsent;
}

}  // namespace storage
