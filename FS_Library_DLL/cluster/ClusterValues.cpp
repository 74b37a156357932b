// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterValues.h"

#include <algorithm>

#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {
namespace {

constexpr int kMostReadings = 5;
constexpr int64_t kValuesAhead = 256;

void Touch(const ClusterStore& store, const OpenedKey& key, Change* change) {
    change->operations.push_back(
        Put(store.names.Time(key.id), TimeText(platform::UtcNow()), key.lease));
}

// What lies in pieces of a value but the ones given, those of a writer that died among them.
void DropPieces(const ClusterStore& store, const OpenedKey& key, const std::string& folded,
                const std::string& pieces, Change* change) {
    for (Span& span : store.names.PiecesBeside(key.id, folded, pieces))
        change->operations.push_back(Delete(std::move(span)));
}

// Whether the key is known to have no value of that name.
bool IsNew(ClusterStore& store, const OpenedKey& key, const std::string& folded)
    ZRFS_REQUIRES(store.lock) {
    KeptReads* kept = store.Kept();
    return kept != nullptr && kept->Values(key.id).isAll &&
           !kept->Values(key.id).found.contains(folded);
}

FBR_STATUS WritePieces(ClusterStore& store, const OpenedKey& key, const std::string& folded,
                       const ValueRecord& value) ZRFS_REQUIRES(store.lock) {
    for (uint64_t index = 0; index * kPieceBytes < value.size; ++index) {
        Change change;
        change.compares = {IsThere(store.names.Key(key.id))};
        change.operations = {Put(store.names.Piece(key.id, folded, value.pieces, index),
                                 value.data.substr(index * kPieceBytes, kPieceBytes), key.lease)};
        const FBR_STATUS status = store.Commit(&change);
        if (status != FSSTATUS_SUCCESS) return status;
        if (change.isConflict) return AfterConflict(store, key);
    }
    return FSSTATUS_SUCCESS;
}

// Of a value that is not set after all. Nobody else knows their id, and one who deletes needs no
// room: that the cluster has no more may be why they are in vain.
void RemovePieces(ClusterStore& store, const OpenedKey& key, const std::string& folded,
                  const ValueRecord& value) ZRFS_REQUIRES(store.lock) {
    const std::string first = store.names.Piece(key.id, folded, value.pieces, 0);
    Transaction removal;
    removal.ifTrue = {Delete(AllBelow(first.substr(0, first.rfind('/') + 1)))};
    TransactionReply reply;
    store.Api().Do(removal, &reply);
}

// The pieces as they were when their value's record was read.
Outcome ReadPieces(ClusterStore& store, const std::string& id, const std::string& folded,
                   int64_t revision, ValueRecord* value, std::string* missing)
    ZRFS_REQUIRES(store.lock) {
    for (uint64_t index = 0; index * kPieceBytes < value->size; ++index) {
        const std::string record = store.names.Piece(id, folded, value->pieces, index);
        RangeReply reply;
        const Outcome outcome = store.Api().Range({{record}, 0, revision}, &reply);
        if (outcome != Outcome::Answered) return outcome;
        const uint64_t expected = std::min(kPieceBytes, value->size - index * kPieceBytes);
        if (reply.found.empty() || reply.found[0].value.size() != expected) {
            *missing = record;
            return outcome;
        }
        value->data += reply.found[0].value;
    }
    return Outcome::Answered;
}

// Whether what is kept of a value is all that is wanted.
bool FindKept(ClusterStore& store, const OpenedKey& key, const std::string& folded, bool wantsData,
              ValueRecord* value, bool* isMissing) ZRFS_REQUIRES(store.lock) {
    KeptReads* kept = store.Kept();
    if (kept == nullptr) return false;
    const auto& values = kept->Values(key.id);
    const auto found = values.found.find(folded);
    *isMissing = found == values.found.end() && values.isAll;
    if (found == values.found.end()) return *isMissing;
    if (wantsData && found->second.data.size() != found->second.size) return false;
    *value = found->second;
    return true;
}

// How many values to read at once, this one and those behind it: many where somebody who listed
// them has read the one before.
int64_t ValuesAhead(ClusterStore& store, const OpenedKey& key, const std::string& folded)
    ZRFS_REQUIRES(store.lock) {
    KeptReads* kept = store.Kept();
    if (kept == nullptr) return 1;
    const auto& values = kept->Values(key.id).found;
    if (values.contains(folded)) return 1;  // its data are too long to be kept
    for (const Listing& listing : store.listings) {
        if (listing.id != key.id || listing.kind != Kind::Values) continue;
        const auto& names = listing.names;
        const auto at = std::lower_bound(names.begin(), names.end(), folded,
                                         [](const WString& name, const std::string& wanted) {
                                             return FoldedText(name) < wanted;
                                         });
        const bool follows = at == names.begin() || values.contains(FoldedText(*std::prev(at)));
        if (at != names.end() && follows) return kValuesAhead;
    }
    return 1;
}

void KeepRead(ClusterStore& store, const OpenedKey& key, const RangeReply& reply)
    ZRFS_REQUIRES(store.lock) {
    KeptReads* kept = store.Kept();
    if (kept == nullptr) return;
    const Span values = store.names.Values(key.id);
    for (const KeyValue& pair : reply.found) {
        ValueRecord value;
        const std::string folded = RestOf(pair.key, values);
        if (!store.MayGo(pair.lease) && ReadValue(pair.value, folded, &value))
            kept->Keep(key.id, folded, std::move(value));
    }
}

}  // namespace

