// SPDX-License-Identifier: MIT
#include "storage/namespace/Search.h"

#include "storage/core/PageCache.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/Links.h"
#include "storage/namespace/Objects.h"
#include "storage/namespace/Path.h"
#include "storage/namespace/Records.h"
#include "storage/namespace/TextBuffer.h"

namespace storage {

namespace {

using platform::WStringView;

constexpr int32_t kPlaceOfDot = -2;
constexpr int32_t kPlaceOfDotDot = -1;
constexpr int32_t kPlaceEnded = -3;

void ClearStrings(StorageSearchStruct* record) {
    record->name = nullptr;
    record->fullName = nullptr;
}

// Notes the entry that is next, or that there is none. kNoMemory.
Status SavePlace(FindContext* search, int32_t position) {
    const EntryList& list = search->directory->children;
    search->position = position;
    search->savedId = 0;
    search->hasSavedName = false;
    if (position < 0 || static_cast<uint32_t>(position) >= list.Count()) return kOk;
    const DirEntry* entry = list[static_cast<uint32_t>(position)];
    if (!AssignText(&search->savedName, {entry->name, entry->nameUnits})) return kNoMemory;
    search->savedId = entry->fileId;
    search->hasSavedName = true;
    return kOk;
}

// The entry that the search stands before, or null. The list may have changed since: then the
// position becomes that of the saved name, or the place where it would stand.
Status RestorePlace(FindContext* search, DirEntry** entry) {
    FileObject* directory = search->directory;
    *entry = nullptr;
    Status status = LoadDirectory(directory, search->transaction);
    if (status == kOk) status = SortDirectory(directory, search->transaction);
    if (status != kOk) return status;
    const EntryList& list = directory->children;
    if (search->position >= 0 && static_cast<uint32_t>(search->position) < list.Count()) {
        DirEntry* here = list[static_cast<uint32_t>(search->position)];
        if (here->fileId == search->savedId) {
            *entry = here;
            return kOk;
        }
    }
    if (!search->hasSavedName) return kOk;
    bool found = false;
    uint32_t position = 0;
    status =
        FindEntry(directory, TextOf(search->savedName), &found, &position, search->transaction);
    if (status != kOk) return status;
    search->position = static_cast<int32_t>(position);
    if (found) *entry = list[position];
    return kOk;
}

struct Candidate {
    DirEntry* entry;
    WStringView name;
    uint32_t attributes;
};

bool Passes(const FindContext* search, const Candidate& candidate) {
    return (candidate.attributes & search->attributeMask) != 0 &&
           MatchPattern(candidate.name, TextOf(search->pattern), search->context->caseSensitive);
}

// What stands at the search's position; false when that is nothing to be shown.
bool CandidateAt(const FindContext* search, DirEntry* entry, Candidate* candidate) {
    if (search->position < 0) {
        const size_t dots = search->position == kPlaceOfDot ? 1 : 2;
        *candidate = {search->directory->entry, WStringView(WTEXT(".."), dots), kAttrDirectory};
        return true;
    }
    *candidate = {entry, {entry->name, entry->nameUnits}, entry->attributes};
    return (entry->attributes & kAttrHidden) == 0;
}

Status FillTimes(FindContext* search, const DirEntry* entry, StorageSearchStruct* record) {
    record->created = record->modified = record->accessed = 0;
    record->size = 0;
    RecordPlace place;
    const Status status = FindRecordAt(search->context, entry->fileId, entry->headerPage,
                                       kFileInfoRecord, &place, false, search->transaction);
    if (status != kOk || place.page == nullptr) return status;
    record->created = Load<double>(place.Bytes(), record::kCreated);
    record->modified = Load<double>(place.Bytes(), record::kModified);
    record->accessed = Load<double>(place.Bytes(), record::kAccessed);
    record->size = LoadU64(place.Bytes(), record::kFileSize);
    ReleasePage(search->context, place.page);
    return kOk;
}

Status FillSearchRecord(FindContext* search, const Candidate& candidate,
                        StorageSearchStruct* record) {
    ClearStrings(record);
    record->attributes = candidate.attributes;
    if (!AssignText(&search->name, candidate.name)) return kNoMemory;
    const bool wantsFullName = (search->flags & kFindFullName) != 0;
    if (wantsFullName && !AssignText(&search->fullName, TextOf(search->prefix), candidate.name))
        return kNoMemory;
    if ((search->flags & (kFindTimes | kFindSize)) != 0) {
        const Status status = FillTimes(search, candidate.entry, record);
        if (status != kOk) return status;
    }
    record->name = search->name.text;
    record->fullName = wantsFullName ? search->fullName.text : nullptr;
    return kOk;
}

Status NextMatch(FindContext* search, StorageSearchStruct* record) {
    if (search->directory == nullptr) return kNoObject;
    if (search->position < kPlaceOfDot) return kNoMore;
    DirEntry* restored = nullptr;
    const Status status = RestorePlace(search, &restored);
    if (status != kOk) return status;
    const EntryList& list = search->directory->children;
    for (;; ++search->position) {
        DirEntry* entry = nullptr;
        if (search->position >= 0) {
            if (static_cast<uint32_t>(search->position) >= list.Count()) return kNoMore;
            entry = list[static_cast<uint32_t>(search->position)];
        }
        Candidate candidate;
        if (!CandidateAt(search, entry, &candidate) || !Passes(search, candidate)) continue;
        const Status filled = FillSearchRecord(search, candidate, record);
        return filled == kOk ? SavePlace(search, search->position + 1) : filled;
    }
}

bool HasWildcard(WStringView pattern) {
    for (const WChar unit : pattern)
        if (unit == '*' || unit == '?') return true;
    return false;
}

// The prefix of full names begins with a separator even if the path given did not.
bool SetTexts(FindContext* search, const ResolvedPath& resolved) {
    const WChar separator = search->context->separator;
    const bool bare = resolved.prefix.empty() || !IsSeparator(resolved.prefix[0], separator);
    return AssignText(&search->prefix, WStringView(&separator, bare ? 1 : 0), resolved.prefix) &&
           AssignText(&search->pattern, resolved.lastName);
}

// Everything that a search needs before its first step. `position` is that of the one entry that
// a pattern without wildcard names.
Status SetUp(FindContext* search, const ResolvedPath& resolved, bool wildcard, uint32_t position) {
    FileObject* directory = search->directory;
    const Status status = SortDirectory(directory, search->transaction);
    if (status != kOk) return status;
    if (!SetTexts(search, resolved)) return kNoMemory;
    if (!wildcard) return SavePlace(search, static_cast<int32_t>(position));
    const bool dots = (search->flags & kFindWithDots) != 0 && directory->parent != nullptr;
    return SavePlace(search, dots ? kPlaceOfDot : 0);
}

Status FindPattern(FindContext* search, const ResolvedPath& resolved, bool* wildcard,
                   uint32_t* position) {
    FileObject* directory = search->directory;
    Status status = LoadDirectory(directory, search->transaction);
    if (status != kOk) return status;
    if (directory->children.Empty() && (search->flags & kFindWithDots) == 0) return kNoMore;
    *wildcard = HasWildcard(resolved.lastName);
    if (*wildcard) return kOk;
    // The position counts in the full order.
    status = SortDirectory(directory, search->transaction);
    bool found = false;
    if (status == kOk)
        status = FindEntry(directory, resolved.lastName, &found, position, search->transaction);
    return status == kOk && !found ? kNoMore : status;
}

// Up to the point from where on the search can be continued or closed.
Status OpenSearch(FindContext* search, const WChar* path, bool* wildcard) {
    ResolvedPath resolved;
    Status status =
        ResolvePath(search->context, path, true, true, false, &resolved, search->transaction);
    if (status != kOk) return status;
    search->directory = resolved.object;
    uint32_t position = 0;
    status = FindPattern(search, resolved, wildcard, &position);
    return status == kOk ? SetUp(search, resolved, *wildcard, position) : status;
}

void GiveUp(FindContext* search) {
    StorageContext* context = search->context;
    ReleaseObjectChain(search->directory);
    search->directory = nullptr;
    EndReadTransaction(context, search->transaction);
    search->transaction = nullptr;
    search->record = nullptr;
    RecycleSearch(context, search);
}

void BeginSearch(FindContext* search, StorageContext* context, StorageTransaction* transaction,
                 StorageSearchStruct* record) {
    search->context = context;
    search->transaction = transaction;
    search->directory = nullptr;
    search->record = record;
    search->position = 0;
    search->savedId = 0;
    search->hasSavedName = false;
}

}  // namespace

Status FindFirst(StorageContext* context, StorageSearchStruct* record, const WChar* path,
                 uint32_t attributeMask, uint32_t flags) {
    *record = StorageSearchStruct{};
    if (!context->searchEnabled) return kSearchOff;
    StorageTransaction* transaction = nullptr;
    Status status = BeginTransaction(context, &transaction, TransactionMode::Read);
    if (status != kOk) return status;
    FindContext* search = AllocateSearch(context);
    if (search == nullptr) {
        EndReadTransaction(context, transaction);
        return kNoMemory;
    }
    BeginSearch(search, context, transaction, record);
    search->attributeMask = attributeMask;
    search->flags = flags;
    bool wildcard = false;
    status = OpenSearch(search, path, &wildcard);
    if (status != kOk) {
        GiveUp(search);
        return status;
    }
    context->objects->searches.PushBack(search);
    record->search = search;
    status = NextMatch(search, record);
    if (!wildcard) search->position = kPlaceEnded;
    if (status == kNoMore) FindClose(context, record);
    return status;
}

Status FindNext(StorageContext* context, StorageSearchStruct* record) {
    if (record->search == nullptr) return kNoMore;
    const Status status = NextMatch(record->search, record);
    if (status == kNoMore) FindClose(context, record);
    return status;
}

Status FindClose(StorageContext* context, StorageSearchStruct* record) {
    FindContext* search = record->search;
    if (search != nullptr) {
        context->objects->searches.Remove(search);
        GiveUp(search);
    }
    record->search = nullptr;
    ClearStrings(record);
    return kOk;
}

void CloseSearches(StorageContext* context) {
    while (FindContext* search = context->objects->searches.tail) {
        context->objects->searches.Remove(search);
        // A record that was used again for another search holds that one.
        if (search->record->search == search) *search->record = StorageSearchStruct{};
        GiveUp(search);
    }
}

}  // namespace storage
