// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterSweep.h"

#include <functional>
#include <set>
#include <unordered_map>

#include "FS_Library_DLL/cluster/ClusterDelete.h"
#include "FS_Library_DLL/cluster/ClusterWalk.h"
#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {
namespace {

constexpr int64_t kRecordsAtOnce = 1000;
constexpr size_t kPutAtOnce = 100;

// All pieces of one setting of a value: ID/NAME/PIECES below d/, and the bytes in them.
using Pieces = std::map<std::string, uint64_t>;

// What a store holds at one moment.
class Survey {
  public:
    explicit Survey(ClusterStore& store) : store_(store) {}

    // By who has the store's lock. FSSTATUS_FILE_CORRUPT where records are none, each of which is
    // told.
    FBR_STATUS Read();
    // Keys whose own record is missing, with the parent that they hang on.
    std::vector<std::pair<std::string, Child>> WithoutRecord() const;
    // Tells of records that refer to one that is missing, or to a key that hangs elsewhere. Whether
    // there are such. By who has the store's lock. Those `withoutRecord` may be told or not.
    bool TellBroken(bool withoutRecord = true);
    // Ids that cannot be reached from the root.
    std::set<std::string> Lost() const;
    // Below d/, and no value has them.
    std::vector<std::string> LostPieces() const;

  private:
    using OnRecord = std::function<bool(const KeyValue& pair, const std::string& rest)>;
    FBR_STATUS Each(const char* kind, bool keysOnly, const OnRecord& onRecord)
        ZRFS_REQUIRES(store_.lock);
    FBR_STATUS ReadLockRecord();
    bool AddChild(const KeyValue& pair, const std::string& rest);
    bool AddValue(const KeyValue& pair, const std::string& rest);
    bool AddPiece(const KeyValue& pair, const std::string& rest);
    std::set<std::string> Reachable() const;

    ClusterStore& store_;
    int64_t revision_ = 0;
    FBR_STATUS status_ = FSSTATUS_SUCCESS;
    std::multimap<std::string, Child> children_;         // by the ids of their parents
    std::unordered_map<std::string, std::string> keys_;  // where those that have a record are
    std::set<std::string> others_;                       // the ids of all else
    Pieces pieces_, wanted_;
};

// In pages, all of which show the state of the first; smaller ones where they would be too large.
FBR_STATUS Survey::Each(const char* kind, bool keysOnly, const OnRecord& onRecord) {
    const Span all = store_.names.All(kind);
    Span rest = all;
    for (int64_t limit = kRecordsAtOnce;;) {
        RangeReply page;
        const Outcome outcome =
            store_.Api().Range({rest, limit, revision_, keysOnly}, &page, &revision_);
        if (outcome == Outcome::TooLarge && limit > 1) {
            limit /= 10;
            continue;
        }
        if (outcome != Outcome::Answered) return store_.StatusOf(outcome);
        for (const KeyValue& pair : page.found)
            if (!onRecord(pair, RestOf(pair.key, all))) status_ = store_.Damaged(pair.key);
        if (!page.hasMore || page.found.empty()) return FSSTATUS_SUCCESS;
        rest.from = page.found.back().key + '\0';
    }
}

bool Survey::AddChild(const KeyValue& pair, const std::string& rest) {
    const std::string parent = rest.substr(0, rest.find('/'));
    Child child;
    std::string folded;
    if (!IsId(parent) || !ReadChildOf(pair, store_.names.Children(parent), &child, &folded))
        return false;
    children_.emplace(parent, std::move(child));
    return true;
}

bool Survey::AddValue(const KeyValue& pair, const std::string& rest) {
    const std::string id = rest.substr(0, rest.find('/'));
    if (!IsId(id)) return false;
    others_.insert(id);
    ValueRecord value;
    const std::string folded = RestOf(pair.key, store_.names.Values(id));
    if (!ReadValue(pair.value, folded, &value)) return false;
    if (!value.pieces.empty())
        wanted_[RestOf(store_.names.Piece(id, folded, value.pieces, 0), store_.names.All("d"))] =
            value.size;
    return true;
}

bool Survey::AddPiece(const KeyValue& pair, const std::string& rest) {
    const std::string id = rest.substr(0, rest.find('/'));
    if (!IsId(id) || rest.size() < id.size() + 24) return false;
    others_.insert(id);
    pieces_[rest.substr(0, rest.rfind('/')) + "/00000"] += pair.value.size();
    return true;
}

FBR_STATUS Survey::Read() {
    store_.lock.AssertHeld();
    FBR_STATUS status = Each("k", false, [&](const KeyValue& pair, const std::string& rest) {
        KeyRecord key;
        const bool isKey = IsId(rest) && ReadKeyRecord(pair.value, &key);
        if (IsId(rest)) keys_[rest] = PlaceText(key.parent, key.name);
        return isKey && key.parent.empty() == (rest == kRootId);
    });
    const auto each = [&](const char* kind, const OnRecord& onRecord) ZRFS_REQUIRES(store_.lock) {
        if (status == FSSTATUS_SUCCESS) status = Each(kind, false, onRecord);
    };
    each("c", [&](const auto& pair, const auto& rest) { return AddChild(pair, rest); });
    each("v", [&](const auto& pair, const auto& rest) { return AddValue(pair, rest); });
    each("d", [&](const auto& pair, const auto& rest) { return AddPiece(pair, rest); });
    each("t", [&](const auto& pair, const auto& rest) {
        platform::UtcTime time{};
        if (IsId(rest)) others_.insert(rest);
        return IsId(rest) && ReadTime(pair.value, &time);
    });
    each("g", [](const auto&, const auto& rest) { return IsId(rest) && rest != kRootId; });
    if (status == FSSTATUS_SUCCESS) status = ReadLockRecord();
    return status == FSSTATUS_SUCCESS ? status_ : status;
}

FBR_STATUS Survey::ReadLockRecord() {
    store_.lock.AssertHeld();
    RangeReply reply;
    LockRecord told;
    const Outcome outcome = store_.Api().Range({{store_.names.Lock()}}, &reply);
    if (outcome != Outcome::Answered) return store_.StatusOf(outcome);
    if (!reply.found.empty() && !ReadLock(reply.found[0].value, &told))
        status_ = store_.Damaged(store_.names.Lock());
    return FSSTATUS_SUCCESS;
}

std::set<std::string> Survey::Reachable() const {
    std::set<std::string> reached = {kRootId};
    for (std::vector<std::string> next = {kRootId}; !next.empty();) {
        const std::string id = std::move(next.back());
        next.pop_back();
        const auto [first, last] = children_.equal_range(id);
        for (auto child = first; child != last; ++child)
            if (reached.insert(child->second.id).second) next.push_back(child->second.id);
    }
    return reached;
}

std::vector<std::pair<std::string, Child>> Survey::WithoutRecord() const {
    std::vector<std::pair<std::string, Child>> found;
    std::set<std::string> seen;
    for (const auto& [parent, child] : children_)
        if (!keys_.contains(child.id) && seen.insert(child.id).second)
            found.emplace_back(parent, child);
    return found;
}

bool Survey::TellBroken(bool withoutRecord) {
    store_.lock.AssertHeld();
    bool isBroken = false;
    const auto tell = [&](const std::string& record) ZRFS_REQUIRES(store_.lock) {
        store_.Damaged(record);
        isBroken = true;
    };
    for (const auto& [parent, child] : children_) {
        const auto key = keys_.find(child.id);
        if (key == keys_.end() && withoutRecord) tell(store_.names.Key(child.id));
        if (key != keys_.end() && key->second != PlaceText(parent, child.name))
            tell(store_.names.Child(parent, FoldedText(child.name)));
    }
    for (const auto& [pieces, size] : wanted_) {
        const auto found = pieces_.find(pieces);
        if (found == pieces_.end() || found->second != size)
            tell(store_.names.All("d").from + pieces.substr(0, pieces.rfind('/') + 1));
    }
    return isBroken;
}

std::set<std::string> Survey::Lost() const {
    std::set<std::string> lost = others_;
    for (const auto& [id, parent] : keys_) lost.insert(id);
    for (const auto& [parent, child] : children_) lost.insert(parent);
    for (const std::string& id : Reachable()) lost.erase(id);
    return lost;
}

std::vector<std::string> Survey::LostPieces() const {
    std::vector<std::string> lost;
    for (const auto& [pieces, size] : pieces_)
        if (!wanted_.contains(pieces))
            lost.push_back(store_.names.All("d").from + pieces.substr(0, pieces.rfind('/') + 1));
    return lost;
}

}  // namespace

