// SPDX-License-Identifier: MIT
// Sorting a list of records; part of storage/namespace/EntryList.h.
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "platform/Heap.h"

namespace storage {

struct EntryList::Iterator {
    using iterator_category = std::random_access_iterator_tag;
    using value_type = DirEntry*;
    using difference_type = std::ptrdiff_t;
    using pointer = DirEntry**;
    using reference = DirEntry*&;

    const EntryList* list;
    difference_type index;

    reference operator*() const { return list->Place(static_cast<uint32_t>(index))->entry; }
    reference operator[](difference_type n) const { return *(*this + n); }
    Iterator& operator++() { return ++index, *this; }
    Iterator& operator--() { return --index, *this; }
    Iterator operator++(int) { return {list, index++}; }
    Iterator operator--(int) { return {list, index--}; }
    Iterator& operator+=(difference_type n) { return index += n, *this; }
    Iterator& operator-=(difference_type n) { return index -= n, *this; }
    Iterator operator+(difference_type n) const { return {list, index + n}; }
    Iterator operator-(difference_type n) const { return {list, index - n}; }
    difference_type operator-(const Iterator& other) const { return index - other.index; }
    bool operator==(const Iterator& other) const { return index == other.index; }
    auto operator<=>(const Iterator& other) const { return index <=> other.index; }
};

template <class Before>
void EntryList::SortRun(uint32_t first, uint32_t end, Before before) {
    std::sort(Iterator{this, first}, Iterator{this, end}, before);
}

template <class Before>
void EntryList::Sort(bool caseSensitive, Before before) {
    caseSensitive_ = caseSensitive;
    if (count_ == 0) return;
    if (Keyed* keyed = MakeKeyed()) {
        const auto keyedBefore = [&before](const Keyed& a, const Keyed& b) {
            if (a.key != b.key) return a.key < b.key;
            return a.next != b.next ? a.next < b.next : before(a.entry, b.entry);
        };
        if (!std::is_sorted(keyed, keyed + count_, keyedBefore)) {
            std::sort(keyed, keyed + count_, keyedBefore);
            TakeKeyed(keyed);
        }
        platform::HeapRelease(keyed);
    } else {
        SortRun(0, count_, before);
    }
    RekeyAll();
}

}  // namespace storage
