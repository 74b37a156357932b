// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterDelete.h"

#include <set>

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
    if (change.isConflict && !change.answers[0].found.empty()) return FSSTATUS_DIR_NOT_EMPTY;
    if (change.isConflict) {
        store.listings.clear();
        if (KeptReads* kept = store.Kept()) kept->Clear();
        return FSSTATUS_NOT_FOUND;
    }
    ForgetKey(store, parent, folded, id);
    return FSSTATUS_SUCCESS;
}

// Takes keys of one parent off the tree, each of which has it for its parent or none.
FBR_STATUS CutOff(ClusterStore& store, const std::string& parent,
                  const std::vector<Child>& children) ZRFS_REQUIRES(store.lock) {
    Change change;
    std::set<std::string> ids;
    for (const Child& child : children) {
        change.operations.push_back(Delete({store.names.Child(parent, FoldedText(child.name))}));
        if (!ids.insert(child.id).second) continue;
        change.operations.push_back(Delete({store.names.Key(child.id)}));
        change.operations.push_back(Put(store.names.Gone(child.id), GoneText({})));
    }
    FBR_STATUS status = TouchParent(store, parent, children[0].lease, &change);
    if (status == FSSTATUS_SUCCESS) status = store.Commit(&change);
    for (const Child& child : children) ForgetKey(store, parent, FoldedText(child.name), child.id);
    return status;
}

// A record that leads to a key which hangs elsewhere: the record goes, and the key stays.
FBR_STATUS Unlink(ClusterStore& store, const std::string& parent, const Child& child)
    ZRFS_REQUIRES(store.lock) {
    Change change;
    change.operations = {Delete({store.names.Child(parent, FoldedText(child.name))})};
    FBR_STATUS status = TouchParent(store, parent, child.lease, &change);
    if (status == FSSTATUS_SUCCESS) status = store.Commit(&change);
    store.listings.clear();
    if (KeptReads* kept = store.Kept()) kept->Clear();
    return status;
}

// The next children of the root, as many as fit into one change. Records that are none go at once.
FBR_STATUS NextOfRoot(ClusterStore& store, std::vector<Child>* children) ZRFS_REQUIRES(store.lock) {
    const Span span = store.names.Children(kRootId);
    for (;;) {
        RangeReply reply;
        const Outcome outcome = store.Api().Range({span, 40}, &reply);
        if (outcome != Outcome::Answered) return store.StatusOf(outcome);
        children->clear();
        Change damaged;
        for (const KeyValue& pair : reply.found) {
            std::string folded;
            Child child;
            if (ReadChildOf(pair, span, &child, &folded))
                children->push_back(std::move(child));
            else
                damaged.operations.push_back(Delete({pair.key}));
        }
        if (damaged.operations.empty()) return FSSTATUS_SUCCESS;
        const FBR_STATUS status = store.Commit(&damaged);
        if (status != FSSTATUS_SUCCESS || !children->empty()) return status;
    }
}

FBR_STATUS EmptyRoot(ClusterStore& store) ZRFS_REQUIRES(store.lock) {
    Change change;
    change.operations = {Delete(store.names.Values(kRootId)), Delete(store.names.PiecesOf(kRootId)),
                         Put(store.names.Time(kRootId), TimeText(platform::UtcNow()))};
    FBR_STATUS status = store.Commit(&change);
    for (std::vector<Child> children; status == FSSTATUS_SUCCESS;) {
        status = NextOfRoot(store, &children);
        if (status != FSSTATUS_SUCCESS || children.empty()) break;
        status = CutOff(store, kRootId, children);
    }
    if (KeptReads* kept = store.Kept()) kept->Clear();
    store.listings.clear();
    return status;
}

// A key to be deleted, and the parent that its record must tell; empty where it need not.
struct GoneKey {
    std::string id, parent;
};

// False for one whose own record tells of another parent: the way to it was damaged, and it stays.
bool IsBelow(const GoneKey& key, const RangeReply& record) {
    KeyRecord told;
    return key.parent.empty() || record.found.empty() ||
           !ReadKeyRecord(record.found[0].value, &told) || told.parent == key.parent;
}

