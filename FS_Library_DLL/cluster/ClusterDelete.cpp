// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterDelete.h"

#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {
namespace {

// All records of a key but those that its parent has.
void DeleteRecords(const ClusterStore& store, const std::string& id, Change* change) {
    change->operations.push_back(Delete({store.names.Key(id)}));
    change->operations.push_back(Delete({store.names.Time(id)}));
    change->operations.push_back(Delete(store.names.Values(id)));
    change->operations.push_back(Delete(store.names.PiecesOf(id)));
}

void ForgetKey(ClusterStore& store, const std::string& parent, const std::string& folded,
               const std::string& id) ZRFS_REQUIRES(store.lock) {
    store.listings.clear();
    KeptReads* kept = store.Kept();
    if (kept == nullptr) return;
    kept->Children(parent).found.erase(folded);
    kept->DropTree(id);
}

// In one transaction. FSSTATUS_DIR_NOT_EMPTY, and nothing changed, when there is a key below it.
FBR_STATUS DeleteLeaf(ClusterStore& store, const std::string& parent, const std::string& folded,
                      const std::string& id, int64_t lease) ZRFS_REQUIRES(store.lock) {
    Change change;
    change.compares = {IsThere(store.names.Key(id)), IsMissing(store.names.Children(id))};
    change.operations.push_back(Delete({store.names.Child(parent, folded)}));
    DeleteRecords(store, id, &change);
    change.onConflict = {Get({store.names.Key(id)})};
    FBR_STATUS status = TouchParent(store, parent, lease, &change);
    if (status == FSSTATUS_SUCCESS) status = store.Commit(&change);
    if (status != FSSTATUS_SUCCESS) return status;
    if (change.isConflict)
        return change.answers[0].found.empty() ? AfterConflict(store) : FSSTATUS_DIR_NOT_EMPTY;
    ForgetKey(store, parent, folded, id);
    return FSSTATUS_SUCCESS;
}

// Takes keys of one parent off the tree.
FBR_STATUS CutOff(ClusterStore& store, const std::string& parent,
                  const std::vector<Child>& children) ZRFS_REQUIRES(store.lock) {
    Change change;
    for (const Child& child : children) {
        change.operations.push_back(Delete({store.names.Child(parent, FoldedText(child.name))}));
        change.operations.push_back(Delete({store.names.Key(child.id)}));
        change.operations.push_back(Put(store.names.Gone(child.id), "{}"));
    }
    FBR_STATUS status = TouchParent(store, parent, children[0].lease, &change);
    if (status == FSSTATUS_SUCCESS) status = store.Commit(&change);
    for (const Child& child : children) ForgetKey(store, parent, FoldedText(child.name), child.id);
    return status;
}

// The next children of a key, as many as fit into one change.
FBR_STATUS NextChildren(ClusterStore& store, const std::string& parent,
                        std::vector<Child>* children) ZRFS_REQUIRES(store.lock) {
    const Span span = store.names.Children(parent);
    RangeReply reply;
    const Outcome outcome = store.Api().Range({span, 40}, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    children->clear();
    for (const KeyValue& pair : reply.found) {
        std::string folded;
        if (!ReadChildOf(pair, span, &children->emplace_back(), &folded))
            return store.Damaged(pair.key);
    }
    return FSSTATUS_SUCCESS;
}

FBR_STATUS EmptyRoot(ClusterStore& store) ZRFS_REQUIRES(store.lock) {
    Change change;
    change.operations = {Delete(store.names.Values(kRootId)), Delete(store.names.PiecesOf(kRootId)),
                         Put(store.names.Time(kRootId), TimeText(platform::UtcNow()))};
    FBR_STATUS status = store.Commit(&change);
    for (std::vector<Child> children; status == FSSTATUS_SUCCESS;) {
        status = NextChildren(store, kRootId, &children);
        if (status != FSSTATUS_SUCCESS || children.empty()) break;
        status = CutOff(store, kRootId, children);
    }
    if (KeptReads* kept = store.Kept()) kept->Clear();
    store.listings.clear();
    return status;
}

// One round: of each key that is cut off, what it holds goes, and its children are cut off, too.
FBR_STATUS DeleteSome(ClusterStore& store, const std::vector<std::string>& ids)
    ZRFS_REQUIRES(store.lock) {
    Transaction look;
    for (const std::string& id : ids) look.ifTrue.push_back(Get(store.names.Children(id), 20));
    TransactionReply reply;
    const Outcome outcome = store.Api().Do(look, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    Change change;
    for (size_t i = 0; i < ids.size() && change.Fits(7); ++i) {
        const Span span = store.names.Children(ids[i]);
        const RangeReply& children = reply.results[i];
        for (const KeyValue& pair : children.found) {
            Child child;
            std::string folded;
            if (!change.Fits(8)) return store.Commit(&change);
            change.operations.push_back(Delete({pair.key}));
            // A record that is none has nothing below it that could be found.
            if (ReadChildOf(pair, span, &child, &folded))
                change.operations.push_back(Put(store.names.Gone(child.id), "{}"));
        }
        if (children.hasMore) continue;
        DeleteRecords(store, ids[i], &change);
        change.operations.push_back(Delete({store.names.Gone(ids[i])}));
    }
    return store.Commit(&change);
}

}  // namespace

FBR_STATUS DeleteKey(ClusterStore& store, const OpenedKey& key) {
    if (!store.storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    if (key.id == kRootId) return FSSTATUS_INVALID_NAME;
    KeyRecord record;
    const FBR_STATUS found = ReadKeyOf(store, key.id, &record);
    if (found != FSSTATUS_SUCCESS) return found;
    return DeleteLeaf(store, record.parent, FoldedText(record.name), key.id, key.lease);
}

FBR_STATUS DeleteGone(ClusterStore& store) {
    for (;;) {
        const Span gone = store.names.AllGone();
        RangeReply reply;
        const Outcome outcome = store.Api().Range({gone, 30, 0, true}, &reply);
        if (outcome != Outcome::Answered) return store.StatusOf(outcome);
        if (reply.found.empty()) return FSSTATUS_SUCCESS;
        std::vector<std::string> ids;
        for (const KeyValue& pair : reply.found) {
            ids.push_back(RestOf(pair.key, gone));
            if (!IsId(ids.back()) || ids.back() == kRootId) return store.Damaged(pair.key);
        }
        const FBR_STATUS status = DeleteSome(store, ids);
        if (status != FSSTATUS_SUCCESS) return status;
    }
}

FBR_STATUS DeleteTree(ClusterStore& store, const std::vector<WString>& parts) {
    if (!store.storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    FBR_STATUS status = FSSTATUS_SUCCESS;
    if (parts.empty()) {
        status = EmptyRoot(store);
    } else {
        Walked walked;
        status = Walk(store, kRootId, parts, &walked);
        if (status == FSSTATUS_SUCCESS && walked.found.size() != parts.size())
            status = FSSTATUS_NOT_FOUND;
        if (status != FSSTATUS_SUCCESS) return status;
        const Child key = std::move(walked.found.back());
        walked.found.pop_back();
        const std::string parent = walked.LastId(kRootId);
        status = DeleteLeaf(store, parent, FoldedText(key.name), key.id, key.lease);
        if (status != FSSTATUS_DIR_NOT_EMPTY) return status;
        status = CutOff(store, parent, {key});
    }
    if (status == FSSTATUS_SUCCESS) DeleteGone(store);  // whatever comes of it, the key is gone
    return status;
}

}  // namespace cluster
