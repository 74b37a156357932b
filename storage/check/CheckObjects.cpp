// SPDX-License-Identifier: MIT
// Second pass: from the root to everything it reaches. A reference is good when the page it leads
// to is of the right kind and owner, says that it is referred to from there, and was not reached
// before; so that each page in use is claimed once, and loops are never entered.
#include "storage/check/CheckRecords.h"
#include "storage/check/CheckRun.h"
#include "storage/core/Dates.h"

namespace storage {

namespace {

constexpr uint32_t kSettingsPagesPerBlock = 20;
constexpr uint32_t kSettingsSize = 22;

void SetField(CheckRun* run, uint32_t page, uint32_t* field, uint32_t value) {
    if (*field == value) return;
    *field = value;
    NoteChange(run, page);
    TellBadLink(run, page);
}

// One object while its HeaderPages are walked.
struct ObjectWalk {
    CheckRun* run;
    ItemList<CheckItem>* work;
    uint16_t streamType;
    uint32_t fileId;
    uint32_t firstPage;
    bool hasSettings = false;
    bool outOfMemory = false;
    CheckStream stream = {};

    Status WalkPage(uint32_t page);
    void MendArea(uint32_t page, bool* changed);
    void EnsureFileInfo(uint32_t page, bool* changed);
    bool RecordIsGood(uint32_t page, uint8_t* record, bool* changed);
    bool LinkIsGood(uint32_t page, const uint8_t* record);
    Status WalkEntryPages();
    Status DropIndexRecord();

