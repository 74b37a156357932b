// SPDX-License-Identifier: MIT
// What a file says of a key or a value more than once: the last word counts. A file may be larger
// than the memory, so that places are remembered by their hashes.
#pragma once

#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "tools/store/TreeWriter.h"

namespace fbr {

// Hashes of keys and values by their paths and names, in any case of A to Z.
class PlaceHash {
  public:
    // A key and, when `unnamedIsDefault`, the unnamed value and "(Default)" are one.
    explicit PlaceHash(bool unnamedIsDefault) : unnamedIsDefault_(unnamedIsDefault) {}

    uint64_t Key(platform::WStringView path) const;
    uint64_t Value(platform::WStringView path, platform::WStringView name) const;
    // Empty for all names of the unnamed value.
    platform::WStringView Name(platform::WStringView name) const;

  private:
    bool unnamedIsDefault_;
};

// The places of which a file speaks more than once. Give it each record, then call Finish.
class Repeats {
  public:
    explicit Repeats(bool unnamedIsDefault) : hash_(unnamedIsDefault) {}

    void Take(platform::WStringView path, const Record& record);
    void Finish();

    // Of records given in order: which of their places one before had.
    TreeWriter::Again Met(platform::WStringView path, const Record& record);
    bool Has(uint64_t hash) const { return repeated_.contains(hash); }
    bool RemovesKeys() const { return removesKeys_; }
    bool Any() const { return !repeated_.empty() || removesKeys_; }
    const PlaceHash& Hash() const { return hash_; }

  private:
    const PlaceHash hash_;
    std::vector<uint64_t> all_;
    platform::WString path_;  // of the record before
    std::unordered_set<uint64_t> repeated_, met_;
    bool removesKeys_ = false;
};

// The numbers, from 1 on, of the records that have the last word; 0 where there is none.
class LastWords {
  public:
    explicit LastWords(const Repeats& repeats) : repeats_(repeats) {}

    // Each record, in order.
    void Take(platform::WStringView path, const Record& record);

    bool IsLast(platform::WStringView path, const Record& record, uint64_t number) const;
    uint64_t OfValue(platform::WStringView path, platform::WStringView name) const;
    // The record that removes the key last, or one above it.
    uint64_t Removal(platform::WStringView path) const;
    // True when the key is removed, and not made again.
    bool IsGone(platform::WStringView path) const;
    const PlaceHash& Hash() const { return repeats_.Hash(); }

  private:
    static uint64_t In(const std::unordered_map<uint64_t, uint64_t>& words, uint64_t hash);

    const Repeats& repeats_;
    uint64_t number_ = 0;
    platform::WString path_;  // of the record before, empty behind a removal
    // By hashes of values; of keys: removals, and what makes one or something below it.
    std::unordered_map<uint64_t, uint64_t> values_, removals_, makings_;
};

}  // namespace fbr
