// SPDX-License-Identifier: MIT
#include "storage/namespace/EntryList.h"

#include "platform/Heap.h"
#include "platform/Prefetch.h"

namespace storage {

namespace {

using platform::Fold;
using platform::WStringView;

// The sanitizer build has short chunks, so that short lists have many.
#ifdef ZRFS_NO_POOLS
constexpr uint32_t kFirstCapacity = 2;
constexpr uint32_t kCapacity = 8;
#else
constexpr uint32_t kFirstCapacity = 8;
constexpr uint32_t kCapacity = 512;
#endif

constexpr uint32_t kShort = 64;  // records, of a list that is searched in few steps
constexpr size_t kPlaceSize = sizeof(uint64_t) + sizeof(EntryChunk::Item);

WStringView FirstUnits(const DirEntry* entry) {
    return {entry->name, entry->nameUnits < kEntryNameUnits ? entry->nameUnits : kEntryNameUnits};
}

inline uint32_t Unit(WStringView name, uint32_t at, bool caseSensitive) {
    if (at >= name.size()) return 0;
    return caseSensitive ? name[at] : Fold(name[at]);
}

uint32_t CommonUnits(WStringView a, WStringView b, uint32_t limit, bool caseSensitive) {
    uint32_t units = 0;
    while (units < limit && units < a.size() && units < b.size() &&
           Unit(a, units, caseSensitive) == Unit(b, units, caseSensitive))
        ++units;
    return units;
}

// Four units behind `skip` as one number that is ordered as they are; what is not there counts as
// 0, and equal numbers say nothing.
inline uint64_t KeyOfName(WStringView name, uint32_t skip, bool caseSensitive) {
    uint64_t key = 0;
    if (skip + 4 <= name.size() && !caseSensitive) {
        const WChar* units = name.data() + skip;
        for (uint32_t i = 0; i < 4; ++i) key = key << 16 | Fold(units[i]);
        return key;
    }
    for (uint32_t i = 0; i < 4; ++i) key = key << 16 | Unit(name, skip + i, caseSensitive);
    return key;
}

int CompareFirst(WStringView a, WStringView b, bool caseSensitive) {
    const uint32_t common = CommonUnits(a, b, kEntryNameUnits, caseSensitive);
    if (common == a.size() || common == b.size())
        return a.size() == b.size() ? 0 : a.size() < b.size() ? -1 : 1;
    return Unit(a, common, caseSensitive) < Unit(b, common, caseSensitive) ? -1 : 1;
}

}  // namespace

bool EntryChunks::Reserve(uint32_t count) {
    if (count <= capacity_) return true;
    const uint32_t room = std::max(count, 2 * capacity_ + 2);
    auto* base = static_cast<EntryChunk*>(platform::HeapAllocate(room * sizeof(EntryChunk)));
    if (base == nullptr) return false;
    std::memcpy(base, base_, count_ * sizeof *base);
    if (base_ != &only_) platform::HeapRelease(base_);
    base_ = base;
    capacity_ = room;
    return true;
}

bool EntryChunks::Insert(uint32_t index, const EntryChunk& chunk) {
    if (!Reserve(count_ + 1)) return false;
    std::memmove(base_ + index + 1, base_ + index, (count_ - index) * sizeof *base_);
    base_[index] = chunk;
    ++count_;
    return true;
}

void EntryChunks::RemoveAt(uint32_t index) {
    --count_;
    std::memmove(base_ + index, base_ + index + 1, (count_ - index) * sizeof *base_);
}

void EntryChunks::Reset() {
    if (base_ != &only_) platform::HeapRelease(base_);
    only_ = {};
    base_ = &only_;
    count_ = 0;
    capacity_ = 1;
}

uint64_t EntryList::KeyOf(const DirEntry* entry, uint32_t skip) const {
    return KeyOfName(FirstUnits(entry), skip, caseSensitive_);
}

uint32_t EntryList::ChunkOf(uint32_t index) const {
    uint32_t low = 0;
    for (uint32_t high = chunks_.Count(); high - low > 1;) {
        const uint32_t mid = low + (high - low) / 2;
        if (chunks_[mid].start <= index)
            low = mid;
        else
            high = mid;
    }
    return low;
}

bool EntryList::MakeChunk(uint32_t capacity, Chunk* chunk) {
    void* memory = platform::HeapAllocate(capacity * kPlaceSize);
    if (memory == nullptr) return false;
    *chunk = Chunk{};
    chunk->keys = static_cast<uint64_t*>(memory);
    chunk->items = reinterpret_cast<EntryChunk::Item*>(chunk->keys + capacity);
    chunk->capacity = capacity;
    if (heldBytes_ != nullptr) *heldBytes_ += capacity * kPlaceSize;
    return true;
}

void EntryList::FreeChunk(Chunk* chunk) {
    if (chunk->keys == nullptr) return;
    if (heldBytes_ != nullptr) *heldBytes_ -= chunk->capacity * kPlaceSize;
    platform::HeapRelease(chunk->keys);
    *chunk = Chunk{};
}

void EntryList::Reset() {
    for (Chunk& chunk : chunks_) FreeChunk(&chunk);
    FreeChunk(&spare_);
    chunks_.Reset();
    count_ = recent_ = 0;
}

// A list of one chunk begins small.
bool EntryList::GrowOnly() {
    Chunk grown;
    const uint32_t capacity = chunks_.Empty() ? kFirstCapacity : chunks_[0].capacity * 2;
    if (!chunks_.Reserve(1)) return false;
    if (!MakeChunk(capacity < kCapacity ? capacity : kCapacity, &grown)) return false;
    if (chunks_.Empty()) return chunks_.Add(grown);
    Chunk& old = chunks_[0];
    grown.count = old.count;
    grown.skip = old.skip;
    std::memcpy(grown.keys, old.keys, old.count * sizeof *old.keys);
    std::memcpy(grown.items, old.items, old.count * sizeof *old.items);
    FreeChunk(&old);
    old = grown;
    return true;
}

bool EntryList::ReserveOne() {
    if (chunks_.Empty()) return GrowOnly();
    if (chunks_.Count() == 1 && chunks_[0].capacity < kCapacity)
        return chunks_[0].count < chunks_[0].capacity || GrowOnly();
    return chunks_.Reserve(chunks_.Count() + 1) &&
           (spare_.keys != nullptr || MakeChunk(kCapacity, &spare_));
}

bool EntryList::Add(DirEntry* entry) {
    if (chunks_.Empty() || chunks_.Last().count == chunks_.Last().capacity) {
        if (!ReserveOne()) return false;
        if (chunks_.Last().count == chunks_.Last().capacity) {
            spare_.start = count_;
            chunks_.Add(spare_);
            spare_ = Chunk{};
        }
    }
    Chunk& last = chunks_.Last();
    last.items[last.count++] = {entry, entry->headerPage, 0};
    ++count_;
    return true;
}

// What all names of a sorted chunk have in common its first and last one have.
void EntryList::Rekey(Chunk* chunk) {
    const DirEntry* last = chunk->items[chunk->count - 1].entry;
    chunk->skip = CommonUnits(FirstUnits(chunk->items[0].entry), FirstUnits(last), kEntryNameUnits,
                              caseSensitive_);
    for (uint32_t i = 0; i < chunk->count; ++i) {
        const DirEntry* entry = chunk->items[i].entry;
        chunk->keys[i] = KeyOf(entry, chunk->skip);
        chunk->items[i].headerPage = entry->headerPage;
    }
}

void EntryList::RekeyAll() {
    for (Chunk& chunk : chunks_) Rekey(&chunk);
}

void EntryList::Renumber(uint32_t from) {
    uint32_t start = from == 0 ? 0 : chunks_[from - 1].start + chunks_[from - 1].count;
    for (uint32_t i = from; i < chunks_.Count(); ++i) {
        chunks_[i].start = start;
        start += chunks_[i].count;
    }
}

// The upper half of a full chunk moves to the spare one; behind the last record of all nothing
// moves, so that a list that grows there has full chunks. *index becomes that of the chunk to
// insert into.
bool EntryList::Split(uint32_t at, uint32_t* index) {
    if (spare_.keys == nullptr && !MakeChunk(kCapacity, &spare_)) return false;
    Chunk made = spare_;
    if (!chunks_.Insert(at + 1, made)) return false;
    spare_ = Chunk{};
    Chunk& full = chunks_[at];
    Chunk& next = chunks_[at + 1];
    const uint32_t place = *index - full.start;
    const bool atEnd = at + 2 == chunks_.Count() && place == full.count;
    const uint32_t kept = atEnd ? full.count : full.count / 2;
    next.start = full.start + kept;
    next.count = full.count - kept;
    std::memcpy(next.items, full.items + kept, next.count * sizeof *next.items);
    full.count = kept;
    if (!atEnd) {
        Rekey(&full);
        Rekey(&next);
    }
    *index = place > kept || atEnd ? at + 1 : at;
    return true;
}

bool EntryList::Insert(uint32_t index, DirEntry* entry) {
    if (chunks_.Empty() && !GrowOnly()) return false;
    uint32_t at = index == count_ ? chunks_.Count() - 1 : ChunkOf(index);
    if (chunks_[at].count == chunks_[at].capacity) {
        if (chunks_[at].capacity < kCapacity) {
            if (!GrowOnly()) return false;
        } else {
            uint32_t target = index;
            if (!Split(at, &target)) return false;
            at = target;
        }
    }
    Chunk& chunk = chunks_[at];
    const uint32_t place = index - chunk.start;
    const uint32_t behind = chunk.count - place;
    std::memmove(chunk.keys + place + 1, chunk.keys + place, behind * sizeof *chunk.keys);
    std::memmove(chunk.items + place + 1, chunk.items + place, behind * sizeof *chunk.items);
    chunk.items[place] = {entry, entry->headerPage, 0};
    ++chunk.count;
    ++count_;
    const DirEntry* other = chunk.items[place == 0 ? chunk.count - 1 : 0].entry;
    if (chunk.count > 1 &&
        CommonUnits(FirstUnits(other), FirstUnits(entry), chunk.skip, caseSensitive_) == chunk.skip)
        chunk.keys[place] = KeyOf(entry, chunk.skip);
    else
        Rekey(&chunk);
    for (uint32_t i = at + 1; i < chunks_.Count(); ++i) ++chunks_[i].start;
    return true;
}

void EntryList::RemoveAt(uint32_t index) {
    const uint32_t at = ChunkOf(index);
    Chunk& chunk = chunks_[at];
    const uint32_t place = index - chunk.start;
    const uint32_t behind = chunk.count - place - 1;
    std::memmove(chunk.keys + place, chunk.keys + place + 1, behind * sizeof *chunk.keys);
    std::memmove(chunk.items + place, chunk.items + place + 1, behind * sizeof *chunk.items);
    --chunk.count;
    --count_;
    for (uint32_t i = at + 1; i < chunks_.Count(); ++i) --chunks_[i].start;
    Merge(at);
}

DirEntry* EntryList::TakeLast() {
    Chunk& last = chunks_.Last();
    DirEntry* entry = last.items[last.count - 1].entry;
    if (last.count == 1) {
        RemoveAt(count_ - 1);
    } else {
        --last.count;
        --count_;
    }
    return entry;
}

// An empty chunk goes, and one of few records takes up the next one if that has few, too.
void EntryList::Merge(uint32_t at) {
    Chunk& chunk = chunks_[at];
    if (chunk.count != 0) {
        if (at + 1 >= chunks_.Count() || chunk.count + chunks_[at + 1].count > kCapacity / 4)
            return;
        Chunk& next = chunks_[at + 1];
        std::memcpy(chunk.items + chunk.count, next.items, next.count * sizeof *next.items);
        chunk.count += next.count;
        Rekey(&chunk);
        ++at;
    }
    recent_ = 0;
    FreeChunk(&chunks_[at]);
    chunks_.RemoveAt(at);
}

// The names of a chunk begin alike; that `name` does, too, is left to who compares it.
bool EntryList::Guess(WStringView name, uint32_t hint, uint32_t* place) const {
    if (recent_ >= chunks_.Count()) return false;
    const Chunk& chunk = chunks_[recent_];
    // All at once what a search would come to step by step.
    if (chunk.count <= kShort && chunk.count != 0)
        platform::Prefetch(chunk.keys, chunk.count * sizeof *chunk.keys);
    const uint64_t key = KeyOfName(name, chunk.skip, caseSensitive_);
    const uint64_t* const keys = chunk.keys;
    const uint32_t at = hint - chunk.start;
    if (at < chunk.count && keys[at] == key) {
        *place = hint;
        return true;
    }
    if (at + 1 < chunk.count && keys[at + 1] == key) {
        *place = hint + 1;
        return true;
    }
    if (chunks_.Count() != 1 || chunk.count == 0) return false;
    const uint64_t* base = keys;
    for (uint32_t left = chunk.count; left > 1;) {
        const uint32_t half = left / 2;
        base += base[half - 1] < key ? half : 0;
        left -= half;
    }
    *place = static_cast<uint32_t>(base - keys);
    return *base == key;
}

void EntryList::Range(WStringView name, uint32_t* low, uint32_t* high) const {
    if (name.size() > kEntryNameUnits) name = name.substr(0, kEntryNameUnits);
    *low = *high = count_;
    if (count_ == 0) return;
    // The first chunk that does not end before the name.
    uint32_t at = 0;
    for (uint32_t end = chunks_.Count(); at < end;) {
        const uint32_t mid = at + (end - at) / 2;
        const Chunk& chunk = chunks_[mid];
        const bool before =
            mid + 1 < chunks_.Count() &&
            CompareFirst(FirstUnits(chunk.items[chunk.count - 1].entry), name, caseSensitive_) < 0;
        if (before)
            at = mid + 1;
        else
            end = mid;
    }
    for (bool first = true; at < chunks_.Count(); first = false, ++at) {
        const Chunk& chunk = chunks_[at];
        const WStringView begin = FirstUnits(chunk.items[0].entry).substr(0, chunk.skip);
        const int order = CompareFirst(begin, name.substr(0, chunk.skip), caseSensitive_);
        const uint64_t key = KeyOfName(name, chunk.skip, caseSensitive_);
        const uint64_t* const keys = chunk.keys;
        const uint64_t* const end = keys + chunk.count;
        const uint64_t* from = order > 0   ? keys
                               : order < 0 ? end
                                           : std::lower_bound(keys, end, key);
        const uint64_t* to = order == 0 ? std::upper_bound(from, end, key) : from;
        if (first) *low = chunk.start + static_cast<uint32_t>(from - keys);
        *high = chunk.start + static_cast<uint32_t>(to - keys);
        if (to < end) return;
    }
}

EntryList::Keyed* EntryList::MakeKeyed() const {
    if (count_ == 0) return nullptr;
    auto* keyed = static_cast<Keyed*>(platform::HeapAllocate(count_ * sizeof(Keyed)));
    if (keyed == nullptr) return nullptr;
    uint32_t skip = kEntryNameUnits;
    const WStringView first = FirstUnits(Place(0)->entry);
    for (uint32_t i = 0; i < count_; ++i) {
        keyed[i].entry = Place(i)->entry;
        skip = CommonUnits(first, FirstUnits(keyed[i].entry), skip, caseSensitive_);
    }
    for (uint32_t i = 0; i < count_; ++i) {
        keyed[i].key = KeyOf(keyed[i].entry, skip);
        keyed[i].next = KeyOf(keyed[i].entry, skip + 4);
    }
    return keyed;
}

void EntryList::TakeKeyed(const Keyed* keyed) {
    for (uint32_t i = 0; i < count_; ++i) Place(i)->entry = keyed[i].entry;
}

}  // namespace storage
