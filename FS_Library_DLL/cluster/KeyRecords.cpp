// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {

namespace {

// The record that leads from its parent to a key; empty for the root.
std::string ChildRecordOf(const ClusterStore& store, const OpenedKey& key) {
    if (key.id == kRootId) return "";
    return store.names.Child(key.parent, FoldedText(key.path.substr(key.path.rfind('\\') + 1)));
}

// Whether the record by which the key was found leads to it, still.
FBR_STATUS StillLeads(ClusterStore& store, const OpenedKey& key, bool* leads)
    ZRFS_REQUIRES(store.lock) {
    const std::string record = ChildRecordOf(store, key);
    RangeReply reply;
    const Outcome outcome = store.Api().Range({{record}}, &reply);
    ChildRecord child;
    *leads =
        outcome == Outcome::Answered && !reply.found.empty() &&
        ReadChild(reply.found[0].value, RestOf(record, store.names.Children(key.parent)), &child) &&
        child.id == key.id;
    return store.StatusOf(outcome);
}

}  // namespace

std::string PlaceText(const std::string& parent, platform::WStringView name) {
    return parent + '/' + FoldedText(name);
}

std::string PlaceOf(const OpenedKey& key) {
    if (key.id == kRootId) return "";
    return PlaceText(key.parent, platform::WStringView(key.path).substr(key.path.rfind('\\') + 1));
}

FBR_STATUS CheckWay(ClusterStore& store, const OpenedKey& key) {
    return key.way.IsCircle() ? store.Damaged(ChildRecordOf(store, key)) : FSSTATUS_SUCCESS;
}

FBR_STATUS WhyMissing(ClusterStore& store, const OpenedKey& key) {
    const std::string record = ChildRecordOf(store, key), own = store.names.Key(key.id);
    if (record.empty()) return FSSTATUS_NOT_FOUND;
    Transaction look;
    look.ifTrue = {Get({own}), Get({record})};
    TransactionReply reply;
    const Outcome outcome = store.Api().Do(look, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    ChildRecord child;
    const bool isLost = reply.results[0].found.empty() && !reply.results[1].found.empty() &&
                        ReadChild(reply.results[1].found[0].value,
                                  RestOf(record, store.names.Children(key.parent)), &child) &&
                        child.id == key.id;
    return isLost ? store.Damaged(own) : FSSTATUS_NOT_FOUND;
}

FBR_STATUS CheckPlace(ClusterStore& store, const OpenedKey& key, const KeyValue& record) {
    KeyRecord told;
    if (key.id == kRootId) return FSSTATUS_SUCCESS;
    if (!ReadKeyRecord(record.value, &told)) return store.Damaged(record.key);
    if (PlaceText(told.parent, told.name) == PlaceOf(key)) return FSSTATUS_SUCCESS;
    bool isElsewhere = told.parent != key.parent;
    if (!isElsewhere) {
        const FBR_STATUS status = StillLeads(store, key, &isElsewhere);
        if (status != FSSTATUS_SUCCESS) return status;
    }
    return isElsewhere ? store.Damaged(ChildRecordOf(store, key)) : FSSTATUS_SUCCESS;
}

FBR_STATUS ReadKeyOf(ClusterStore& store, const OpenedKey& key, KeyRecord* record) {
    RangeReply reply;
    const std::string name = store.names.Key(key.id);
    const Outcome outcome = store.Api().Range({{name}}, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    if (reply.found.empty()) return WhyMissing(store, key);
    if (!ReadKeyRecord(reply.found[0].value, record)) return store.Damaged(name);
    return CheckPlace(store, key, reply.found[0]);
}

bool TimeOf(const RangeReply& made, const RangeReply& changed, platform::UtcTime* time) {
    if (!changed.found.empty()) return ReadTime(changed.found[0].value, time);
    KeyRecord record;
    if (made.found.empty() || !ReadKeyRecord(made.found[0].value, &record)) return false;
    *time = record.made;
    return true;
}

// A key that hangs on no lease has a parent that does not, either.
FBR_STATUS TouchParent(ClusterStore& store, const std::string& parent, int64_t lease,
                       Change* change) {
    int64_t itsLease = 0;
    if (lease != 0) {
        RangeReply reply;
        const Outcome outcome = store.Api().Range({{store.names.Key(parent)}}, &reply);
        if (outcome != Outcome::Answered) return store.StatusOf(outcome);
        if (reply.found.empty()) return FSSTATUS_NOT_FOUND;
        itsLease = reply.found[0].lease;
    }
    change->operations.push_back(
        Put(store.names.Time(parent), TimeText(platform::UtcNow()), itsLease));
    return FSSTATUS_SUCCESS;
}

FBR_STATUS AfterConflict(ClusterStore& store, const OpenedKey& key) {
    if (KeptReads* kept = store.Kept()) kept->Clear();
    store.listings.clear();
    return WhyMissing(store, key);
}

}  // namespace cluster