// One round: of each key that is cut off, what it holds goes, and its children are cut off, too.
// Whatever state the records are in, no record is put twice, nor put and deleted.
FBR_STATUS DeleteSome(ClusterStore& store, const std::vector<GoneKey>& keys)
    ZRFS_REQUIRES(store.lock) {
    Transaction look;
    std::set<std::string> known;
    for (const GoneKey& key : keys) {
        known.insert(key.id);
        look.ifTrue.push_back(Get(store.names.Children(key.id), 20));
        look.ifTrue.push_back(Get({store.names.Key(key.id)}));
    }
    TransactionReply reply;
    const Outcome outcome = store.Api().Do(look, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    Change change;
    for (size_t i = 0; i < keys.size() && change.Fits(7); ++i) {
        const std::string& id = keys[i].id;
        const RangeReply& children = reply.results[2 * i];
        const Operation done = Delete({store.names.Gone(id)});
        if (!IsBelow(keys[i], reply.results[2 * i + 1])) {
            change.operations.push_back(done);
            continue;
        }
        for (const KeyValue& pair : children.found) {
            Child child;
            std::string folded;
            if (!change.Fits(8)) return store.Commit(&change);
            change.operations.push_back(Delete({pair.key}));
            // A record that is none has nothing below it that could be found.
            if (ReadChildOf(pair, store.names.Children(id), &child, &folded) &&
                known.insert(child.id).second)
                change.operations.push_back(Put(store.names.Gone(child.id), GoneText(id)));
        }
        if (children.hasMore) continue;
        DeleteRecords(store, id, &change);
        change.operations.push_back(done);
    }
    return store.Commit(&change);
}

}  // namespace

FBR_STATUS DeleteKey(ClusterStore& store, const OpenedKey& key) {
    if (!store.storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    if (key.id == kRootId) return FSSTATUS_INVALID_NAME;
    KeyRecord record;
    const FBR_STATUS found = ReadKeyOf(store, key, &record);
    if (found != FSSTATUS_SUCCESS) return found;
    return DeleteLeaf(store, record.parent, FoldedText(record.name), key.id, key.lease);
}

// Records that name no key are passed over.
FBR_STATUS DeleteGone(ClusterStore& store) {
    const Span all = store.names.AllGone();
    bool isDone = true;
    for (Span rest = all;;) {
        RangeReply reply;
        const Outcome outcome = store.Api().Range({rest, 30}, &reply);
        if (outcome != Outcome::Answered) return store.StatusOf(outcome);
        std::vector<GoneKey> keys;
        for (const KeyValue& pair : reply.found) {
            std::string id = RestOf(pair.key, all);
            if (IsId(id) && id != kRootId) keys.push_back({std::move(id), ReadGone(pair.value)});
        }
        if (!keys.empty()) {
            isDone = false;
            const FBR_STATUS status = DeleteSome(store, keys);
            if (status != FSSTATUS_SUCCESS) return status;
        } else if (reply.hasMore) {
            rest.from = reply.found.back().key + '\0';
        } else if (isDone) {
            return FSSTATUS_SUCCESS;
        } else {
            isDone = true;  // unless more has come
            rest = all;
        }
    }
}

namespace {

// By what the key's own record tells, if there is one; it is asked for where it is not known.
FBR_STATUS DeleteLinked(ClusterStore& store, const std::string& parent, const Child& key)
    ZRFS_REQUIRES(store.lock) {
    KeptReads* kept = store.Kept();
    KeyRecord record;
    const std::string place = PlaceText(parent, key.name);
    const bool isKnown = kept != nullptr && kept->PlaceOf(key.id) == place;
    bool isRecord = isKnown;
    if (!isKnown) {
        RangeReply reply;
        const Outcome outcome = store.Api().Range({{store.names.Key(key.id)}}, &reply);
        if (outcome != Outcome::Answered) return store.StatusOf(outcome);
        isRecord = !reply.found.empty() && ReadKeyRecord(reply.found[0].value, &record);
    }
    const bool isElsewhere = isRecord && !isKnown && PlaceText(record.parent, record.name) != place;
    if (isElsewhere || key.id == parent) return Unlink(store, parent, key);
    if (isRecord) {
        const FBR_STATUS status =
            DeleteLeaf(store, parent, FoldedText(key.name), key.id, key.lease);
        // What somebody changed by hand is not kept any more.
        if (status == FSSTATUS_NOT_FOUND && isKnown) return DeleteLinked(store, parent, key);
        if (status != FSSTATUS_DIR_NOT_EMPTY) return status;
    }
    return CutOff(store, parent, {key});
}

}  // namespace

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
        status = DeleteLinked(store, parent, key);
    }
    if (status == FSSTATUS_SUCCESS) DeleteGone(store);  // whatever comes of it, the key is gone
    return status;
}

}  // namespace cluster
