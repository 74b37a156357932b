// SPDX-License-Identifier: MIT
// The open keys and values of a store.
//
// A key handle is the address of its entry, with the number of its opening in the bits that
// addresses leave, so that the handle of a key that is closed or deleted is not soon that of
// another one. A value handle is the engine's file handle. Neither is followed before it was found
// in here, so that a number that is no handle is only that. The caller holds the store's lock.
#pragma once

#include <cstddef>
#include <cstdint>

#include "FS_Library_DLL/keystore/FsPathTree.h"
#include "FS_Library_DLL/keystore/FsText.h"
#include "platform/Prefetch.h"
#include "storage/StorageApi.h"
#include "storage/core/List.h"
#include "storage/namespace/Listing.h"
#include "storage/namespace/Lookup.h"
#include "storage/namespace/Search.h"

enum class FsHandleKind : uint32_t { Value = 0, Key = 1 };

// One open key or value.
struct FsHandleEntry {
    static constexpr size_t kInlineUnits = 72;

    storage::FileHandle* file;  // a value's open file; null once it is closed, and for a key
    int64_t id;                 // a key's own handle; for a value that of the key it was opened by
    FsHandleEntry* hashNext;
    FsHandleKind kind;
    uint32_t pathLength;
    storage::DirectoryHint hint;  // where the path of a key leads
    WChar* path;                  // the stored path; null after a move that found no memory
    storage::StorageSearchStruct* search;  // the walk that runs over a key
    // Where the last value and the last subkey stood that a key was asked for by number.
    storage::ListPlace lastValue;
    storage::ListPlace lastSubkey;
    FsHandleEntry* prev;  // in order of opening, keys and values apart
    FsHandleEntry* next;
    FsPathNode node;  // a key's place in the order of paths, once it was wanted
    WChar inlinePath[kInlineUnits];

    WStringView Path() const {
        return path != nullptr ? WStringView(path, pathLength) : WStringView();
    }
    // False when there is no memory; the old path is kept.
    bool SetPath(WStringView text);
    void DropPath();
};

using FsHandleList = storage::List<FsHandleEntry, &FsHandleEntry::prev, &FsHandleEntry::next>;

// Found by key handle or file in constant time, by path in logarithmic time. Values are few: none
// stays open behind a call of the interface.
class FsHandleTable {
  public:
    FsHandleTable() = default;
    ~FsHandleTable();
    FsHandleTable(const FsHandleTable&) = delete;
    FsHandleTable& operator=(const FsHandleTable&) = delete;

    uint32_t Count() const { return count_; }
    FsHandleEntry* FindKey(int64_t id) const;
    // The key is about to be looked for, whatever the number is.
    void PrefetchKey(int64_t id) const {
        platform::Prefetch(&Bucket(static_cast<uint64_t>(id)), sizeof(FsHandleEntry*));
        PrefetchEntry(id);
    }
    // The same without a look at the table, and so without a lock.
    static void PrefetchEntry(int64_t id) {
        const uint64_t address = static_cast<uint64_t>(id) & kAddressBits;
        platform::Prefetch(reinterpret_cast<const void*>(address), offsetof(FsHandleEntry, search));
    }
    FsHandleEntry* FindFile(storage::FileHandle* file) const;
    // The first entry with that id, the key's own before the values opened by it.
    FsHandleEntry* FindId(int64_t id) const;
    // The first value with that path, A to Z folded.
    FsHandleEntry* FindValue(WStringView path) const;
    // Null when there is no memory. `id` 0 makes a new key handle.
    FsHandleEntry* Add(int64_t id, storage::FileHandle* file, FsHandleKind kind, WStringView path);
    // Frees the entry with its path and its search record, which is not closed.
    void Remove(FsHandleEntry* entry);
    // The value's file was closed behind the entry, which stays.
    void ForgetFile(FsHandleEntry* entry);
    void Clear();

    // New paths for the values at `from`; one that finds no memory loses its path.
    void RenameValues(WStringView from, WStringView to);
    // Puts `to` in the place of `from` in the path of that key and of all below it. False when
    // there is no memory; some paths may be changed then.
    bool RenamePrefix(WStringView from, WStringView to);
    // Calls `close` for each search and removes the entries of a deleted key and all below it.
    template <class CloseSearch>
    void ForgetSubtree(WStringView path, CloseSearch close);

  private:
    static constexpr uint32_t kInlineBuckets = 64;
    static constexpr uint32_t kSpareLimit = 64;
    static constexpr uint32_t kLowBits = 4, kAddressEnd = 48;  // what addresses leave of a handle
    static constexpr uint64_t kLowMask = (1u << kLowBits) - 1;
    static constexpr uint64_t kAddressBits = ((uint64_t{1} << kAddressEnd) - 1) & ~kLowMask;

    FsHandleEntry*& Bucket(uint64_t number) const {
        return buckets_[(number >> 4) * 0x9E3779B97F4A7C15u >> shift_];
    }
    int64_t NewId(const FsHandleEntry* entry);
    static uint64_t HashNumber(const FsHandleEntry* entry);
    void AddToHash(FsHandleEntry* entry);
    void RemoveFromHash(FsHandleEntry* entry);
    void GrowHash();
    FsHandleEntry* NewEntry();
    void Unlink(FsHandleEntry* entry);
    void Recycle(FsHandleEntry* entry);
    // The tree with all keys in it. Most are closed before it is wanted.
    FsPathTree& KeysByPath();
    // Takes keys out of the table that the path tree has already given up.
    template <class CloseSearch>
    void ForgetKeys(FsPathNode* keys, CloseSearch close);
    bool RenameKeys(WStringView from, WStringView to);
    bool RenameChain(FsPathNode* keys, WStringView from, WStringView to);
    bool RenamePrefixOf(FsHandleEntry* entry, size_t cut, WStringView to);

    FsHandleList keys_;
    FsHandleList values_;
    FsPathTree keysByPath_;
    FsHandleEntry* unfiled_ = nullptr;  // the keys from here on are not in it yet
    uint32_t count_ = 0;
    uint64_t openings_ = 0;
    FsHandleEntry* spare_ = nullptr;  // kept for reuse, chained by next
    uint32_t spareCount_ = 0;
    FsHandleEntry** buckets_ = inlineBuckets_;
    uint32_t shift_ = 58;
    FsHandleEntry* inlineBuckets_[kInlineBuckets] = {};
};

// Does `path` name the key at `root` or something below it?
bool FsIsInSubtree(WStringView path, WStringView root);

template <class CloseSearch>
void FsHandleTable::ForgetKeys(FsPathNode* keys, CloseSearch close) {
    while (keys != nullptr) {
        FsHandleEntry* entry = keys->entry;
        keys = keys->left;
        if (entry->search != nullptr) close(entry->search);
        Unlink(entry);
        Recycle(entry);
    }
}

template <class CloseSearch>
void FsHandleTable::ForgetSubtree(WStringView path, CloseSearch close) {
    ForgetKeys(KeysByPath().TakeSubtree(path), close);
    for (FsHandleEntry* value = values_.head; value != nullptr;) {
        FsHandleEntry* next = value->next;
        if (value->path != nullptr && FsIsInSubtree(value->Path(), path)) Remove(value);
        value = next;
    }
}
