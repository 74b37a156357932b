// SPDX-License-Identifier: MIT
// Names of directory entries: what may be used, the tails of long names, and renaming.
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/EntryRecords.h"
#include "storage/namespace/Objects.h"

namespace storage {

namespace {

using platform::WStringView;

Status ReadNameTail(FileObject* directory, uint32_t fileId, uint32_t firstPage, WChar* text,
                    uint32_t units, StorageTransaction* transaction) {
    StorageContext* context = directory->context;
    const uint32_t capacity = UnitsPerNamePage(context);
    uint32_t number = firstPage;
    for (uint32_t done = 0; done < units;) {
        if (number == 0) return Corrupt(context);  // it ends too early
        CachePage* page = nullptr;
        const Status status =
            GetPageChecked(context, number, kNamePage, &page, fileId, transaction);
        if (status != kOk) return status;
        const uint32_t count = units - done < capacity ? units - done : capacity;
        std::memcpy(text + done, page->buffer + kPageHeaderSize, count * sizeof(WChar));
        done += count;
        number = HeaderOf(page->buffer)->nextPage;
        ReleasePage(context, page);
    }
    return number == 0 ? kOk : Corrupt(context);  // it goes on too long
}

WChar* CopyName(WStringView name) {
    WChar* text = static_cast<WChar*>(platform::HeapAllocate(name.size() * sizeof(WChar)));
    if (text != nullptr && !name.empty())
        std::memcpy(text, name.data(), name.size() * sizeof(WChar));
    return text;
}

// The chain of NamePages while an old name gives way to a new one.
struct NameChain {
    StorageContext* context;
    StorageTransaction* transaction;
    uint32_t fileId;
    uint32_t entryPage;
    DirectoryEntry* bytes;
    CachePage* last = nullptr;  // pinned: the last page that stays

    ~NameChain() { ReleasePage(context, last); }

