// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsHandles.h"

#include <cstring>

using platform::HeapAllocate;
using platform::HeapAllocateZeroed;
using platform::HeapRelease;
using storage::FileHandle;

bool FsHandleEntry::SetPath(WStringView text) {
    WChar* place = inlinePath;
    if (text.size() >= kInlineUnits) {
        place = static_cast<WChar*>(HeapAllocate((text.size() + 1) * sizeof(WChar)));
        if (place == nullptr) return false;
    }
    // The new text may be part of the old one.
    if (!text.empty()) std::memmove(place, text.data(), text.size() * sizeof(WChar));
    place[text.size()] = 0;
    if (path != place) DropPath();
    path = place;
    pathLength = static_cast<uint32_t>(text.size());
    return true;
}

void FsHandleEntry::DropPath() {
    if (path != inlinePath) HeapRelease(path);
    path = nullptr;
    pathLength = 0;
}

bool FsIsInSubtree(WStringView path, WStringView root) {
    return path.starts_with(root) && (path.size() == root.size() || path[root.size()] == '\\');
}

FsHandleTable::~FsHandleTable() {
    Clear();
    while (spare_ != nullptr) {
        FsHandleEntry* entry = spare_;
        spare_ = entry->next;
        HeapRelease(entry);
    }
    if (buckets_ != inlineBuckets_) HeapRelease(buckets_);
}

FsHandleEntry* FsHandleTable::FindKey(int64_t id) const {
    FsHandleEntry* entry = Bucket(static_cast<uint64_t>(id));
    while (entry != nullptr && (entry->kind != FsHandleKind::Key || entry->id != id))
        entry = entry->hashNext;
    return entry;
}

FsHandleEntry* FsHandleTable::FindFile(FileHandle* file) const {
    FsHandleEntry* entry = Bucket(reinterpret_cast<uintptr_t>(file));
    while (entry != nullptr && entry->file != file) entry = entry->hashNext;
    return entry;
}

FsHandleEntry* FsHandleTable::FindId(int64_t id) const {
    FsHandleEntry* entry = FindKey(id);
    if (entry != nullptr) return entry;
    entry = values_.head;
    while (entry != nullptr && entry->id != id) entry = entry->next;
    return entry;
}

FsHandleEntry* FsHandleTable::FindValue(WStringView path) const {
    FsHandleEntry* entry = values_.head;
    while (entry != nullptr && (entry->path == nullptr || entry->pathLength != path.size() ||
                                platform::CompareFolded(entry->Path(), path) != 0))
        entry = entry->next;
    return entry;
}

int64_t FsHandleTable::NewId(const FsHandleEntry* entry) {
    const uint64_t address = reinterpret_cast<uintptr_t>(entry);
    if ((address & ~kAddressBits) != 0) return static_cast<int64_t>(address);
    const uint64_t opening = ++openings_;
    const uint64_t high = opening >> kLowBits << (kAddressEnd + 1) >> 1;  // no handle is negative
    return static_cast<int64_t>(high | address | (opening & kLowMask));
}

FsHandleEntry* FsHandleTable::Add(int64_t id, FileHandle* file, FsHandleKind kind,
                                  WStringView path) {
    FsHandleEntry* entry = NewEntry();
    if (entry == nullptr) return nullptr;
    entry->path = nullptr;
    if (!entry->SetPath(path)) {
        Recycle(entry);
        return nullptr;
    }
    entry->id = id != 0 ? id : NewId(entry);
    entry->file = file;
    entry->kind = kind;
    entry->search = nullptr;
    entry->hint = {};
    entry->lastValue = entry->lastSubkey = {};
    AddToHash(entry);
    if (kind == FsHandleKind::Key) {
        keys_.PushBack(entry);
        entry->node.entry = nullptr;
        if (unfiled_ == nullptr) unfiled_ = entry;
    } else {
        values_.PushBack(entry);
    }
    ++count_;
    return entry;
}

void FsHandleTable::Remove(FsHandleEntry* entry) {
    if (entry->kind == FsHandleKind::Key && entry->node.entry != nullptr) keysByPath_.Remove(entry);
    if (unfiled_ == entry) unfiled_ = entry->next;
    Unlink(entry);
    Recycle(entry);
}

void FsHandleTable::ForgetFile(FsHandleEntry* entry) {
    RemoveFromHash(entry);
    entry->file = nullptr;
}

