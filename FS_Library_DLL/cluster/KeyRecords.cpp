// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {

namespace {

// The name that a key was opened by.
platform::WStringView NameOf(const OpenedKey& key) {
    return platform::WStringView(key.path).substr(key.path.rfind('\\') + 1);
}

// The record that leads from its parent to a key; empty for the root.
std::string ChildRecordOf(const ClusterStore& store, const OpenedKey& key) {
    return key.id == kRootId ? "" : store.names.Child(key.parent, FoldedText(NameOf(key)));
}

// Whether that record, as it was found, leads to the key.
bool Leads(const RangeReply& record, const OpenedKey& key) {
    ChildRecord child;
    return !record.found.empty() &&
           ReadChild(record.found[0].value, FoldedText(NameOf(key)), &child) && child.id == key.id;
}

}  // namespace

std::string PlaceText(const std::string& parent, platform::WStringView name) {
    return parent + '/' + FoldedText(name);
}

std::string PlaceOf(const OpenedKey& key) {
    if (key.id == kRootId) return "";
    return PlaceText(key.parent, NameOf(key));
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
    const bool isLost = reply.results[0].found.empty() && Leads(reply.results[1], key);
    return isLost ? store.Damaged(own) : FSSTATUS_NOT_FOUND;
}

FBR_STATUS CheckPlace(ClusterStore& store, const OpenedKey& key, const KeyValue& record) {
    KeyRecord told;
    if (key.id == kRootId) return FSSTATUS_SUCCESS;
    if (!ReadKeyRecord(record.value, &told)) return store.Damaged(record.key);
    if (PlaceText(told.parent, told.name) == PlaceOf(key)) return FSSTATUS_SUCCESS;
    const std::string found = ChildRecordOf(store, key);
    if (told.parent != key.parent) return store.Damaged(found);
    // Renamed, unless the old name leads here as well.
    RangeReply reply;
    const Outcome outcome = store.Api().Range({{found}}, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    return Leads(reply, key) ? store.Damaged(found) : FSSTATUS_SUCCESS;
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
