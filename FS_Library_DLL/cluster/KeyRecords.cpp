// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {

FBR_STATUS ReadKeyOf(ClusterStore& store, const std::string& id, KeyRecord* key) {
    RangeReply reply;
    const std::string record = store.names.Key(id);
    const Outcome outcome = store.Api().Range({{record}}, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    if (reply.found.empty()) return FSSTATUS_NOT_FOUND;
    if (!ReadKeyRecord(reply.found[0].value, key) || (id != kRootId && key->parent.empty()))
        return store.Damaged(record);
    return FSSTATUS_SUCCESS;
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

FBR_STATUS AfterConflict(ClusterStore& store) {
    if (KeptReads* kept = store.Kept()) kept->Clear();
    store.listings.clear();
    return FSSTATUS_NOT_FOUND;
}

}  // namespace cluster
