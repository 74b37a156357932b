// SPDX-License-Identifier: MIT
// What one run of check and repair knows of a container, and the steps it is made of. The run
// works on the file itself: no cache, no transaction, no objects.
#pragma once

#include "storage/StorageApi.h"
#include "storage/core/Context.h"
#include "storage/core/ItemList.h"
#include "storage/core/PageIo.h"
#include "storage/lifecycle/RunLock.h"

namespace storage {

// The first 36 bytes of a page. For pages other than a HeaderPage the last three words are not
// looked at through this, but for recordType and recordInfo in parentId's place.
using PageDigest = HeaderPageHeader;

// Adjacent pages as they were read last, in one transfer. A page is mostly near one that was
// looked at just before it.
struct PageWindow {
    uint8_t* bytes = nullptr;
    uint32_t first = kUnknownPages;  // a multiple of the window's pages
};
inline constexpr uint32_t kPageWindows = 2;

class CheckOverlay;

struct CheckRun {
    StorageContext* context = nullptr;
    RunLock lock;
    bool repair = false;
    bool deep = false;
    bool discardLog = false;
    bool callerHoldsLock = false;
    bool besideWriter = false;  // who may have pages taken ahead
    bool hadLog = false;
    bool trailing = false;            // a part of a page at the end of the file
    CheckOverlay* overlay = nullptr;  // the context's file
    CheckCallback callback = nullptr;
    void* userData = nullptr;

    uint32_t pages = 0;  // T
    uint8_t clean = 255;
    bool cancelled = false;
    uint32_t findings = 0;
    uint32_t walked = 0;  // pages told of with kCheckLinks
    uint32_t maxId = 0;
    PageDigest* digests = nullptr;
    uint16_t* slots = nullptr;  // of each page, as the map has them
    uint8_t* marks = nullptr;
    uint8_t* map = nullptr;     // page buffers
    uint8_t* header = nullptr;  // the page that is being walked
    uint8_t* other = nullptr;
    PageWindow windows[kPageWindows];  // the one used last in front
    NumberList objects;                // first HeaderPages of all that the walk came to
    bool isStore = false;              // a container of the key store, whose names are in its form
    uint32_t versionHeader = 0;        // the first HeaderPage of the value that makes it one

    CheckRun() = default;
    CheckRun(const CheckRun&) = delete;
    CheckRun& operator=(const CheckRun&) = delete;
    ~CheckRun();

