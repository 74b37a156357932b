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
constexpr int64_t kNoTime = -1;    // of a listing that is for the time of the lock alone
constexpr size_t kKeysAhead = 30;  // of four operations each
constexpr int64_t kNamesAhead = 200;
constexpr size_t kMostKeptChildren = 60'000;

// One listing, page by page, as it was when the first page was read.
class Reading {
  public:
    Reading(ClusterStore& store, const OpenedKey& key, Kind kind)
        : store_(store),
          span_(kind == Kind::Values ? store.names.Values(key.id) : store.names.Children(key.id)),
          listing{key.id, PlaceOf(key), kind, {}} {}

    // By who has the store's lock.
    Outcome Read();

    std::vector<KeyValue> record;      // of the key; none where there is none
    std::vector<std::string> damaged;  // records that are none
    bool isKept = true;                // all children are
    std::vector<std::pair<std::string, Child>> children;

  private:
    Outcome ReadFirst(RangeReply* page) ZRFS_REQUIRES(store_.lock);
    void Add(const RangeReply& page) ZRFS_REQUIRES(store_.lock);

    ClusterStore& store_;
    const Span span_;
    int64_t revision_ = 0;
    int64_t atOnce_ = kNamesAtOnce;

  public:
    Listing listing;
};

Outcome Reading::ReadFirst(RangeReply* page) {
    Transaction look;
    look.ifTrue = {Get({store_.names.Key(listing.id)}), Get({store_.names.Time(listing.id)}),
                   Get(span_, atOnce_)};
    TransactionReply reply;
    const Outcome outcome = store_.Api().Do(look, &reply);
    if (outcome != Outcome::Answered) return outcome;
    record = std::move(reply.results[0].found);
    listing.time = reply.results[1].found.empty() ? 0 : reply.results[1].found[0].modified;
    revision_ = reply.revision;
    *page = std::move(reply.results[2]);
    return outcome;
}

void Reading::Add(const RangeReply& page) {
    for (const KeyValue& pair : page.found) {
        std::string folded = RestOf(pair.key, span_);
        WString name;
        Child child;
        if (listing.kind == Kind::Values ? !ReadValueName(pair.value, folded, &name)
                                         : !ReadChildOf(pair, span_, &child, &folded)) {
            damaged.push_back(pair.key);
            continue;
        }
        if (listing.kind == Kind::Values) {
            listing.names.push_back(std::move(name));
            continue;
        }
        listing.names.push_back(child.name);
        if (store_.MayGo(pair.lease) || children.size() == kMostKeptChildren)
            isKept = false;
        else
            children.emplace_back(std::move(folded), std::move(child));
    }
}

// A page with long values is asked for again as a smaller one.
Outcome Reading::Read() {
    store_.lock.AssertHeld();
    std::string next;
    for (;;) {
        RangeReply page;
        const Outcome outcome =
            next.empty() ? ReadFirst(&page)
                         : store_.Api().Range({{next, span_.to}, atOnce_, revision_}, &page);
        if (outcome == Outcome::TooLarge && atOnce_ > 1) {
            atOnce_ /= 10;
            continue;
        }
        if (outcome != Outcome::Answered) return outcome;
        Add(page);
        if (!page.hasMore || page.found.empty()) return outcome;
        next = page.found.back().key + '\0';
    }
}

// False when one of them is none: who asks for that one is told.
bool KeepValues(const ClusterStore& store, KeptReads& kept, const std::string& id,
                const std::vector<KeyValue>& pairs) ZRFS_REQUIRES(store.lock) {
    bool all = true;
    for (const KeyValue& pair : pairs) {
        ValueRecord value;
        const std::string folded = RestOf(pair.key, store.names.Values(id));
        if (!store.MayGo(pair.lease) && ReadValue(pair.value, folded, &value))
            kept.Keep(id, folded, std::move(value));
        else
            all = false;
    }
    return all;
}

bool KeepChildren(const ClusterStore& store, KeptReads& kept, const std::string& id,
                  const std::vector<KeyValue>& pairs) ZRFS_REQUIRES(store.lock) {
    bool all = true;
    for (const KeyValue& pair : pairs) {
        Child child;
        std::string folded;
        if (!store.MayGo(pair.lease) &&
            ReadChildOf(pair, store.names.Children(id), &child, &folded))
            kept.Keep(id, folded, std::move(child));
        else
            all = false;
    }
    return all;
}

// Whether a key's record is as it must be. A root that is not made yet is empty.
FBR_STATUS CheckRecord(ClusterStore& store, const OpenedKey& key,
                       const std::vector<KeyValue>& record) ZRFS_REQUIRES(store.lock) {
    if (!record.empty()) return CheckPlace(store, key, record[0]);
    return key.id == kRootId ? FSSTATUS_SUCCESS : WhyMissing(store, key);
}