FBR_STATUS SetValue(ClusterStore& store, const OpenedKey& key, ValueRecord value) {
    if (!store.storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    const std::string folded = FoldedText(value.name);
    value.size = value.data.size();
    Change change;
    change.compares = {IsThere(store.names.Key(key.id))};
    if (value.size > kPieceBytes) {
        value.pieces = NewId();
        const FBR_STATUS status = WritePieces(store, key, folded, value);
        if (status != FSSTATUS_SUCCESS) {
            RemovePieces(store, key, folded, value);
            return status;
        }
    }
    if (!IsNew(store, key, folded)) DropPieces(store, key, folded, value.pieces, &change);
    change.operations.push_back(
        Put(store.names.Value(key.id, folded), ValueText(value), key.lease));
    Touch(store, key, &change);
    store.DropListings(key.id);
    const FBR_STATUS status = store.CommitSoon(&change);
    if (status != FSSTATUS_SUCCESS) return status;
    if (change.isConflict) return AfterConflict(store, key);
    KeptReads* kept = store.MayGo(key.lease) ? nullptr : store.Kept();
    if (kept != nullptr) kept->Keep(key.id, folded, std::move(value));
    return FSSTATUS_SUCCESS;
}

FBR_STATUS DeleteValue(ClusterStore& store, const OpenedKey& key, const WString& name) {
    if (!store.storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    const std::string folded = FoldedText(name), record = store.names.Value(key.id, folded);
    Change change;
    change.compares = {IsThere(record)};
    change.operations = {Delete({record})};
    DropPieces(store, key, folded, {}, &change);
    Touch(store, key, &change);
    store.DropListings(key.id);
    if (KeptReads* kept = store.Kept()) kept->Values(key.id).found.erase(folded);
    const FBR_STATUS status = store.Commit(&change);
    return status == FSSTATUS_SUCCESS && change.isConflict ? FSSTATUS_NOT_FOUND : status;
}

FBR_STATUS ReadValueOf(ClusterStore& store, const OpenedKey& key, const WString& name,
                       bool wantsData, ValueRecord* value) {
    const std::string folded = FoldedText(name), record = store.names.Value(key.id, folded);
    bool isMissing = false;
    if (FindKept(store, key, folded, wantsData, value, &isMissing))
        return isMissing ? FSSTATUS_NOT_FOUND : FSSTATUS_SUCCESS;
    Outcome outcome = Outcome::Compacted;
    int64_t ahead = ValuesAhead(store, key, folded);
    for (int tries = 0; tries < kMostReadings && outcome == Outcome::Compacted; ++tries) {
        RangeReply reply;
        int64_t revision = 0;
        const Span span{record, ahead == 1 ? "" : store.names.Values(key.id).to};
        outcome = store.Api().Range({span, ahead}, &reply, &revision);
        if (outcome == Outcome::TooLarge && ahead > 1) {
            ahead = 1;
            outcome = Outcome::Compacted;  // once more
        }
        if (outcome != Outcome::Answered) continue;
        if (reply.found.empty() || reply.found[0].key != record) return FSSTATUS_NOT_FOUND;
        if (!ReadValue(reply.found[0].value, folded, value)) return store.Damaged(record);
        KeepRead(store, key, reply);
        if (value->pieces.empty()) return FSSTATUS_SUCCESS;
        std::string missing;
        if (wantsData) outcome = ReadPieces(store, key.id, folded, revision, value, &missing);
        if (!missing.empty()) return store.Damaged(missing);
    }
    return store.StatusOf(outcome);
}

}  // namespace cluster
