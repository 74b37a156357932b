// SPDX-License-Identifier: MIT
// An index of items by a 32-bit number, threaded through the items.
#pragma once

#include <cstdint>

#include "platform/Heap.h"
#include "platform/Prefetch.h"

namespace storage {

// Items carry their chain link; `Number` is the member they are found by.
template <class T, uint32_t T::*Number, T* T::*Chain>
class HashTable {
  public:
    HashTable() = default;
    HashTable(const HashTable&) = delete;
    HashTable& operator=(const HashTable&) = delete;
    ~HashTable() { platform::HeapRelease(buckets_); }

    uint32_t Count() const { return count_; }
    T* Find(uint32_t number) const {
        if (buckets_ == nullptr) return nullptr;
        T* item = buckets_[Bucket(number)];
        while (item != nullptr && item->*Number != number) item = item->*Chain;
        return item;
    }
    // An item with the number is about to be looked for: first the one, and a little later the
    // other.
    void PrefetchBucket(uint32_t number) const {
        if (buckets_ != nullptr) platform::Prefetch(&buckets_[Bucket(number)], sizeof(T*));
    }
    void PrefetchItem(uint32_t number) const {
        const T* item = buckets_ != nullptr ? buckets_[Bucket(number)] : nullptr;
        if (item == nullptr) return;
        platform::Prefetch(&(item->*Number), sizeof(uint32_t));
        platform::Prefetch(&(item->*Chain), sizeof(T*));
    }
    // False when there is no memory for the first buckets; later growth that finds none is put
    // off. The number must not be in the table yet.
    bool Insert(T* item) {
        if (count_ >= size_ && !Grow() && buckets_ == nullptr) return false;
        T*& head = buckets_[Bucket(item->*Number)];
        item->*Chain = head;
        head = item;
        ++count_;
        return true;
    }
    void Remove(T* item) {
        if (buckets_ == nullptr) return;
        for (T** link = &buckets_[Bucket(item->*Number)]; *link != nullptr;
             link = &((*link)->*Chain)) {
            if (*link != item) continue;
            *link = item->*Chain;
            item->*Chain = nullptr;
            --count_;
            return;
        }
    }
    // Visits every item; the visit may remove the item it is given.
    template <class Visit>
    void ForEach(Visit visit) {
        for (uint32_t i = 0; i < size_ && count_ != 0; ++i) {
            for (T* item = buckets_[i]; item != nullptr;) {
                T* next = item->*Chain;
                visit(item);
                item = next;
            }
        }
    }

  private:
    uint32_t Bucket(uint32_t number) const { return (number * 2654435769u) >> shift_; }
    bool Grow() {
        const uint32_t size = size_ == 0 ? 256 : size_ * 2;
        T** buckets = static_cast<T**>(platform::HeapAllocateZeroed(size * sizeof(T*)));
        if (buckets == nullptr || size < size_) return false;
        T** old = buckets_;
        const uint32_t oldSize = size_;
        buckets_ = buckets;
        size_ = size;
        shift_ = oldSize == 0 ? 24 : shift_ - 1;
        for (uint32_t i = 0; i < oldSize; ++i) {
            for (T* item = old[i]; item != nullptr;) {
                T* next = item->*Chain;
                T*& head = buckets_[Bucket(item->*Number)];
                item->*Chain = head;
                head = item;
                item = next;
            }
        }
        platform::HeapRelease(old);
        return true;
    }

    T** buckets_ = nullptr;
    uint32_t size_ = 0;  // a power of two
    uint32_t shift_ = 32;
    uint32_t count_ = 0;
};

}  // namespace storage
