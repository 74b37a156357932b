// SPDX-License-Identifier: MIT
// A doubly linked list threaded through its items: no allocation, removal in constant time.
#pragma once

namespace storage {

// `Prev` and `Next` are the item's link members; an item is on one list a pair of links at most.
template <class T, T* T::*Prev, T* T::*Next>
struct List {
    T* head = nullptr;
    T* tail = nullptr;

    bool Empty() const { return head == nullptr; }
    void PushBack(T* item) {
        item->*Prev = tail;
        item->*Next = nullptr;
        (tail != nullptr ? tail->*Next : head) = item;
        tail = item;
    }
    void PushFront(T* item) {
        item->*Next = head;
        item->*Prev = nullptr;
        (head != nullptr ? head->*Prev : tail) = item;
        head = item;
    }
    void Remove(T* item) {
        (item->*Prev != nullptr ? (item->*Prev)->*Next : head) = item->*Next;
        (item->*Next != nullptr ? (item->*Next)->*Prev : tail) = item->*Prev;
        item->*Prev = item->*Next = nullptr;
    }
};

}  // namespace storage