FBR_STATUS CheckStore(ClusterStore& store) {
    Survey survey(store);
    const FBR_STATUS status = survey.Read();
    if (status != FSSTATUS_SUCCESS && status != FSSTATUS_FILE_CORRUPT) return status;
    return survey.TellBroken() ? FSSTATUS_FILE_CORRUPT : status;
}

// A key that has lost its record gets another: what it holds hangs on its id, and is all there.
// Where a record is none, what seems lost may hang on that one, and stays.
FBR_STATUS SweepStore(ClusterStore& store) {
    Survey survey(store);
    FBR_STATUS status = DeleteGone(store);
    if (status == FSSTATUS_SUCCESS) status = survey.Read();
    const bool isDamaged = status == FSSTATUS_FILE_CORRUPT;
    if (isDamaged) status = FSSTATUS_SUCCESS;
    const bool isBroken = status == FSSTATUS_SUCCESS && survey.TellBroken(false);
    Change change;
    const auto add = [&](Operation operation) ZRFS_REQUIRES(store.lock) {
        change.operations.push_back(std::move(operation));
        if (status != FSSTATUS_SUCCESS || change.operations.size() < kPutAtOnce) return;
        status = store.Commit(&change);
        change = {};
    };
    if (status == FSSTATUS_SUCCESS)
        for (const auto& [parent, child] : survey.WithoutRecord())
            add(Put(store.names.Key(child.id), KeyText({parent, child.name, platform::UtcNow()}),
                    child.lease));
    if (status == FSSTATUS_SUCCESS && !isDamaged) {
        for (const std::string& id : survey.Lost()) add(Put(store.names.Gone(id), GoneText({})));
        for (const std::string& pieces : survey.LostPieces()) add(Delete(AllBelow(pieces)));
    }
    if (!change.operations.empty() && status == FSSTATUS_SUCCESS) status = store.Commit(&change);
    store.listings.clear();
    if (KeptReads* kept = store.Kept()) kept->Clear();
    if (status == FSSTATUS_SUCCESS) status = DeleteGone(store);
    return status == FSSTATUS_SUCCESS && (isDamaged || isBroken) ? FSSTATUS_FILE_CORRUPT : status;
}

}  // namespace cluster
