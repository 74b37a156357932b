// SPDX-License-Identifier: MIT
#include "tools/commands/LastWords.h"

#include <algorithm>

#include "tools/store/Place.h"

namespace fbr {
namespace {

using platform::WStringView;

uint64_t Added(uint64_t hash, WStringView text) {
    for (const WChar unit : text)
        hash = (hash ^ static_cast<uint16_t>(platform::Fold(unit))) * 0x100000001B3u;
    return hash ^ hash >> 32;
}

bool IsOfValue(const Record& record) {
    return record.kind == Record::Kind::kValue || record.kind == Record::Kind::kDeleteValue;
}

}  // namespace

uint64_t PlaceHash::Key(WStringView path) const {
    return Added(0xCBF29CE484222325u, path);
}

uint64_t PlaceHash::Value(WStringView path, WStringView name) const {
    return Added(Key(path) * 0x9E3779B97F4A7C15u + 1, Name(name));
}

WStringView PlaceHash::Name(WStringView name) const {
    const bool unnamed =
        unnamedIsDefault_ && platform::CompareFolded(name, WTEXT("(Default)")) == 0;
    return unnamed ? WStringView() : name;
}

void Repeats::Take(WStringView path, const Record& record) {
    const bool removes = record.kind == Record::Kind::kDeleteKey;
    removesKeys_ |= removes;
    if (!removes && path != path_) all_.push_back(hash_.Key(path));
    path_ = removes ? WStringView() : path;
    if (IsOfValue(record)) all_.push_back(hash_.Value(path, record.name));
}

void Repeats::Finish() {
    std::sort(all_.begin(), all_.end());
    for (auto at = all_.begin(); (at = std::adjacent_find(at, all_.end())) != all_.end(); ++at)
        repeated_.insert(*at);
    std::vector<uint64_t>().swap(all_);
}

TreeWriter::Again Repeats::Met(WStringView path, const Record& record) {
    if (repeated_.empty() || record.kind == Record::Kind::kDeleteKey) return {false, false};
    const auto met = [this](uint64_t hash) { return Has(hash) && !met_.insert(hash).second; };
    const bool key = met(hash_.Key(path));
    return {key, IsOfValue(record) && met(hash_.Value(path, record.name))};
}

// All counts where keys are removed; else what is said once needs no memory.
void LastWords::Take(WStringView path, const Record& record) {
    ++number_;
    if (record.kind == Record::Kind::kDeleteKey) {
        removals_[Hash().Key(path)] = number_;
        path_.clear();
        return;
    }
    if (IsOfValue(record)) {
        const uint64_t hash = Hash().Value(path, record.name);
        if (repeats_.RemovesKeys() || repeats_.Has(hash)) values_[hash] = number_;
    }
    if (!repeats_.RemovesKeys() || path == path_) return;
    // The keys above that the record before made, too, were made after the same removals.
    for (WStringView key = path; !key.empty() && !IsAtOrBelow(path_, key); key = PathAbove(key))
        makings_[Hash().Key(key)] = number_;
    path_ = path;
}

uint64_t LastWords::In(const std::unordered_map<uint64_t, uint64_t>& words, uint64_t hash) {
    const auto at = words.find(hash);
    return at == words.end() ? 0 : at->second;
}

bool LastWords::IsLast(WStringView path, const Record& record, uint64_t number) const {
    const uint64_t last = OfValue(path, record.name);
    return last == 0 || last == number;
}

uint64_t LastWords::OfValue(WStringView path, WStringView name) const {
    return In(values_, Hash().Value(path, name));
}

uint64_t LastWords::Removal(WStringView path) const {
    uint64_t last = 0;
    if (!repeats_.RemovesKeys()) return last;
    for (WStringView key = path;; key = PathAbove(key)) {
        last = std::max(last, In(removals_, Hash().Key(key)));
        if (key.empty()) return last;
    }
}

bool LastWords::IsGone(WStringView path) const {
    const uint64_t removal = Removal(path);
    return !path.empty() && removal != 0 && In(makings_, Hash().Key(path)) < removal;
}

}  // namespace fbr
