// SPDX-License-Identifier: MIT
// What an enumeration of the library hands out, as a range.
#ifndef ZRFS_LISTING_HPP
#define ZRFS_LISTING_HPP

#include "error.hpp"

#include <functional>
#include <iterator>
#include <optional>
#include <utility>

namespace zrfs {

// What an enumeration of the library hands out, as an input range. Entry i is asked for when it is
// wanted; under a ReadLock or WriteLock all are of one state.
template <class Item>
class Listing {
  public:
    // Entry i, nothing behind the last.
    using Fetch = std::function<std::optional<Item>(uint32_t)>;

    class Iterator {
      public:
        using iterator_concept = std::input_iterator_tag;
        using value_type = Item;
        using difference_type = std::ptrdiff_t;

        Iterator() = default;
        explicit Iterator(const Fetch& fetch) : fetch_(&fetch) { load(); }
        const Item& operator*() const { return *item_; }
        const Item* operator->() const { return &*item_; }
        Iterator& operator++() {
            ++index_;
            load();
            return *this;
        }
        void operator++(int) { ++*this; }
        bool operator==(std::default_sentinel_t) const { return !item_; }

      private:
        void load() { item_ = (*fetch_)(index_); }
        const Fetch* fetch_ = nullptr;
        uint32_t index_ = 0;
        std::optional<Item> item_;
    };

    explicit Listing(Fetch fetch) : fetch_(std::move(fetch)) {}
    Iterator begin() const { return Iterator(fetch_); }
    std::default_sentinel_t end() const { return {}; }

  private:
    Fetch fetch_;
};

}  // namespace zrfs

#endif
