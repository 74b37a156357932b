// SPDX-License-Identifier: MIT
// Records kept for reuse, threaded through a link that they do not need meanwhile.
#pragma once

#include <cstdint>

namespace storage {

// The list owns what it keeps only as long as somebody takes it all before it ends. The sanitizer
// build keeps nothing, so that it sees every use of a record that was given back.
template <class T, T* T::*Next, uint32_t Limit>
class SpareList {
  public:
    // Null when none is kept.
    T* Take() {
        T* item = first_;
        if (item == nullptr) return nullptr;
        first_ = item->*Next;
        item->*Next = nullptr;
        --count_;
        return item;
    }
    // False when enough are kept: the record stays the caller's.
    bool Keep(T* item) {
        if (count_ >= kLimit) return false;
        item->*Next = first_;
        first_ = item;
        ++count_;
        return true;
    }

  private:
#ifdef ZRFS_NO_POOLS
    static constexpr uint32_t kLimit = 0;
#else
    static constexpr uint32_t kLimit = Limit;
#endif
    T* first_ = nullptr;
    uint32_t count_ = 0;
};

}  // namespace storage
