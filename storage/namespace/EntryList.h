// SPDX-License-Identifier: MIT
// The records of a directory in memory, and the sorted list of them.
#pragma once

#include <cstdint>

#include "platform/Text.h"
#include "storage/core/Format.h"
#include "storage/core/List.h"

namespace storage {

using platform::WChar;

struct EntrySlab;
struct FileObject;

// One used entry of a directory in memory. Owned by the directory's list, or by its object while
// it is in none (after a roll back, until the directory is loaded again).
struct DirEntry {
    // What a look-up compares stands together at the front.
    WChar* name;         // the first 22 units, or the whole name; not zero-terminated
    uint32_t nameUnits;  // units at `name`
    uint16_t flags;
    uint16_t slot;                     // place in its slab
    WChar shortName[kEntryNameUnits];  // `name` points here for short names, else to the heap
    uint32_t nameLength;               // units of the whole name
    uint32_t fileId;
    uint32_t attributes;
    uint32_t entry;       // place over the whole chain of EntryPages
    uint32_t headerPage;  // as on disk; kept so that a look-up needs no page
    FileObject* object;   // while the child has one
};
enum DirEntryFlag : uint16_t {
    kNameComplete = 2,
    kEntryDetached = 4,  // in no list: the object owns the record
    kEntryListed = 8,    // in its directory's list
};

struct EntryPool;

// The head of an allocation of several records; storage/namespace/EntryRecords.h works on it.
struct EntrySlab {
    EntryPool* pool;      // null: nobody takes records from here any more
    uint64_t* heldBytes;  // what the container's records take in all
    EntrySlab* prev;
    EntrySlab* next;
    uint32_t firstFree;  // a place given back, plus one; they are chained by `entry`
    uint16_t capacity;
    uint16_t taken;  // places that were ever used
    uint16_t live;
};

// The slabs of a directory: those with room stand before those without.
struct EntryPool {
    List<EntrySlab, &EntrySlab::prev, &EntrySlab::next> slabs;
};

// One chunk of a sorted list of records.
struct EntryChunk {
    struct Item {
        DirEntry* entry;
        uint32_t headerPage;  // the entry's when it came here; a guess
        uint32_t pagePlace;   // for ViewPage, of that page
    };
    uint64_t* keys;  // one allocation with `items`
    Item* items;
    uint32_t start;  // entries in the chunks before
    uint32_t count;
    uint32_t capacity;
    uint32_t skip;  // units that all names begin with, at most 22
};

// The chunks of a list. The first one stands in here as long as it is the only one.
class EntryChunks {
  public:
    EntryChunks() = default;
    EntryChunks(const EntryChunks&) = delete;
    EntryChunks& operator=(const EntryChunks&) = delete;
    ~EntryChunks() { Reset(); }

    uint32_t Count() const { return count_; }
    bool Empty() const { return count_ == 0; }
    EntryChunk& operator[](uint32_t index) { return base_[index]; }
    const EntryChunk& operator[](uint32_t index) const { return base_[index]; }
    EntryChunk& Last() { return base_[count_ - 1]; }
    EntryChunk* begin() { return base_; }
    EntryChunk* end() { return base_ + count_; }

    // False when there is no memory; nothing has changed then.
    bool Insert(uint32_t index, const EntryChunk& chunk);
    bool Add(const EntryChunk& chunk) { return Insert(count_, chunk); }
    // Makes room for `count` chunks in all.
    bool Reserve(uint32_t count);
    void RemoveAt(uint32_t index);
    void Reset();

  private:
    EntryChunk only_{};
    EntryChunk* base_ = &only_;
    uint32_t count_ = 0;
    uint32_t capacity_ = 1;
};

// A sorted list of records in chunks, so that a change in the middle of a long list moves few. In
// each chunk the names have their first units in common; the four behind those stand, folded,
// beside the records as one number, so that a search comes to the records themselves only where
// these numbers are equal.
//
// The order itself is the owner's (storage/namespace/EntryOrder.cpp); the list knows only that
// names are ordered by their first 22 units before all else, folded or not.
class EntryList {
  public:
    EntryList() = default;
    EntryList(const EntryList&) = delete;
    EntryList& operator=(const EntryList&) = delete;
    ~EntryList() { Reset(); }