void FsHandleTable::Clear() {
    while (keys_.head != nullptr) Remove(keys_.head);
    while (values_.head != nullptr) Remove(values_.head);
}

FsPathTree& FsHandleTable::KeysByPath() {
    for (; unfiled_ != nullptr; unfiled_ = unfiled_->next) keysByPath_.Insert(unfiled_);
    return keysByPath_;
}

void FsHandleTable::RenameValues(WStringView from, WStringView to) {
    for (FsHandleEntry* entry = values_.head; entry != nullptr; entry = entry->next) {
        if (entry->path == nullptr || platform::CompareFolded(entry->Path(), from) != 0) continue;
        if (!entry->SetPath(to)) entry->DropPath();
    }
}

bool FsHandleTable::RenamePrefix(WStringView from, WStringView to) {
    bool done = RenameKeys(from, to);
    for (FsHandleEntry* entry = values_.head; entry != nullptr && done; entry = entry->next)
        if (entry->path != nullptr && FsIsInSubtree(entry->Path(), from))
            done = RenamePrefixOf(entry, from.size(), to);
    return done;
}

bool FsHandleTable::RenameKeys(WStringView from, WStringView to) {
    // All are taken out before one is put back: the new path may lie below the old one.
    return RenameChain(KeysByPath().TakeSubtree(from), from, to);
}

bool FsHandleTable::RenameChain(FsPathNode* keys, WStringView from, WStringView to) {
    bool done = true;
    while (keys != nullptr) {
        FsHandleEntry* entry = keys->entry;
        keys = keys->left;
        done = done && RenamePrefixOf(entry, from.size(), to);
        keysByPath_.Insert(entry);
    }
    return done;
}

bool FsHandleTable::RenamePrefixOf(FsHandleEntry* entry, size_t cut, WStringView to) {
    FsText path;
    return path.Assign(to) && path.Append(entry->Path().substr(cut)) && entry->SetPath(path.View());
}

uint64_t FsHandleTable::HashNumber(const FsHandleEntry* entry) {
    return entry->kind == FsHandleKind::Key ? static_cast<uint64_t>(entry->id)
                                            : reinterpret_cast<uintptr_t>(entry->file);
}

void FsHandleTable::AddToHash(FsHandleEntry* entry) {
    if (count_ >> (64 - shift_) != 0) GrowHash();
    FsHandleEntry*& head = Bucket(HashNumber(entry));
    entry->hashNext = head;
    head = entry;
}

void FsHandleTable::RemoveFromHash(FsHandleEntry* entry) {
    FsHandleEntry** link = &Bucket(HashNumber(entry));
    while (*link != nullptr && *link != entry) link = &(*link)->hashNext;
    if (*link != nullptr) *link = entry->hashNext;
}

// Growth that finds no memory is put off: the chains grow longer.
void FsHandleTable::GrowHash() {
    const size_t oldSize = size_t{1} << (64 - shift_);
    auto** grown =
        static_cast<FsHandleEntry**>(HeapAllocateZeroed(2 * oldSize * sizeof(FsHandleEntry*)));
    if (grown == nullptr) return;
    FsHandleEntry** old = buckets_;
    buckets_ = grown;
    --shift_;
    for (size_t i = 0; i < oldSize; ++i) {
        while (old[i] != nullptr) {
            FsHandleEntry* entry = old[i];
            old[i] = entry->hashNext;
            FsHandleEntry*& head = Bucket(HashNumber(entry));
            entry->hashNext = head;
            head = entry;
        }
    }
    if (old != inlineBuckets_) HeapRelease(old);
}

FsHandleEntry* FsHandleTable::NewEntry() {
    if (spare_ == nullptr) return static_cast<FsHandleEntry*>(HeapAllocate(sizeof(FsHandleEntry)));
    FsHandleEntry* entry = spare_;
    spare_ = entry->next;
    --spareCount_;
    return entry;
}

// Takes the entry out of everything but the path tree.
void FsHandleTable::Unlink(FsHandleEntry* entry) {
    RemoveFromHash(entry);
    (entry->kind == FsHandleKind::Key ? keys_ : values_).Remove(entry);
    HeapRelease(entry->search);
    entry->DropPath();
    --count_;
}

void FsHandleTable::Recycle(FsHandleEntry* entry) {
    if (spareCount_ >= kSpareLimit) {
        HeapRelease(entry);
        return;
    }
    entry->next = spare_;
    spare_ = entry;
    ++spareCount_;
}