    uint32_t Next() const {
        return last == nullptr ? bytes->namePage : HeaderOf(last->buffer)->nextPage;
    }
    Status SetNext(uint32_t number) {
        if (last == nullptr) {
            bytes->namePage = number;
            return kOk;
        }
        const Status status = MarkPageChanged(context, last);
        if (status == kOk) HeaderOf(last->buffer)->nextPage = number;
        return status;
    }
    void Advance(CachePage* page) {
        ReleasePage(context, last);
        last = page;
    }
    Status GetNext(CachePage** page) {
        if (Next() == 0) return Corrupt(context);
        return GetPageChecked(context, Next(), kNamePage, page, fileId, transaction);
    }
    Status Extend(CachePage** page) {
        if (Next() != 0) return Corrupt(context);
        Status status = AllocatePage(context, kNamePage, page, transaction);
        if (status != kOk) return status;
        PageHeader* header = HeaderOf((*page)->buffer);
        header->prevPage = last == nullptr ? entryPage : last->number;
        header->fileId = fileId;
        header->level = last == nullptr ? 0 : HeaderOf(last->buffer)->level + 1;
        status = SetNext((*page)->number);
        if (status != kOk) ReleasePage(context, *page);
        return status;
    }
    Status Write(CachePage* page, WStringView units) {
        const Status status = MarkPageChanged(context, page);
        if (status != kOk) return status;
        std::memset(page->buffer + kPageHeaderSize, 0, context->payloadSize);
        std::memcpy(page->buffer + kPageHeaderSize, units.data(), units.size() * sizeof(WChar));
        return status;
    }
    // Frees the rest of the chain.
    Status Cut() {
        const uint32_t first = Next();
        const Status status = SetNext(0);
        return status == kOk ? FreePageChain(context, first, kNamePage, fileId, transaction)
                             : status;
    }
};

Status WriteNameTail(NameChain* chain, uint32_t oldLength, WStringView name) {
    const uint32_t capacity = UnitsPerNamePage(chain->context);
    for (size_t covered = kEntryNameUnits; covered < name.size(); covered += capacity) {
        CachePage* page = nullptr;
        Status status = oldLength > covered ? chain->GetNext(&page) : chain->Extend(&page);
        if (status == kOk) {
            status = chain->Write(page, name.substr(covered, capacity));
            chain->Advance(page);
        }
        if (status != kOk) return status;
    }
    return chain->Next() == 0 ? kOk : chain->Cut();
}

// The entry on disk gets the name; its tail goes to NamePages.
Status WriteEntryName(FileObject* object, WStringView name, StorageTransaction* transaction) {
    FileObject* directory = object->parent;
    DirEntry* entry = object->entry;
    DirectoryEntry bytes;
    uint32_t entryPage = 0;
    Status status = ReadDirEntry(directory, entry, &bytes, &entryPage, transaction);
    if (status != kOk) return status;
    const size_t first = name.size() < kEntryNameUnits ? name.size() : kEntryNameUnits;
    std::memset(bytes.name, 0, sizeof bytes.name);
    if (first != 0) std::memcpy(bytes.name, name.data(), first * sizeof(WChar));
    NameChain chain{object->context, transaction, object->fileId, entryPage, &bytes};
    status = WriteNameTail(&chain, entry->nameLength, name);
    if (status != kOk) return status;
    bytes.nameLength = static_cast<uint32_t>(name.size());
    return WriteDirEntry(directory, bytes, entry->entry, transaction);
}

// `text` is null for a short name, else its heap copy, owned from here on.
void ReplaceName(DirEntry* entry, WStringView name, WChar* text) {
    SetLongName(entry, nullptr, 0);
    const size_t first = name.size() < kEntryNameUnits ? name.size() : kEntryNameUnits;
    if (first != 0) std::memcpy(entry->shortName, name.data(), first * sizeof(WChar));
    if (text != nullptr) SetLongName(entry, text, static_cast<uint32_t>(name.size()));
    entry->nameUnits = entry->nameLength = static_cast<uint32_t>(name.size());
    entry->flags |= kNameComplete;
}

}  // namespace

bool CheckName(WStringView name) {
    for (const WChar unit : name) {
        if (unit < 32) return false;
        switch (unit) {
            case '/':
            case '\\':
            case '?':
            case '*':
            case ':':
            case '<':
            case '>':
            case '|':
                return false;
            default:
                break;
        }
    }
    return true;
}

Status LoadFullName(FileObject* directory, DirEntry* entry, StorageTransaction* transaction) {
    if ((entry->flags & kNameComplete) != 0) return kOk;
    StorageContext* context = directory->context;
    const uint32_t tail = entry->nameLength - kEntryNameUnits;
    if (tail > uint64_t{context->totalPages} * UnitsPerNamePage(context)) return Corrupt(context);
    DirectoryEntry bytes;
    Status status = ReadDirEntry(directory, entry, &bytes, nullptr, transaction);
    if (status != kOk) return status;
    WChar* text =
        static_cast<WChar*>(platform::HeapAllocate(size_t{entry->nameLength} * sizeof(WChar)));
    if (text == nullptr) return kNoMemory;
    std::memcpy(text, entry->shortName, sizeof entry->shortName);
    status = ReadNameTail(directory, entry->fileId, bytes.namePage, text + kEntryNameUnits, tail,
                          transaction);
    if (status != kOk) {
        platform::HeapRelease(text);
        return status;
    }
    SetLongName(entry, text, entry->nameLength);
    entry->flags |= kNameComplete;
    return kOk;
}

Status SetEntryName(FileObject* object, WStringView name, bool force, bool touch,
                    StorageTransaction* transaction) {
    FileObject* directory = object->parent;
    DirEntry* entry = object->entry;
    if (name.size() > UINT32_MAX / 4) return kNoMemory;
    Status status = LoadFullName(directory, entry, transaction);
    if (status != kOk) return status;
    if (!force && object->context->caseSensitive &&
        WStringView{entry->name, entry->nameUnits} == name)
        return kOk;
    if (touch) status = TouchTimes(object, transaction);
    if (status != kOk) return status;
    if (!directory->children.ReserveOne()) return kNoMemory;
    WChar* text = nullptr;
    if (name.size() > kEntryNameUnits && (text = CopyName(name)) == nullptr) return kNoMemory;
    status = WriteEntryName(object, name, transaction);
    if (status != kOk) {
        platform::HeapRelease(text);
        return status;
    }
    directory->flags |= kDirectoryChanged;
    object->flags |= kObjectNameChanged;
    RemoveEntry(directory, entry);
    ReplaceName(entry, name, text);
    ForgetPath(object);
    return InsertEntry(directory, entry, transaction);
}

}  // namespace storage
