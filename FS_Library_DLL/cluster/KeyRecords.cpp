// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {

namespace {

// The record that leads from its parent to a key; empty for the root.
std::string ChildRecordOf(const ClusterStore& store, const OpenedKey& key) {
    if (key.id == kRootId) return "";
    return store.names.Child(key.parent, FoldedText(key.path.substr(key.path.rfind('\\') + 1)));
}

}  // namespace

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

FBR_STATUS CheckParent(ClusterStore& store, const OpenedKey& key, const KeyValue& record) {
    KeyRecord told;
    if (key.id == kRootId) return FSSTATUS_SUCCESS;
    if (!ReadKeyRecord(record.value, &told)) return store.Damaged(record.key);
    return told.parent == key.parent ? FSSTATUS_SUCCESS : store.Damaged(ChildRecordOf(store, key));
}

FBR_STATUS ReadKeyOf(ClusterStore& store, const OpenedKey& key, KeyRecord* record) {
    RangeReply reply;
    const std::string name = store.names.Key(key.id);
    const Outcome outcome = store.Api().Range({{name}}, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    if (reply.found.empty()) return WhyMissing(store, key);
    if (!ReadKeyRecord(reply.found[0].value, record)) return store.Damaged(name);
    return CheckParent(store, key, reply.found[0]);
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
