// SPDX-License-Identifier: MIT
#include "storage/namespace/AddEntry.h"

#include "storage/core/Dates.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/EntryRecords.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/Stream.h"

namespace storage {

namespace {

void FillHeaderPage(CachePage* page, uint32_t fileId, uint32_t parentId, uint32_t entryPage) {
    HeaderPageHeader* header = HeaderPageOf(page->buffer);
    header->prevPage = entryPage;
    header->fileId = fileId;
    header->parentId = parentId;
    header->endOffset = kFreshRecordsEnd;
    uint8_t* info = page->buffer + kRecordsStart;
    const double now = CurrentDate();
    Store<uint16_t>(info, record::kType, kFileInfoRecord);
    Store<uint16_t>(info, record::kSize, kFileInfoSize);
    Store(info, record::kCreated, now);
    Store(info, record::kModified, now);
    Store(info, record::kAccessed, now);
}

Status MakeHeaderPage(FileObject* directory, uint32_t fileId, uint32_t entryPage, uint32_t* number,
                      StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    CachePage* page = nullptr;
    const Status status = AllocatePage(context, kHeaderPage, &page, transaction, entryPage);
    if (status != kOk) return status;
    FillHeaderPage(page, fileId, directory->fileId, entryPage);
    *number = page->number;
    ReleasePage(context, page);
    return kOk;
}

// The image in memory of an object that was made in this transaction.
Status MakeObject(FileObject* directory, const DirectoryEntry& bytes, uint32_t number,
                  FileObject** out, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    if (context->objects->fileObjects.Find(bytes.fileId) != nullptr) return Corrupt(context);
    // A directory that grew to here may go on growing.
    DirEntry* entry = NewDirEntry(context->objects, &directory->records,
                                  directory->children.Count() < 64 ? 8 : 64);
    if (entry == nullptr) return kNoMemory;
    entry->fileId = bytes.fileId;
    entry->flags = kNameComplete;
    entry->attributes = bytes.attributes;
    entry->entry = number;
    entry->headerPage = bytes.headerPage;
    FileObject* object = CreateObject(context, directory, entry, bytes.headerPage);
    if (object == nullptr) {
        DestroyDirEntry(entry);
        return kNoMemory;
    }
    object->flags |= kObjectCreated;
    const Status status = JoinTransaction(transaction, object);
    if (status != kOk) {
        entry->flags |= kEntryDetached;
        DestroyObject(object);
        return status;
    }
    *out = object;
    return kOk;
}

Status MakeChild(FileObject* directory, const NewEntry& wanted, FileObject** object,
                 StorageTransaction* transaction) {
    uint32_t number = 0;
    uint32_t entryPage = 0;
    DirectoryEntry bytes{};
    Status status = TakeFreeEntry(directory, &number, &entryPage, transaction);
    if (status == kOk) status = NewFileId(directory->context, &bytes.fileId);
    if (status == kOk)
        status = MakeHeaderPage(directory, bytes.fileId, entryPage, &bytes.headerPage, transaction);
    if (status != kOk) return status;
    bytes.attributes = (directory->entry->attributes & kAttrInherited) | wanted.attributes;
    status = WriteDirEntry(directory, bytes, number, transaction);
    if (status == kOk) status = MakeObject(directory, bytes, number, object, transaction);
    return status;
}

// Block settings are all that a child inherits. That it could not get them is no error.
void CopyBlockSettings(FileObject* directory, FileObject* object, StorageTransaction* transaction) {
    RecordPlace place;
    if (FindRecord(directory, kBlockSettingsRecord, &place, false, transaction) != kOk ||
        place.page == nullptr)
        return;
    if (place.Link() == 0)
        AddRecord(object, kBlockSettingsRecord, place.Payload(), place.PayloadSize(), nullptr,
                  transaction);
    // They are to be read again, but not by who has blocks of the old form. Those are plain, one
    // page each: a stream of them can be read by any settings.
    if (object->handles.Empty()) DropStreamState(object);
    ReleasePage(directory->context, place.page);
}

Status FindPlace(FileObject* directory, const NewEntry& wanted, FileObject** existing,
                 StorageTransaction* transaction) {
    Status status = OpenChild(directory, wanted.name, existing, kOk, transaction);
    if (status != kOk) return status;
    if (*existing != nullptr && !wanted.openIfExists) {
        --(*existing)->references;
        SettleObject(*existing);
        *existing = nullptr;
        return kExists;
    }
    return *existing == nullptr && !directory->context->MayChange() ? kReadOnly : kOk;
}

// The pages that name the object's EntryPage or directory.
Status RepointObject(FileObject* object, uint32_t parentId, uint32_t entryPage, uint32_t namePage,
                     StorageTransaction* transaction) {
    StorageContext* context = object->context;
    CachePage* page = nullptr;
    Status status = GetPageChecked(context, object->headerPage, kHeaderPage, &page, object->fileId,
                                   transaction);
    if (status != kOk) return status;
    status = MarkPageChanged(context, page);
    if (status == kOk) {
        HeaderPageOf(page->buffer)->prevPage = entryPage;
        HeaderPageOf(page->buffer)->parentId = parentId;
    }
    ReleasePage(context, page);
    if (status != kOk || namePage == 0) return status;
    status = GetPageChecked(context, namePage, kNamePage, &page, object->fileId, transaction);
    if (status != kOk) return status;
    status = MarkPageChanged(context, page);
    if (status == kOk) HeaderOf(page->buffer)->prevPage = entryPage;
    ReleasePage(context, page);
    return status;
}

}  // namespace

// The id reaches the disk with page 1, which a commit writes before anything that bears it. After a
// roll back it is skipped: no id is handed out twice.
Status NewFileId(StorageContext* context, uint32_t* id) {
    Superblock* superblock = context->Super();
    if (superblock->lastFileId == UINT32_MAX) return kFull;
    *id = ++superblock->lastFileId;
    return kOk;
}

Status AddDirEntry(FileObject* directory, const NewEntry& wanted, FileObject** out, bool* created,
                   StorageTransaction* transaction) {
    *out = nullptr;
    *created = false;
    Status status = FindPlace(directory, wanted, out, transaction);
    if (status != kOk || *out != nullptr) return status;
    FileObject* object = nullptr;
    status = MakeChild(directory, wanted, &object, transaction);
    if (status == kOk) status = SetEntryName(object, wanted.name, true, false, transaction);
    if (status != kOk) return status;
    CopyBlockSettings(directory, object, transaction);
    if (wanted.touch) status = TouchTimes(directory, transaction);
    if (status != kOk) return status;
    *created = true;
    *out = object;
    return kOk;
}

Status AddMovedEntry(FileObject* directory, const NewEntry& wanted, FileObject* object,
                     DirectoryEntry carried, StorageTransaction* transaction) {
    FileObject* existing = nullptr;
    Status status = FindPlace(directory, wanted, &existing, transaction);
    uint32_t number = 0;
    uint32_t entryPage = 0;
    if (status == kOk) status = TakeFreeEntry(directory, &number, &entryPage, transaction);
    if (status == kOk)
        status = RepointObject(object, directory->fileId, entryPage, carried.namePage, transaction);
    if (status != kOk) return status;
    carried.attributes = (directory->entry->attributes & kAttrInherited) | wanted.attributes;
    status = WriteDirEntry(directory, carried, number, transaction);
    if (status != kOk) return status;
    object->parent = directory;
    object->depth = directory->depth + 1;
    object->entry->entry = number;
    object->entry->attributes = carried.attributes;
    status = SetEntryName(object, wanted.name, true, wanted.touch, transaction);
    if (status == kOk) CopyBlockSettings(directory, object, transaction);
    return status;
}

}  // namespace storage
