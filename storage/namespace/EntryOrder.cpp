// SPDX-License-Identifier: MIT
// The order of a directory's list, and the search in it.
#include <algorithm>

#include "platform/Prefetch.h"
#include "storage/core/PageIo.h"
#include "storage/namespace/Directory.h"
#include "storage/namespace/EntryRecords.h"

namespace storage {

namespace {

using platform::Fold;
using platform::WStringView;

// Names are compared on every step of every look-up: plain loops on plain pointers.
inline int CompareUnits(const WChar* a, uint32_t aUnits, const WChar* b, uint32_t bUnits,
                        bool caseSensitive) {
    const uint32_t units = aUnits < bUnits ? aUnits : bUnits;
    uint32_t i = 0;
    // Names of a directory begin alike, and callers mostly write them as they are.
    while (i + 4 <= units && LoadU64(a + i, 0) == LoadU64(b + i, 0)) i += 4;
    for (; i < units; ++i) {
        if (a[i] == b[i]) continue;
        const uint32_t x = caseSensitive ? a[i] : Fold(a[i]);
        const uint32_t y = caseSensitive ? b[i] : Fold(b[i]);
        if (x != y) return x < y ? -1 : 1;
    }
    return aUnits == bUnits ? 0 : aUnits < bUnits ? -1 : 1;
}

inline uint32_t FirstUnits(uint32_t units) {
    return units < kEntryNameUnits ? units : kEntryNameUnits;
}

inline int CompareFirstUnits(const WChar* a, uint32_t aUnits, const WChar* b, uint32_t bUnits,
                             bool caseSensitive) {
    return CompareUnits(a, FirstUnits(aUnits), b, FirstUnits(bUnits), caseSensitive);
}

bool IsComplete(const DirEntry* entry) {
    return (entry->flags & kNameComplete) != 0;
}

bool SharesFirstUnits(const DirEntry* a, const DirEntry* b, bool caseSensitive) {
    return CompareFirstUnits(a->name, a->nameUnits, b->name, b->nameUnits, caseSensitive) == 0;
}

// Back to the first 22 units, so that the names of a run are all complete or all incomplete.
void ForgetTails(const EntryList& list, uint32_t first, uint32_t end) {
    for (uint32_t i = first; i < end; ++i) {
        DirEntry* entry = list[i];
        if (entry->name == entry->shortName) continue;
        SetLongName(entry, nullptr, 0);
        entry->nameUnits = kEntryNameUnits;
        entry->flags &= ~kNameComplete;
    }
}

// Reads the names around `position` that agree in their first 22 units and puts them in order.
Status CompleteRun(FileObject* directory, uint32_t position, StorageTransaction* transaction) {
    const bool caseSensitive = directory->context->caseSensitive;
    EntryList& list = directory->children;
    const DirEntry* middle = list[position];
    uint32_t first = position;
    uint32_t end = position + 1;
    while (first > 0 && SharesFirstUnits(list[first - 1], middle, caseSensitive)) --first;
    while (end < list.Count() && SharesFirstUnits(list[end], middle, caseSensitive)) ++end;
    Status status = kOk;
    for (uint32_t i = first; i < end && status == kOk; ++i)
        status = LoadFullName(directory, list[i], transaction);
    if (status != kOk) ForgetTails(list, first, end);
    list.SortRun(first, end, [caseSensitive](const DirEntry* a, const DirEntry* b) {
        return CompareEntries(a, b, caseSensitive) < 0;
    });
    ListChanged(directory);
    return status;
}

// The look-up goes by the case rule of now; the list may be from before it changed.
Status EnsureOrder(FileObject* directory, StorageTransaction* transaction) {
    const bool sortedSensitive = (directory->flags & kSortedSensitive) != 0;
    if (sortedSensitive == directory->context->caseSensitive) return kOk;
    directory->flags &= ~kNamesSorted;
    return SortDirectory(directory, transaction);
}

// Where the record itself stands, or the list's count.
uint32_t PositionOf(FileObject* directory, const DirEntry* entry) {
    const EntryList& list = directory->children;
    const bool sensitive = (directory->flags & kSortedSensitive) != 0;
    uint32_t low = 0;
    uint32_t high = 0;
    list.Range({entry->name, entry->nameUnits}, &low, &high);
    while (low < high) {
        const uint32_t mid = low + (high - low) / 2;
        if (CompareEntries(list[mid], entry, sensitive) < 0)
            low = mid + 1;
        else
            high = mid;
    }
    for (; low < list.Count() && CompareEntries(list[low], entry, sensitive) == 0; ++low)
        if (list[low] == entry) return low;
    for (low = 0; low < list.Count() && list[low] != entry;) ++low;
    return low;
}

// Callers ask for one name again and again, or for one after the other.
inline bool IsNamed(const DirEntry* entry, const WChar* text, uint32_t units, bool caseSensitive) {
    return IsComplete(entry) && entry->nameUnits == units &&
           CompareUnits(entry->name, units, text, units, caseSensitive) == 0;
}

// The record and what is known of its object's page, which mostly is wanted next.
inline void Prefetch(const FileObject* directory, const EntryChunk::Item& item) {
    platform::Prefetch(item.entry, sizeof *item.entry);
    PrefetchPage(directory->context, item.headerPage, item.pagePlace);
}

}  // namespace

int CompareEntries(const DirEntry* a, const DirEntry* b, bool caseSensitive) {
    if (a == b) return 0;
    const bool aComplete = IsComplete(a);
    const bool bComplete = IsComplete(b);
    if (aComplete && bComplete)
        return CompareUnits(a->name, a->nameUnits, b->name, b->nameUnits, caseSensitive);
    const int first =
        CompareFirstUnits(a->name, a->nameUnits, b->name, b->nameUnits, caseSensitive);
    if (first != 0) return first;
    if (!aComplete && !bComplete)
        return a->fileId == b->fileId ? 0 : a->fileId > b->fileId ? -1 : 1;
    // A name that ends here stands before all that go on; of those, what is not yet known stands
    // before what is.
    const DirEntry* complete = aComplete ? a : b;
    const bool completeFirst = complete->nameUnits <= kEntryNameUnits;
    return completeFirst == aComplete ? -1 : 1;
}

void SortEntries(FileObject* directory) {
    const bool caseSensitive = directory->context->caseSensitive;
    const auto before = [caseSensitive](const DirEntry* a, const DirEntry* b) {
        return CompareEntries(a, b, caseSensitive) < 0;
    };
    directory->children.Sort(caseSensitive, before);
    ListChanged(directory);
    directory->lastFound = 0;
    directory->flags &= ~kSortedSensitive;
    if (caseSensitive) directory->flags |= kSortedSensitive;
}

Status FindEntry(FileObject* directory, WStringView name, bool* found, uint32_t* position,
                 StorageTransaction* transaction) {
    *found = false;
    *position = 0;
    const Status status = EnsureOrder(directory, transaction);
    if (status != kOk) return status;
    const bool caseSensitive = directory->context->caseSensitive;
    const EntryList& list = directory->children;
    const WChar* text = name.data();
    const uint32_t units = static_cast<uint32_t>(name.size());
    uint32_t guess = 0;
    if (list.Guess(name, directory->lastFound, &guess)) {
        Prefetch(directory, list.Guessed(guess));
        if (IsNamed(list.Guessed(guess).entry, text, units, caseSensitive)) {
            *found = true;
            *position = directory->lastFound = guess;
            return kOk;
        }
    }
    uint32_t low = 0;
    uint32_t high = 0;
    list.Range(name, &low, &high);
    while (low < high) {
        const uint32_t mid = low + (high - low) / 2;
        const DirEntry* element = list[mid];
        // An incomplete name goes on behind its 22 units, so that it is greater than a key of 22.
        int order = CompareUnits(element->name, element->nameUnits, text,
                                 IsComplete(element) ? units : FirstUnits(units), caseSensitive);
        if (order == 0 && !IsComplete(element)) {
            if (units <= kEntryNameUnits) {
                order = 1;
            } else {
                const Status read = CompleteRun(directory, mid, transaction);
                if (read != kOk) return read;
                element = list[mid];
                order = CompareUnits(element->name, element->nameUnits, text, units, caseSensitive);
            }
        }
        if (order == 0) *found = true;
        if (order < 0)
            low = mid + 1;
        else
            high = mid;
    }
    *position = directory->lastFound = low;
    return kOk;
}

Status SortDirectory(FileObject* directory, StorageTransaction* transaction) {
    const bool sortedSensitive = (directory->flags & kSortedSensitive) != 0;
    if ((directory->flags & kNamesSorted) != 0 &&
        sortedSensitive == directory->context->caseSensitive)
        return kOk;
    bool anyRead = sortedSensitive != directory->context->caseSensitive;
    Status status = kOk;
    for (uint32_t i = 0; i < directory->children.Count(); ++i) {
        DirEntry* entry = directory->children[i];
        if (IsComplete(entry)) continue;
        anyRead = true;
        status = LoadFullName(directory, entry, transaction);
        if (status != kOk) break;
    }
    if (status != kOk) ForgetTails(directory->children, 0, directory->children.Count());
    if (anyRead) SortEntries(directory);
    if (status == kOk) directory->flags |= kNamesSorted;
    return status;
}

Status InsertEntry(FileObject* directory, DirEntry* entry, StorageTransaction* transaction) {
    bool found = false;
    uint32_t position = 0;
    const Status status =
        FindEntry(directory, {entry->name, entry->nameUnits}, &found, &position, transaction);
    if (status != kOk) return status;
    if (!directory->children.Insert(position, entry)) return kNoMemory;
    entry->flags |= kEntryListed;
    ListChanged(directory);
    return kOk;
}

void RemoveEntry(FileObject* directory, DirEntry* entry) {
    if ((entry->flags & kEntryListed) == 0) return;
    entry->flags &= ~kEntryListed;
    const uint32_t position = PositionOf(directory, entry);
    if (position < directory->children.Count()) directory->children.RemoveAt(position);
    ListChanged(directory);
}

}  // namespace storage