// Under the lock, what a key holds is read as a whole, and what the next ones hold with it. All of
// it is kept that is not too much for one answer.
FBR_STATUS ReadAhead(ClusterStore& store, KeptReads& kept, const OpenedKey& key)
    ZRFS_REQUIRES(store.lock) {
    const std::string& id = key.id;
    std::vector<std::string> ids = kept.ReadNext(id, kKeysAhead);
    ids.insert(ids.begin(), id);
    Transaction look;
    for (const std::string& one : ids) {
        look.ifTrue.push_back(Get(store.names.Values(one), one == id ? kNamesAtOnce : kNamesAhead));
        look.ifTrue.push_back(
            Get(store.names.Children(one), one == id ? kNamesAtOnce : kNamesAhead));
        look.ifTrue.push_back(Get({store.names.Key(one)}));
        look.ifTrue.push_back(Get({store.names.Time(one)}));
    }
    TransactionReply reply;
    const Outcome outcome = store.Api().Do(look, &reply);
    if (outcome == Outcome::TooLarge) return FSSTATUS_SUCCESS;
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    const FBR_STATUS status = CheckRecord(store, key, reply.results[2].found);
    if (status != FSSTATUS_SUCCESS) return status;
    for (size_t i = 0; i < ids.size(); ++i) {
        const RangeReply* const found = &reply.results[4 * i];
        KeyRecord record;
        if (found[2].found.empty() || store.MayGo(found[2].found[0].lease) ||
            !ReadKeyRecord(found[2].found[0].value, &record))
            continue;
        kept.KeepPlace(ids[i], ids[i] == kRootId ? "" : PlaceText(record.parent, record.name));
        kept.Values(ids[i]).isAll =
            KeepValues(store, kept, ids[i], found[0].found) && !found[0].hasMore;
        kept.Children(ids[i]).isAll =
            KeepChildren(store, kept, ids[i], found[1].found) && !found[1].hasMore;
        platform::UtcTime time{};
        if (TimeOf(found[2], found[3], &time)) kept.KeepTime(ids[i], time);
    }
    return FSSTATUS_SUCCESS;
}

// A listing of what is kept. False when that is not all.
bool ListKept(KeptReads& kept, Listing* listing) {
    if (kept.PlaceOf(listing->id) != listing->place) return false;
    const auto add = [&](const auto& names) {
        for (const auto& [folded, item] : names.found) listing->names.push_back(item.name);
        return names.isAll;
    };
    return listing->kind == Kind::Values
               ? kept.Values(listing->id).isAll && add(kept.Values(listing->id))
               : kept.Children(listing->id).isAll && add(kept.Children(listing->id));
}

// Who has listed many children asks for each of them.
void KeepAll(KeptReads& kept, const std::string& id, Reading* reading) {
    for (auto& [folded, child] : reading->children) kept.Keep(id, folded, std::move(child));
    kept.Children(id).isAll = reading->isKept && reading->damaged.empty();
}

FBR_STATUS AddListing(ClusterStore& store, Listing made, const Listing** listing)
    ZRFS_REQUIRES(store.lock) {
    if (store.listings.size() == kMostListings) store.listings.erase(store.listings.begin());
    store.listings.push_back(std::move(made));
    *listing = &store.listings.back();
    return FSSTATUS_SUCCESS;
}

// Whether a listing is still what the key holds: nothing in it has changed since.
Outcome IsStillSo(ClusterStore& store, const Listing& listing, bool* isSo)
    ZRFS_REQUIRES(store.lock) {
    *isSo = true;
    if (store.Kept() != nullptr) return Outcome::Answered;
    *isSo = false;
    if (listing.time == kNoTime) return Outcome::Answered;
    Transaction look;
    look.compares = {IsThere(store.names.Key(listing.id)),
                     {Compare::What::Modified,
                      Compare::How::Equal,
                      {store.names.Time(listing.id)},
                      listing.time}};
    TransactionReply reply;
    const Outcome outcome = store.Api().Do(look, &reply);
    *isSo = reply.isTrue;
    return outcome;
}

}  // namespace

FBR_STATUS List(ClusterStore& store, const OpenedKey& key, Kind kind, bool mayBeKept,
                const Listing** listing) {
    const FBR_STATUS way = CheckWay(store, key);
    if (way != FSSTATUS_SUCCESS) return way;
    KeptReads* kept = store.Kept();
    auto& listings = store.listings;
    const std::string place = PlaceOf(key);
    for (size_t i = 0; i < listings.size(); ++i) {
        if (listings[i].id != key.id || listings[i].place != place || listings[i].kind != kind)
            continue;
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
    if (kept != nullptr) {
        Listing made{key.id, place, kind, {}, kNoTime};
        if (ListKept(*kept, &made)) return AddListing(store, std::move(made), listing);
        const FBR_STATUS status = ReadAhead(store, *kept, key);
        if (status != FSSTATUS_SUCCESS) return status;
        if (ListKept(*kept, &made)) return AddListing(store, std::move(made), listing);
    }
    Outcome outcome = Outcome::Compacted;
    for (int tries = 0; tries < kMostTries && outcome == Outcome::Compacted; ++tries) {
        Reading reading(store, key, kind);
        outcome = reading.Read();
        if (outcome != Outcome::Answered) continue;
        const FBR_STATUS status = CheckRecord(store, key, reading.record);
        if (status != FSSTATUS_SUCCESS) return status;
        for (const std::string& one : reading.damaged) store.Damaged(one);
        if (kept != nullptr) kept->KeepPlace(key.id, place);
        if (kept != nullptr && kind == Kind::Children) KeepAll(*kept, key.id, &reading);
        return AddListing(store, std::move(reading.listing), listing);
    }
    return store.StatusOf(outcome);
}

}  // namespace cluster