    NumberList entryChains = {};
    CheckNames names = {};
};

uint8_t* Buffer(const ObjectWalk* walk) {
    return walk->run->header;
}
HeaderPageHeader* Header(const ObjectWalk* walk) {
    return HeaderPageOf(Buffer(walk));
}

void PutFileInfo(uint8_t* at) {
    std::memset(at, 0, kFileInfoSize);
    Store<uint16_t>(at, record::kSize, kFileInfoSize);
    const double now = CurrentDate();
    for (const uint32_t offset : {record::kCreated, record::kModified, record::kAccessed})
        Store(at, offset, now);
}

void RemoveBytes(uint8_t* page, uint32_t at, uint32_t count) {
    HeaderPageHeader* header = HeaderPageOf(page);
    std::memmove(page + at, page + at + count, header->endOffset - at - count);
    header->endOffset = static_cast<uint16_t>(header->endOffset - count);
    std::memset(page + header->endOffset, 0, count);
}

// Makes the record area one that can be walked from end to end.
void ObjectWalk::MendArea(uint32_t page, bool* changed) {
    HeaderPageHeader* header = Header(this);
    const uint32_t pageSize = run->context->pageSize;
    uint8_t* first = Buffer(this) + kRecordsStart;
    if (page == firstPage && header->endOffset >= kFreshRecordsEnd &&
        header->endOffset <= pageSize) {
        // The first record is known beforehand: one damaged field of it is put right.
        const bool type = LoadU16(first, record::kType) == kFileInfoRecord;
        const bool size = LoadU16(first, record::kSize) == kFileInfoSize;
        if (type != size) {
            Store<uint16_t>(first, record::kType, kFileInfoRecord);
            Store<uint16_t>(first, record::kSize, kFileInfoSize);
            *changed = true;
            TellBadLink(run, page);
        }
    }
    if (header->endOffset < kRecordsStart || header->endOffset > pageSize) {
        std::memset(Buffer(this) + kRecordsStart, 0, pageSize - kRecordsStart);
        header->endOffset = kRecordsStart;
    } else {
        if (MendRecordSizes(Buffer(this))) {
            *changed = true;
            TellBadLink(run, page);
        }
        const uint32_t end = WalkableEnd(Buffer(this), header->endOffset);
        if (end == header->endOffset) return;
        header->endOffset = static_cast<uint16_t>(end);
    }
    *changed = true;
    TellBadLink(run, page);
}

// An object has its file information in front; without one a new one is made, in place of all
// the records if there is no room beside them.
void ObjectWalk::EnsureFileInfo(uint32_t page, bool* changed) {
    HeaderPageHeader* header = Header(this);
    uint8_t* first = Buffer(this) + kRecordsStart;
    const bool none = header->endOffset == kRecordsStart;
    if (!none && LoadU16(first, record::kType) == kFileInfoRecord &&
        LoadU16(first, record::kSize) >= kFileInfoSize)
        return;
    if (!none && LoadU16(first, record::kType) == kFileInfoRecord)
        RemoveBytes(Buffer(this), kRecordsStart, LoadU16(first, record::kSize));
    uint32_t used = header->endOffset - kRecordsStart;
    if (header->endOffset + kFileInfoSize > run->context->pageSize) used = 0;
    std::memmove(first + kFileInfoSize, first, used);
    PutFileInfo(first);
    header->endOffset = static_cast<uint16_t>(kFreshRecordsEnd + used);
    *changed = true;
    TellBadLink(run, page);
}

bool ObjectWalk::LinkIsGood(uint32_t page, const uint8_t* record) {
    const uint16_t type = LoadU16(record, record::kType);
    const uint32_t link = LoadU32(record, record::kLink);
    const uint16_t kind = static_cast<uint16_t>(type + kRecordKindBase);
    if (type == kPageListRecord) {
        // Claimed when the stream has been seen; before that it must only be possible.
        if (stream.index != 0 || streamType == kRootDataRecord ||
            !CanClaim(run, link, page, kPageListPage, fileId))
            return false;
        stream.index = link;
        stream.indexOwner = page;
        return true;
    }
    if (!IsObjectPage(kind) || kind == kHeaderPage || !TryClaim(run, link, page, kind, fileId))
        return false;
    if (type == streamType && stream.first == 0 && stream.inlinePage == 0) {
        // Its index decides about listPage.
        Claim(run, link, run->digests[link].listPage);
        stream.first = link;
        stream.kind = kind;
        return true;
    }
    Claim(run, link, 0);
    ClaimChain(run, link, nullptr, nullptr);
    if (type == kDirectoryRecord && !entryChains.Add(link)) outOfMemory = true;
    return true;
}

bool ObjectWalk::RecordIsGood(uint32_t page, uint8_t* record, bool* changed) {
    const uint16_t type = LoadU16(record, record::kType);
    const uint32_t link = LoadU32(record, record::kLink);
    if (type == kBlockSettingsRecord && !hasSettings) {
        const uint32_t size = LoadU16(record, record::kSize);
        if (size < kSettingsSize || LoadU16(record, kSettingsPagesPerBlock) == 0) return false;
        hasSettings = true;
        if (streamType != kRootDataRecord) {
            stream.method = LoadU32(record, record::kPayload);
            stream.pagesPerBlock = LoadU16(record, kSettingsPagesPerBlock);
        }
    }
    if (link == 0 && type == streamType && stream.inlinePage == 0 && stream.first == 0) {
        stream.inlinePage = page;
        stream.inlineSize = LoadU16(record, record::kSize) - kRecordHeaderSize;
        stream.inlineInfo = LoadU32(record, record::kInfo);
    }
    if (link == 0) return type != kPageListRecord;
    if (type != kFileInfoRecord && type != kBlockSettingsRecord && type != kFindSettingsRecord)
        return LinkIsGood(page, record);
    // These never refer to a page.
    Store<uint32_t>(record, record::kLink, 0);
    *changed = true;
    TellBadLink(run, page);
    return true;
}

Status ObjectWalk::WalkPage(uint32_t page) {
    Status status = LoadChecked(run, page, Buffer(this));
    if (status != kOk) return status;
    bool changed = (run->marks[page] & kMarkChanged) != 0;
    MendArea(page, &changed);
    if (page == firstPage) EnsureFileInfo(page, &changed);
    for (uint32_t at = kRecordsStart; status == kOk && at < Header(this)->endOffset;) {
        uint8_t* record = Buffer(this) + at;
        const uint32_t size = LoadU16(record, record::kSize);
        if (!RecordIsGood(page, record, &changed)) {
            RemoveBytes(Buffer(this), at, size);
            changed = true;
            TellBadLink(run, page);
            continue;
        }
        if (LoadU16(record, record::kType) == kDirectoryRecord &&
            LoadU32(record, record::kLink) == 0) {
            // Counted by the record's size, as all who read them do; its info says the same or
            // nothing.
            const EntryPlace place{page, Buffer(this), at + record::kPayload,
                                   (size - kRecordHeaderSize) / kEntrySize, fileId};
            status = CheckEntries(run, place, work, &names, &changed);
        }
        at += size;
    }
    if (status == kOk && outOfMemory) status = kNoMemory;
    if (status != kOk || !changed) return status;
    return StoreChecked(run, page, Buffer(this));
}

Status ObjectWalk::WalkEntryPages() {
    for (const uint32_t chain : entryChains) {
        const uint32_t count = run->context->payloadSize / kEntrySize;
        for (uint32_t page = chain; page != 0; page = run->digests[page].nextPage) {
            Status status = LoadChecked(run, page, Buffer(this));
            bool changed = false;
            if (status == kOk)
                status = CheckEntries(run, {page, Buffer(this), kPageHeaderSize, count, fileId},
                                      work, &names, &changed);
            if (status == kOk && changed) status = StoreChecked(run, page, Buffer(this));
            if (status != kOk) return status;
        }
    }
    return kOk;
}

Status ObjectWalk::DropIndexRecord() {
    Status status = LoadChecked(run, stream.indexOwner, Buffer(this));
    if (status != kOk) return status;
    for (uint32_t at = kRecordsStart; at < Header(this)->endOffset;) {
        const uint32_t size = LoadU16(Buffer(this), at + record::kSize);
        if (size < kRecordHeaderSize) break;
        if (LoadU16(Buffer(this), at) == kPageListRecord) {
            RemoveBytes(Buffer(this), at, size);
            break;
        }
        at += size;
    }
    return StoreChecked(run, stream.indexOwner, Buffer(this));
}

Status WalkObject(CheckRun* run, const CheckItem& item, ItemList<CheckItem>* work) {
    ObjectWalk walk{run, work, item.streamType, run->digests[item.headerPage].fileId,
                    item.headerPage};
    if (walk.fileId > run->maxId) run->maxId = walk.fileId;
    if (!run->objects.Add(item.headerPage)) return kNoMemory;
    ClaimChain(run, item.headerPage, nullptr, nullptr);
    Status status = kOk;
    for (uint32_t page = item.headerPage; status == kOk && page != 0;
         page = run->digests[page].nextPage)
        status = walk.WalkPage(page);
    if (status == kOk) status = walk.WalkEntryPages();
    if (status == kOk) status = CheckDirectoryNames(run, &walk.names);
    bool indexIsGood = true;
    if (status == kOk) status = CheckStreamPages(run, &walk.stream, &indexIsGood);
    if (status == kOk) status = CheckStreamSize(run, item.headerPage, walk.stream, item.isValue);
    return status == kOk && !indexIsGood ? walk.DropIndexRecord() : status;
}

bool RootIsGood(const CheckRun* run, const DirectoryEntry& root) {
    return CanClaim(run, root.headerPage, kSuperblockNumber, kHeaderPage, root.fileId);
}

// The root is page 2 and has id 1, whatever page 1 and page 2 say: where one of them is damaged,
// the other and the records tell that it is there. A page that is of no use to tell is left alone.
Status MendRoot(CheckRun* run, DirectoryEntry* root) {
    PageDigest& digest = run->digests[kRootHeaderNumber];
    const Status status = LoadChecked(run, kRootHeaderNumber, run->header);
    if (status != kOk) return status;
    const uint8_t* first = run->header + kRecordsStart;
    const bool ownNumbers = digest.pageNumber == kRootHeaderNumber || digest.fileId == kRootFileId;
    const bool hasRecords = LoadU16(first, record::kType) == kFileInfoRecord &&
                            LoadU16(first, record::kSize) == kFileInfoSize;
    const bool isHeader = digest.kind == kHeaderPage;
    if (!ownNumbers || !(hasRecords || isHeader)) return kNotContainer;
    root->headerPage = kRootHeaderNumber;
    root->fileId = kRootFileId;
    const PageDigest before = digest;
    digest.kind = kHeaderPage;
    digest.pageNumber = kRootHeaderNumber;
    digest.prevPage = kSuperblockNumber;
    digest.fileId = kRootFileId;
    if (std::memcmp(&before, &digest, sizeof digest) != 0) {
        NoteChange(run, kRootHeaderNumber);
        TellBadLink(run, kRootHeaderNumber);
    }
    return kOk;
}

Status CheckRoot(CheckRun* run, ItemList<CheckItem>* work) {
    DirectoryEntry* root = &run->context->Super()->rootEntry;
    const DirectoryEntry before = *root;
    run->marks[kSuperblockNumber] |= kMarkInUse;
    run->maxId = kRootFileId;
    if (root->fileId == 0) root->fileId = kRootFileId;
    root->nameLength = root->namePage = 0;
    std::memset(root->name, 0, sizeof root->name);
    Status status = kOk;
    if (!RootIsGood(run, *root)) status = MendRoot(run, root);
    if (status != kOk || std::memcmp(&before, root, sizeof before) != 0) {
        TellBadEntry(run, kSuperblockNumber, before);
        NoteChange(run, kSuperblockNumber);
    }
    if (status != kOk) return status;
    PageDigest& digest = run->digests[root->headerPage];
    SetField(run, root->headerPage, &digest.prevPage, kSuperblockNumber);
    SetField(run, root->headerPage, &digest.level, 0);
    SetField(run, root->headerPage, &digest.parentId, 0);
    Claim(run, root->headerPage, 0);
    return work->Add(CheckItem{root->headerPage, kRootDataRecord, false}) ? kOk : kNoMemory;
}

}  // namespace

bool CanClaim(const CheckRun* run, uint32_t page, uint32_t from, uint16_t kind, uint32_t fileId) {
    if (page <= kSuperblockNumber || page >= run->pages || run->context->IsMapPage(page))
        return false;
    const PageDigest& digest = run->digests[page];
    const bool refersBack =
        digest.prevPage == from || (page == kRootHeaderNumber && from == kSuperblockNumber);
    return digest.pageNumber == page && digest.kind == kind && digest.fileId == fileId &&
           refersBack && (run->marks[page] & kMarkInUse) == 0;
}

bool TryClaim(CheckRun* run, uint32_t page, uint32_t from, uint16_t kind, uint32_t fileId) {
    if (CanClaim(run, page, from, kind, fileId)) return true;
    // Two references to it in one page: its link back is not good for both.
    if (page > kSuperblockNumber && page < run->pages && run->digests[page].prevPage == from &&
        (run->marks[page] & kMarkInUse) != 0)
        TellBadLink(run, page);
    return false;
}

void Claim(CheckRun* run, uint32_t page, uint32_t listPage) {
    run->marks[page] |= kMarkInUse;
    SetField(run, page, &run->digests[page].listPage, listPage);
    Tell(run, kCheckLinks, ++run->walked, run->pages);
}

void ClaimChain(CheckRun* run, uint32_t first, uint32_t* count, uint32_t* last) {
    uint32_t pages = 1, page = first;
    for (;;) {
        PageDigest& digest = run->digests[page];
        const uint32_t next = digest.nextPage;
        if (next == 0) break;
        if (!TryClaim(run, next, page, digest.kind, digest.fileId)) {
            SetField(run, page, &digest.nextPage, 0);
            break;
        }
        Claim(run, next, 0);
        page = next;
        ++pages;
    }
    if (count != nullptr) *count = pages;
    if (last != nullptr) *last = page;
}

Status CheckObjects(CheckRun* run) {
    ItemList<CheckItem> work;
    Status status = CheckRoot(run, &work);
    if (status == kOk) status = LookForStore(run);
    while (status == kOk && !work.Empty()) {
        if (run->cancelled) return kCancelled;
        const CheckItem item = work.Last();
        work.Truncate(work.Count() - 1);
        status = WalkObject(run, item, &work);
    }
    if (status == kOk) status = CheckIds(run);
    while (status == kOk && !run->cancelled && run->walked + 1 < run->pages)
        Tell(run, kCheckLinks, ++run->walked, run->pages);
    return status;
}

}  // namespace storage
