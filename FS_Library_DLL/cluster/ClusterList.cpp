// SPDX-License-Identifier: MIT
// The names of what a key holds.
#include "FS_Library_DLL/cluster/ClusterValues.h"
#include "FS_Library_DLL/cluster/ClusterWalk.h"
#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {
namespace {

constexpr int kMostTries = 5;
constexpr int64_t kNamesAtOnce = 1000;
constexpr size_t kMostListings = 8;
constexpr size_t kMostKeptBytes = 4u << 20;

// One listing, page by page, as it was when the first page was read.
class Reading {
  public:
    Reading(ClusterStore& store, const std::string& id, Kind kind)
        : store_(store),
          span_(kind == Kind::Values ? store.names.Values(id) : store.names.Children(id)),
          listing{id, kind, {}} {}

    Outcome Read() ZRFS_REQUIRES(store_.lock);
    void Keep() ZRFS_REQUIRES(store_.lock);

    bool isThere = true;  // the key
    std::string damaged;  // a record that is none
  private:
    Outcome ReadFirst(RangeReply* page) ZRFS_REQUIRES(store_.lock);
    bool Add(const RangeReply& page);

    ClusterStore& store_;
    const Span span_;
    int64_t revision_ = 0;
    int64_t atOnce_ = kNamesAtOnce;
    size_t bytes_ = 0;
    std::vector<std::pair<std::string, ValueRecord>> values_;
    std::vector<std::pair<std::string, Child>> children_;

  public:
    Listing listing;
};

Outcome Reading::ReadFirst(RangeReply* page) {
    Transaction look;
    look.ifTrue = {Get({store_.names.Key(listing.id)}), Get({store_.names.Time(listing.id)}),
                   Get(span_, atOnce_)};
    TransactionReply reply;
    const Outcome outcome = store_.api.Do(look, &reply);
    if (outcome != Outcome::Answered) return outcome;
    isThere = !reply.results[0].found.empty();
    listing.time = reply.results[1].found.empty() ? 0 : reply.results[1].found[0].modified;
    revision_ = reply.revision;
    *page = std::move(reply.results[2]);
    return outcome;
}

bool Reading::Add(const RangeReply& page) {
    for (const KeyValue& pair : page.found) {
        damaged = pair.key;
        bytes_ += pair.value.size() + 200;
        const bool keeps = bytes_ <= kMostKeptBytes;
        if (!keeps) values_.clear(), children_.clear();
        std::string folded = RestOf(pair.key, span_);
        if (listing.kind == Kind::Children) {
            Child child;
            if (!ReadChildOf(pair, span_, &child, &folded)) return false;
            listing.names.push_back(child.name);
            if (keeps) children_.emplace_back(std::move(folded), std::move(child));
        } else if (keeps) {
            ValueRecord value;
            if (!ReadValue(pair.value, folded, &value)) return false;
            listing.names.push_back(value.name);
            values_.emplace_back(std::move(folded), std::move(value));
        } else if (!ReadValueName(pair.value, folded, &listing.names.emplace_back())) {
            return false;
        }
    }
    damaged.clear();
    return true;
}

// A page with long values is asked for again as a smaller one.
Outcome Reading::Read() {
    std::string next;
    for (;;) {
        RangeReply page;
        const Outcome outcome =
            next.empty() ? ReadFirst(&page)
                         : store_.api.Range({{next, span_.to}, atOnce_, revision_}, &page);
        if (outcome == Outcome::TooLarge && atOnce_ > 1) {
            atOnce_ /= 10;
            continue;
        }
        if (outcome != Outcome::Answered || !Add(page) || !page.hasMore || page.found.empty())
            return outcome;
        next = page.found.back().key + '\0';
    }
}

// All of it that is not too much, where nobody can change it.
void Reading::Keep() {
    KeptReads* kept = store_.Kept();
    if (kept == nullptr || bytes_ > kMostKeptBytes) return;
    kept->Count(bytes_);
    if (listing.kind == Kind::Children) {
        auto& children = kept->Children(listing.id);
        for (auto& [folded, child] : children_) children.found[folded] = std::move(child);
        children.isAll = true;
        return;
    }
    auto& values = kept->Values(listing.id);
    bool all = true;
    for (auto& [folded, value] : values_)
        if (value.pieces.empty())
            values.found[folded] = std::move(value);
        else
            all = false;
    values.isAll = all;
}

// Whether a listing is still what the key holds: nothing in it has changed since.
Outcome IsStillSo(ClusterStore& store, const Listing& listing, bool* isSo)
    ZRFS_REQUIRES(store.lock) {
    *isSo = true;
    if (store.Kept() != nullptr) return Outcome::Answered;
    Transaction look;
    look.compares = {IsThere(store.names.Key(listing.id)),
                     {Compare::What::Modified,
                      Compare::How::Equal,
                      {store.names.Time(listing.id)},
                      listing.time}};
    TransactionReply reply;
    const Outcome outcome = store.api.Do(look, &reply);
    *isSo = reply.isTrue;
    return outcome;
}

}  // namespace

FBR_STATUS List(ClusterStore& store, const OpenedKey& key, Kind kind, bool mayBeKept,
                const Listing** listing) {
    KeptReads* kept = store.Kept();
    auto& listings = store.listings;
    for (size_t i = 0; i < listings.size(); ++i) {
        if (listings[i].id != key.id || listings[i].kind != kind) continue;
        bool isSo = false;
        if (mayBeKept || kept != nullptr) {
            const Outcome outcome = IsStillSo(store, listings[i], &isSo);
            if (outcome != Outcome::Answered) return store.StatusOf(outcome);
        }
        *listing = &listings[i];
        if (isSo) return FSSTATUS_SUCCESS;
        listings.erase(listings.begin() + static_cast<ptrdiff_t>(i));
        break;
    }
    Outcome outcome = Outcome::Compacted;
    for (int tries = 0; tries < kMostTries && outcome == Outcome::Compacted; ++tries) {
        Reading reading(store, key.id, kind);
        outcome = reading.Read();
        if (outcome != Outcome::Answered) continue;
        if (!reading.isThere) return FSSTATUS_NOT_FOUND;
        if (!reading.damaged.empty()) return store.Damaged(reading.damaged);
        reading.Keep();
        if (listings.size() == kMostListings) listings.erase(listings.begin());
        listings.push_back(std::move(reading.listing));
        *listing = &listings.back();
    }
    return store.StatusOf(outcome);
}

}  // namespace cluster
