// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterStore.h"

#include <fmt/format.h>

#include "Shared/logging/Logger.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "FS_Library_DLL/ClusterStore"

namespace cluster {

using Varnhold::Hob::Detail::kError;

ClusterStore::ClusterStore(std::shared_ptr<const EtcdSettings> given, std::string prefix)
    : settings(std::move(given)),
      names(std::move(prefix)),
      leases(settings),
      storeLock(settings, names, leases),
      api_(settings) {}

void ClusterStore::Leave(std::unique_ptr<ClusterStore> store) {
    // Known to those who look for memory that nobody knows.
    static std::vector<ClusterStore*>* const left = new std::vector<ClusterStore*>;
    left->push_back(store.release());
    ClusterStore& one = *left->back();
    one.lock.AssertAlone();
    one.api_.CloseSockets();
    one.storeLock.CloseSockets();
    one.leases.CloseSockets();
}

FBR_STATUS ClusterStore::StatusOf(Outcome outcome) const {
    switch (outcome) {
        case Outcome::Answered:
            return FSSTATUS_SUCCESS;
        case Outcome::Denied:
            return FSSTATUS_ACCESS_DENIED;
        case Outcome::NoSuchLease:  // and what hung on it
            return FSSTATUS_NOT_FOUND;
        case Outcome::Compacted:
            if (InSnapshot())
                ZRFS_LOG(kError, "ClusterStore::StatusOf",
                         "The state that was read from is no longer kept by the cluster at {}: "
                         "begin anew",
                         settings->Endpoints());
            return FSSTATUS_FAILED;
        default:
            return FSSTATUS_FAILED;
    }
}

namespace {

// Whatever somebody wrote there, a line of the log stays one.
std::string WithoutControls(const std::string& record) {
    std::string text;
    for (const char unit : record) {
        const auto byte = static_cast<unsigned char>(unit);
        if (byte < ' ' || byte == 0x7F)
            text += fmt::format("%{:02X}", byte);
        else
            text += unit;
    }
    return text;
}

}  // namespace

FBR_STATUS ClusterStore::Damaged(const std::string& record) {
    isDamaged = true;
    ZRFS_LOG(kError, "ClusterStore::Damaged", "The record {} at {} is missing or damaged",
             WithoutControls(record), settings->Endpoints());
    return FSSTATUS_FILE_CORRUPT;
}

KeptReads* ClusterStore::Kept() {
    const int64_t under = InSnapshot() ? -snapshots_ : storeLock.Certain();
    if (under == 0) return nullptr;
    if (under != keptUnder_) {
        kept_.Clear();
        listings.clear();
    }
    keptUnder_ = under;
    kept_.Trim();
    return &kept_;
}

void ClusterStore::Snapshot(bool begins) {
    snapshot_ += begins ? 1 : -1;
    if (!begins || snapshot_ != 1) return;
    ++snapshots_;
    api_.Freeze(false);
}

void ClusterStore::DropListings(const std::string& id) {
    std::erase_if(listings, [&](const Listing& listing) { return listing.id == id; });
}

// After an answer that did not come, the record of the lock is written anew, and is known: a
// request that is still on its way finds another than it asks for.
bool ClusterStore::FindFence(Fence* fence) {
    if (fence->modified != 0) return true;
    fence->record.change = std::to_string(++changes_);
    Transaction transaction;
    transaction.compares = {
        {Compare::What::Created, Compare::How::Equal, {names.Lock()}, fence->created}};
    transaction.ifTrue = {
        Put(names.Lock(), LockText(fence->record, platform::UtcNow()), fence->lease)};
    TransactionReply reply;
    const Outcome outcome = api_.Do(transaction, &reply);
    if (outcome == Outcome::Answered && reply.isTrue) {
        fence->modified = reply.revision;
        storeLock.Moved(fence->lease, reply.revision, fence->record.change);
        return true;
    }
    if (outcome == Outcome::NoSuchLease || outcome == Outcome::Answered)
        storeLock.Lost(fence->lease);
    return false;
}

// A compare failed: the record of the lock tells why.
FBR_STATUS ClusterStore::Settle(const Fence& fence, const std::string& change,
                                const RangeReply& record, bool* again) {
    const KeyValue* found = record.found.empty() ? nullptr : &record.found[0];
    if (found == nullptr || found->created != fence.created) {
        storeLock.Lost(fence.lease);
        return FSSTATUS_LOCK_FAILED;
    }
    LockRecord told;
    if (ReadLock(found->value, &told) && told.change == change) {
        // The answer to the first of several requests was lost.
        storeLock.Moved(fence.lease, found->modified, change);
        return FSSTATUS_SUCCESS;
    }
    *again = found->modified != fence.modified;
    if (*again) storeLock.Moved(fence.lease, 0, fence.record.change);
    return FSSTATUS_SUCCESS;
}

FBR_STATUS ClusterStore::Make(Change* change) {
    kept_.ForgetTimes();
    api_.Freeze(false);
    for (int tries = 0; tries < 3; ++tries) {
        std::optional<Fence> fence = storeLock.FenceOfChange();
        if (!fence) return FSSTATUS_LOCK_FAILED;
        if (!FindFence(&*fence))
            return storeLock.FenceOfChange() ? FSSTATUS_FAILED : FSSTATUS_LOCK_FAILED;
        LockRecord record = fence->record;
        record.change = std::to_string(++changes_);
        Transaction transaction{change->compares, change->operations, {Get({names.Lock()})}};
        transaction.compares.push_back(
            {Compare::What::Modified, Compare::How::Equal, {names.Lock()}, fence->modified});
        transaction.ifTrue.push_back(
            Put(names.Lock(), LockText(record, platform::UtcNow()), fence->lease));
        transaction.ifFalse.insert(transaction.ifFalse.end(), change->onConflict.begin(),
                                   change->onConflict.end());
        TransactionReply reply;
        const Outcome outcome = api_.Do(transaction, &reply);
        change->revision = reply.revision;
        if (outcome == Outcome::Unanswered || outcome == Outcome::Malformed) {
            kept_.Clear();
            listings.clear();
            storeLock.Moved(fence->lease, 0, record.change);
        }
        if (outcome != Outcome::Answered) return StatusOf(outcome);
        if (reply.isTrue) {
            storeLock.Moved(fence->lease, reply.revision, record.change);
            return FSSTATUS_SUCCESS;
        }
        bool again = false;
        const FBR_STATUS status = Settle(*fence, record.change, reply.results[0], &again);
        if (again) continue;
        change->isConflict =
            status == FSSTATUS_SUCCESS && reply.results[0].found[0].modified == fence->modified;
        change->answers.assign(reply.results.begin() + 1, reply.results.end());
        return status;
    }
    return FSSTATUS_FAILED;
}

FBR_STATUS ClusterStore::Commit(Change* change) {
    const FBR_STATUS status = SendGathered();
    return status == FSSTATUS_SUCCESS ? Make(change) : status;
}

FBR_STATUS ClusterStore::CommitSoon(Change* change) {
    const std::optional<Fence> fence = storeLock.FenceOfChange();
    if (!gathers_ || !fence) return Commit(change);
    if (gathered_.IsEmpty()) gatheredUnder_ = fence->lease;
    kept_.ForgetTimes();
    if (gatheredStatus_ == FSSTATUS_SUCCESS && gathered_.Add(*change)) return FSSTATUS_SUCCESS;
    const FBR_STATUS status = SendGathered();
    if (status == FSSTATUS_SUCCESS) gathered_.Add(*change);
    return status;
}

void ClusterStore::Gather(bool gathers) {
    gathers_ = gathers;
    gatheredStatus_ = FSSTATUS_SUCCESS;
}

FBR_STATUS ClusterStore::SendGathered() {
    if (gathered_.IsEmpty() || gatheredStatus_ != FSSTATUS_SUCCESS) return gatheredStatus_;
    Change change = gathered_.Take();
    const std::optional<Fence> fence = storeLock.FenceOfChange();
    gatheredStatus_ =
        fence && fence->lease == gatheredUnder_ ? Make(&change) : FSSTATUS_LOCK_FAILED;
    // Somebody changed records beside the lock.
    if (gatheredStatus_ == FSSTATUS_SUCCESS && change.isConflict)
        gatheredStatus_ = FSSTATUS_NOT_FOUND;
    if (gatheredStatus_ != FSSTATUS_SUCCESS) {
        kept_.Clear();
        listings.clear();
    }
    return gatheredStatus_;
}

EtcdApi& ClusterStore::Api() {
    SendGathered();
    api_.Freeze(InSnapshot());
    return api_;
}

}  // namespace cluster