    // Where to count what the list allocates.
    void CountIn(uint64_t* heldBytes) { heldBytes_ = heldBytes; }

    uint32_t Count() const { return count_; }
    bool Empty() const { return count_ == 0; }
    DirEntry*& operator[](uint32_t index) { return Place(index)->entry; }
    DirEntry* operator[](uint32_t index) const { return Place(index)->entry; }
    EntryChunk::Item& ItemAt(uint32_t index) { return *Place(index); }
    const EntryChunk::Item& ItemAt(uint32_t index) const { return *Place(index); }

    // Adds behind the last one, wherever its name belongs: a Sort follows before anything else.
    bool Add(DirEntry* entry);
    // Puts all in order by `before`, in a list whose names are compared folded or not. Works with
    // more room where there is memory for it.
    template <class Before>
    void Sort(bool caseSensitive, Before before);
    // The same for a part of the list whose names agree in their first 22 units.
    template <class Before>
    void SortRun(uint32_t first, uint32_t end, Before before);

    // Makes sure that the next Insert finds memory.
    bool ReserveOne();
    bool Insert(uint32_t index, DirEntry* entry);
    void RemoveAt(uint32_t index);
    // Takes the last one off.
    DirEntry* TakeLast();
    // Gives the memory back as well.
    void Reset();

    // A place where `name` may well stand, found without a look at the records: `hint`, the one
    // behind it, or where its first units point to. False where there is no telling.
    bool Guess(platform::WStringView name, uint32_t hint, uint32_t* place) const;
    // The memory that a look-up goes through before it comes to a record; null where it is long.
    const void* Memory(uint32_t* bytes) const {
        const Chunk& chunk = chunks_[0];
        if (chunk.count - 1 >= kFew || chunks_.Count() != 1) return nullptr;
        *bytes = static_cast<uint32_t>(reinterpret_cast<const char*>(chunk.items + chunk.count) -
                                       reinterpret_cast<const char*>(chunk.keys));
        return chunk.keys;
    }
    // What stands at a place that Guess found.
    const EntryChunk::Item& Guessed(uint32_t place) const {
        const Chunk& chunk = chunks_[recent_];
        return chunk.items[place - chunk.start];
    }

    // Where names can stand that begin as `name` does, with all before being less and all behind
    // greater by their first 22 units.
    void Range(platform::WStringView name, uint32_t* low, uint32_t* high) const;

  private:
    using Chunk = EntryChunk;
    struct Keyed {
        uint64_t key;
        uint64_t next;  // the four units behind those
        DirEntry* entry;
    };
    struct Iterator;

    static constexpr uint32_t kFew = 32;

    uint32_t ChunkOf(uint32_t index) const;
    EntryChunk::Item* Place(uint32_t index) const {
        const Chunk& recent = chunks_[recent_];
        if (index - recent.start < recent.count) return &recent.items[index - recent.start];
        recent_ = ChunkOf(index);
        return &chunks_[recent_].items[index - chunks_[recent_].start];
    }
    uint64_t KeyOf(const DirEntry* entry, uint32_t skip) const;
    bool MakeChunk(uint32_t capacity, Chunk* chunk);
    void FreeChunk(Chunk* chunk);
    bool GrowOnly();
    bool Split(uint32_t at, uint32_t* index);
    void Rekey(Chunk* chunk);
    void RekeyAll();
    void Renumber(uint32_t from);
    void Merge(uint32_t at);
    // Allocates an array of all records with the units that tell them apart; null without memory.
    Keyed* MakeKeyed() const;
    void TakeKeyed(const Keyed* keyed);

    EntryChunks chunks_;  // none is empty but the one of an empty list
    uint32_t count_ = 0;
    mutable uint32_t recent_ = 0;  // the chunk last looked into
    bool caseSensitive_ = false;
    Chunk spare_{};
    uint64_t* heldBytes_ = nullptr;
};

}  // namespace storage

#include "storage/namespace/EntryListSort.h"
