// SPDX-License-Identifier: MIT
// The array of the engine: plain items, a status instead of an exception, cheap at both ends.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "platform/Heap.h"

namespace storage {

// Items are trivially copyable. Removing keeps the order. A position in the front half moves the
// items before it, one in the back half those behind it, so that both ends are cheap.
template <class T>
class ItemList {
    static_assert(std::is_trivially_copyable_v<T>);

  public:
    ItemList() = default;
    ItemList(const ItemList&) = delete;
    ItemList& operator=(const ItemList&) = delete;
    ~ItemList() { platform::HeapRelease(base_); }

    uint32_t Count() const { return count_; }
    bool Empty() const { return count_ == 0; }
    T& operator[](uint32_t index) { return base_[head_ + index]; }
    const T& operator[](uint32_t index) const { return base_[head_ + index]; }
    T& Last() { return base_[head_ + count_ - 1]; }
    T* begin() { return base_ + head_; }
    T* end() { return base_ + head_ + count_; }

    // False when there is no memory; nothing has changed then.
    bool Add(T item) { return Insert(count_, item); }
    bool Insert(uint32_t index, T item) {
        if (index > count_ || !Reserve(count_ + 1)) return false;
        const bool roomBehind = head_ + count_ < capacity_;
        if (head_ > 0 && (index < count_ / 2 || !roomBehind)) {
            --head_;
            std::memmove(base_ + head_, base_ + head_ + 1, index * sizeof(T));
        } else {
            std::memmove(base_ + head_ + index + 1, base_ + head_ + index,
                         (count_ - index) * sizeof(T));
        }
        base_[head_ + index] = item;
        ++count_;
        return true;
    }
    // Makes room for `count` items in all, so that adding up to that number cannot fail.
    bool Reserve(uint32_t count);
    void RemoveAt(uint32_t index) {
        if (index < count_ / 2) {
            std::memmove(base_ + head_ + 1, base_ + head_, index * sizeof(T));
            ++head_;
        } else {
            std::memmove(base_ + head_ + index, base_ + head_ + index + 1,
                         (count_ - index - 1) * sizeof(T));
        }
        if (--count_ == 0) head_ = 0;
    }
    void Truncate(uint32_t count) {
        if (count < count_) count_ = count;
        if (count_ == 0) head_ = 0;
    }
    void Clear() { count_ = head_ = 0; }
    // Gives the memory back as well.
    void Reset() {
        platform::HeapRelease(base_);
        base_ = nullptr;
        count_ = capacity_ = head_ = 0;
    }
    // Position of an item, or -1.
    int64_t Find(T item) const {
        for (uint32_t i = 0; i < count_; ++i)
            if ((*this)[i] == item) return i;
        return -1;
    }

  private:
    T* base_ = nullptr;
    uint32_t count_ = 0;
    uint32_t capacity_ = 0;
    uint32_t head_ = 0;  // unused places before the first item
};

template <class T>
bool ItemList<T>::Reserve(uint32_t count) {
    if (count <= capacity_) return true;
    uint64_t room = uint64_t{capacity_} + (capacity_ < 9 ? 4 : capacity_ < 65 ? 16 : capacity_ / 4);
    if (room < count) room = count;
    if (room > UINT32_MAX / 2) return false;
    T* base = static_cast<T*>(platform::HeapAllocate(static_cast<size_t>(room) * sizeof(T)));
    if (base == nullptr) return false;
    // Half of the growth stays in front, for lists that grow there, unless this one never did.
    const uint32_t head = head_ == 0 ? 0 : static_cast<uint32_t>(room - count_) / 2;
    if (count_ != 0) std::memcpy(base + head, base_ + head_, count_ * sizeof(T));
    platform::HeapRelease(base_);
    base_ = base;
    head_ = head;
    capacity_ = static_cast<uint32_t>(room);
    return true;
}

template <class T>
using PointerList = ItemList<T*>;
using NumberList = ItemList<uint32_t>;

}  // namespace storage