    uint16_t RecordInfo(uint32_t page) const {
        return static_cast<uint16_t>(digests[page].parentId >> 16);
    }
};

enum PageMark : uint8_t {
    kMarkInUse = 1,    // reached from the root
    kMarkChanged = 2,  // the digest differs from the page
    kMarkLost = 4,     // in use to the map only
    kMarkData = 8,     // a HeaderPage with a DataRecord
    kMarkList = 16,    // one with a DirectoryRecord
};

inline bool IsObjectPage(uint16_t kind) {
    return (kind >= kNamePage && kind <= kLinkPage && kind != 35) || kind == kRootDataPage ||
           kind == kPageListPage;
}

// An object to be walked.
struct CheckItem {
    uint32_t headerPage;
    uint16_t streamType;
    bool isValue;  // of the key store: a file with the value's type and size in front
};

// A used entry of the directory that is walked.
struct CheckName {
    uint64_t hash;  // of the whole name, by which two of them are the same
    uint32_t page;
    uint32_t offset;
    uint32_t fileId;
    bool bad;      // no path leads to it
    bool changed;  // the run gave it another length
};
using CheckNames = ItemList<CheckName>;

// Tells the callback; a cancel it answers with is noted.
void Tell(CheckRun* run, uint32_t code, uint32_t a, uint32_t b);
void TellBadLink(CheckRun* run, uint32_t page);
void TellBadEntry(CheckRun* run, uint32_t page, const DirectoryEntry& entry);

// A page as it is in the file, in native byte order.
Status ReadForCheck(CheckRun* run, uint32_t page, uint8_t* buffer);
// What was read of the page is read anew the next time. To be called when it is written.
void ForgetRead(CheckRun* run, uint32_t page);
// A page with its digest in place of its header.
Status LoadChecked(CheckRun* run, uint32_t page, uint8_t* buffer);
// Lays the page over the file and takes its digest from it.
Status StoreChecked(CheckRun* run, uint32_t page, const uint8_t* buffer);
void NoteChange(CheckRun* run, uint32_t page);

// True when `page` is a page of this kind and owner, which says that `from` refers to it, and
// which nothing else has claimed.
bool CanClaim(const CheckRun* run, uint32_t page, uint32_t from, uint16_t kind, uint32_t fileId);
// The page is in use from now on; listPage must be `listPage`.
void Claim(CheckRun* run, uint32_t page, uint32_t listPage);
// CanClaim and Claim; a page that `from` has claimed already is told of.
bool TryClaim(CheckRun* run, uint32_t page, uint32_t from, uint16_t kind, uint32_t fileId);
// Claims the pages behind a claimed one, and cuts the chain where it goes wrong. *count, if
// given, gets the number of pages from `first` on, *last the last of them.
void ClaimChain(CheckRun* run, uint32_t first, uint32_t* count, uint32_t* last);

// Third pass: tells of each page that is in use to the map and was not reached, and of its links.
Status FindLostPages(CheckRun* run);
// Fourth pass: lays map pages over the file that are as the pages demand it, where they differ.
Status CheckMap(CheckRun* run);
// Writes all that the run found to be changed to the file.
Status WriteRepair(CheckRun* run);

// kMarkData and kMarkList of a HeaderPage.
uint8_t RecordMarks(const uint8_t* page, uint32_t pageSize);
// Walks all that the root reaches. kNotContainer when there is no root.
Status CheckObjects(CheckRun* run);
// Gives each of the objects found an id of its own.
Status CheckIds(CheckRun* run);
// The entries at `offset` in `buffer`, which is page `page` of directory `fileId`. Objects found
// are added to `work`, their names to `names`.
struct EntryPlace {
    uint32_t page;
    uint8_t* buffer;
    uint32_t offset;
    uint32_t count;
    uint32_t fileId;
};
Status CheckEntries(CheckRun* run, const EntryPlace& place, ItemList<CheckItem>* work,
                    CheckNames* names, bool* changed);
// What the name of an entry, of the given length, is to a path that should lead to it. *right is
// another length with which it is better, or `length`.
Status JudgeName(CheckRun* run, const DirectoryEntry& entry, uint32_t length, CheckName* name,
                 uint32_t* right);
// Gives a free name to each entry that no path leads to, for what it is called or because a
// neighbour is called the same.
Status CheckDirectoryNames(CheckRun* run, CheckNames* names);
// Sets isStore and versionHeader.
Status LookForStore(CheckRun* run);

// The chain of an object's stream and the index of it.
struct CheckStream {
    uint32_t first = 0;  // claimed already; 0 for a stream without pages
    uint16_t kind = 0;
    uint32_t method = 0;
    uint32_t pagesPerBlock = 1;
    uint32_t index = 0;       // link of the PageListRecord, 0 without one
    uint32_t indexOwner = 0;  // HeaderPage of that record
    uint32_t inlinePage = 0;  // HeaderPage of a stream record without pages
    uint32_t inlineSize = 0;
    uint32_t inlineInfo = 0;  // not 0 when its bytes are coded by `method`
    uint64_t stored = 0;      // bytes that the stream can have with the pages it has
};
// *indexIsGood tells whether the index record may stay.
Status CheckStreamPages(CheckRun* run, CheckStream* stream, bool* indexIsGood);
// The size that the object tells of, and that which a value tells of, against what is stored.
Status CheckStreamSize(CheckRun* run, uint32_t headerPage, const CheckStream& stream, bool isValue);

}  // namespace storage
