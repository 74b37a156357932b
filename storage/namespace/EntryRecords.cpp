// SPDX-License-Identifier: MIT
#include "storage/namespace/EntryRecords.h"

#include <algorithm>

namespace storage {

namespace {

// The sanitizer build gives each record an allocation, so that it sees every use of one that was
// given back.
#ifdef ZRFS_NO_POOLS
constexpr uint32_t kFewest = 1;
constexpr uint32_t kMost = 1;
#else
constexpr uint32_t kFewest = 4;
constexpr uint32_t kMost = 256;
#endif

DirEntry* RecordsOf(EntrySlab* slab) {
    return reinterpret_cast<DirEntry*>(slab + 1);
}

size_t BytesOf(uint32_t capacity) {
    return sizeof(EntrySlab) + capacity * sizeof(DirEntry);
}

bool HasRoom(const EntrySlab* slab) {
    return slab->taken < slab->capacity || slab->firstFree != 0;
}

EntrySlab* SlabOf(DirEntry* entry) {
    return reinterpret_cast<EntrySlab*>(entry - entry->slot) - 1;
}

EntrySlab* MakeSlab(ObjectState* state, uint32_t capacity) {
    const size_t bytes = BytesOf(capacity);
    auto* slab = static_cast<EntrySlab*>(platform::HeapAllocate(bytes));
    if (slab == nullptr) return nullptr;
    *slab = EntrySlab{};
    slab->capacity = static_cast<uint16_t>(capacity);
    slab->heldBytes = &state->entryBytes;
    state->entryBytes += bytes;
    return slab;
}

void FreeSlab(EntrySlab* slab) {
    *slab->heldBytes -= BytesOf(slab->capacity);
    platform::HeapRelease(slab);
}

DirEntry* TakeRecord(EntrySlab* slab) {
    uint32_t place = slab->taken;
    if (slab->firstFree != 0) {
        place = slab->firstFree - 1;
        slab->firstFree = RecordsOf(slab)[place].entry;
    } else {
        ++slab->taken;
    }
    ++slab->live;
    DirEntry* entry = RecordsOf(slab) + place;
    std::memset(entry, 0, sizeof *entry);
    entry->name = entry->shortName;
    entry->slot = static_cast<uint16_t>(place);
    return entry;
}

}  // namespace

// Slabs with room stand before those without.
DirEntry* NewDirEntry(ObjectState* state, EntryPool* pool, uint32_t expected) {
    EntrySlab* slab = pool != nullptr ? pool->slabs.head : nullptr;
    if (slab == nullptr || !HasRoom(slab)) {
        slab = MakeSlab(state, pool == nullptr ? 1 : std::clamp(expected, kFewest, kMost));
        if (slab == nullptr) return nullptr;
        slab->pool = pool;
        if (pool != nullptr) pool->slabs.PushFront(slab);
    }
    DirEntry* entry = TakeRecord(slab);
    if (pool != nullptr && !HasRoom(slab)) {
        pool->slabs.Remove(slab);
        pool->slabs.PushBack(slab);
    }
    return entry;
}

void DestroyDirEntry(DirEntry* entry) {
    SetLongName(entry, nullptr, 0);
    EntrySlab* slab = SlabOf(entry);
    EntryPool* pool = slab->pool;
    if (--slab->live == 0) {
        if (pool != nullptr) pool->slabs.Remove(slab);
        FreeSlab(slab);
        return;
    }
    const bool hadRoom = HasRoom(slab);
    entry->entry = slab->firstFree;
    slab->firstFree = entry->slot + 1u;
    if (pool == nullptr || hadRoom) return;
    pool->slabs.Remove(slab);
    pool->slabs.PushFront(slab);
}

void LeaveSlabs(EntryPool* pool) {
    while (EntrySlab* slab = pool->slabs.head) {
        pool->slabs.Remove(slab);
        slab->pool = nullptr;
    }
}

void SetLongName(DirEntry* entry, WChar* text, uint32_t units) {
    uint64_t& held = *SlabOf(entry)->heldBytes;
    if (entry->name != entry->shortName) {
        held -= uint64_t{entry->nameUnits} * sizeof(WChar);
        platform::HeapRelease(entry->name);
    }
    entry->name = text != nullptr ? text : entry->shortName;
    if (text == nullptr) return;
    entry->nameUnits = units;
    held += uint64_t{units} * sizeof(WChar);
}

}  // namespace storage
