// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterKeys.h"

#include <exception>

#include "FS_Library_DLL/cluster/KeyRecords.h"

namespace cluster {
namespace {

using platform::UtcNow;

// Keys of a long path that are made in one transaction: two records each, and some beside.
constexpr size_t kKeysAtOnce = 60;

Operation Touch(const ClusterStore& store, const OpenedKey& key) {
    return Put(store.names.Time(key.id), TimeText(UtcNow()), key.lease);
}

// Volatile keys of this store hang on one lease.
FBR_STATUS VolatileLease(ClusterStore& store, int64_t* lease) ZRFS_REQUIRES(store.lock) {
    if (store.volatileLease == 0 || store.leases.IsLost(store.volatileLease)) {
        const auto asked = Clock::now();
        const Outcome outcome = store.Api().Grant(store.settings->lease, lease);
        if (outcome != Outcome::Answered) return store.StatusOf(outcome);
        try {
            store.leases.Keep(*lease, asked);
        } catch (const std::exception&) {
            return FSSTATUS_FAILED;
        }
        store.volatileLease = *lease;
    }
    *lease = store.volatileLease;
    return FSSTATUS_SUCCESS;
}

// The keys of a path that are to be made, the first of them below `parent`.
struct NewKeys {
    OpenedKey parent;
    std::vector<WString> names;
    std::vector<std::string> ids;
    int64_t lease;
};

// Those from `first` up to `end`, with what is there from `end` on linked below them. All of it
// hangs on a record of things to be deleted until the first of all is made.
Change PartOfPath(const ClusterStore& store, const NewKeys& keys, size_t first, size_t end) {
    Change change;
    const auto link = [&](size_t i) {
        const std::string& parent = i == 0 ? keys.parent.id : keys.ids[i - 1];
        change.operations.push_back(Put(store.names.Child(parent, FoldedText(keys.names[i])),
                                        ChildText({keys.ids[i], keys.names[i]}), keys.lease));
    };
    for (size_t i = first; i < end; ++i) {
        const std::string& parent = i == 0 ? keys.parent.id : keys.ids[i - 1];
        change.operations.push_back(Put(store.names.Key(keys.ids[i]),
                                        KeyText({parent, keys.names[i], UtcNow()}), keys.lease));
        if (i > first || first == 0) link(i);
    }
    if (end < keys.names.size()) {
        link(end);
        change.operations.push_back(Delete({store.names.Gone(keys.ids[end])}));
    }
    if (first != 0) {
        change.operations.push_back(Put(store.names.Gone(keys.ids[first]), "{}"));
        return change;
    }
    const std::string record = store.names.Child(keys.parent.id, FoldedText(keys.names[0]));
    change.operations.push_back(Touch(store, keys.parent));
    change.compares = {IsThere(store.names.Key(keys.parent.id)), IsMissing({record})};
    change.onConflict = {Get({record})};
    return change;
}

void KeepNewKeys(ClusterStore& store, const NewKeys& keys) ZRFS_REQUIRES(store.lock) {
    store.DropListings(keys.parent.id);
    KeptReads* kept = store.Kept();
    if (kept == nullptr || store.MayGo(keys.lease)) return;
    for (size_t i = 0; i < keys.names.size(); ++i) {
        const std::string& parent = i == 0 ? keys.parent.id : keys.ids[i - 1];
        kept->Keep(parent, FoldedText(keys.names[i]),
                   Child{keys.ids[i], keys.names[i], keys.lease});
        kept->Children(keys.ids[i]).isAll = true;
        kept->Values(keys.ids[i]).isAll = true;
        kept->KeepPlace(keys.ids[i], PlaceText(parent, keys.names[i]));
    }
}

FBR_STATUS MakeKeys(ClusterStore& store, NewKeys* keys) ZRFS_REQUIRES(store.lock) {
    for (size_t i = 0; i < keys->names.size(); ++i) keys->ids.push_back(NewId());
    for (size_t end = keys->names.size(); end > 0;) {
        const size_t first = end > kKeysAtOnce ? end - kKeysAtOnce : 0;
        Change change = PartOfPath(store, *keys, first, end);
        // Parts of a path have records in common, and go one after the other.
        const bool isWhole = first == 0 && end == keys->names.size();
        const FBR_STATUS status = isWhole ? store.CommitSoon(&change) : store.Commit(&change);
        if (status != FSSTATUS_SUCCESS) return status;
        if (change.isConflict) return AfterConflict(store, keys->parent);
        end = first;
    }
    KeepNewKeys(store, *keys);
    return FSSTATUS_SUCCESS;
}

}  // namespace

FBR_STATUS OpenPath(ClusterStore& store, const OpenedKey& base, const std::vector<WString>& parts,
                    OpenedKey* opened) {
    Walked walked;
    *opened = base;
    if (parts.empty()) return FSSTATUS_SUCCESS;
    const FBR_STATUS status = Walk(store, base.id, parts, &walked);
    if (status != FSSTATUS_SUCCESS) return status;
    if (walked.found.size() != parts.size()) return FSSTATUS_NOT_FOUND;
    *opened = walked.Last(base, parts);
    return FSSTATUS_SUCCESS;
}

FBR_STATUS MakePath(ClusterStore& store, const OpenedKey& base, const std::vector<WString>& parts,
                    bool isVolatile, OpenedKey* opened) {
    if (!store.storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    *opened = base;
    if (parts.empty()) return FSSTATUS_SUCCESS;
    Walked walked;
    FBR_STATUS status = Walk(store, base.id, parts, &walked);
    if (status != FSSTATUS_SUCCESS) return status;
    const OpenedKey last = walked.Last(base, parts);
    NewKeys keys{last,
                 {parts.begin() + static_cast<ptrdiff_t>(walked.found.size()), parts.end()},
                 {},
                 last.lease};
    if (keys.names.empty()) {
        *opened = last;
        return FSSTATUS_ALREADY_EXISTS;
    }
    if (isVolatile && keys.lease == 0) {
        // Those on the way to it stay.
        if (keys.names.size() > 1) {
            OpenedKey parent;
            status = MakePath(store, base, {parts.begin(), parts.end() - 1}, false, &parent);
            if (status != FSSTATUS_SUCCESS) return status;
            return MakePath(store, parent, {parts.back()}, true, opened);
        }
        status = VolatileLease(store, &keys.lease);
        if (status != FSSTATUS_SUCCESS) return status;
    }
    status = MakeKeys(store, &keys);
    if (status != FSSTATUS_SUCCESS) return status;
    const std::string& parent = keys.ids.size() > 1 ? keys.ids.end()[-2] : last.id;
    *opened = {keys.ids.back(), PathOf(base.path, parts), keys.lease, parent, last.way};
    return FSSTATUS_SUCCESS;
}

FBR_STATUS RenameKey(ClusterStore& store, const OpenedKey& key, const WString& newName) {
    if (!store.storeLock.FenceOfChange()) return FSSTATUS_LOCK_FAILED;
    KeyRecord record;
    const FBR_STATUS found = ReadKeyOf(store, key, &record);
    if (found != FSSTATUS_SUCCESS) return found;
    const std::string folded = FoldedText(record.name), newFolded = FoldedText(newName);
    const std::string from = store.names.Child(record.parent, folded),
                      to = store.names.Child(record.parent, newFolded);
    Change change;
    change.compares = {IsThere(store.names.Key(key.id)), IsThere(from)};
    if (from != to) {
        change.compares.push_back(IsMissing({to}));
        change.operations.push_back(Delete({from}));
    }
    record.name = newName;
    change.operations.push_back(Put(to, ChildText({key.id, newName}), key.lease));
    change.operations.push_back(Put(store.names.Key(key.id), KeyText(record), key.lease));
    const FBR_STATUS touched = TouchParent(store, record.parent, key.lease, &change);
    if (touched != FSSTATUS_SUCCESS) return touched;
    change.onConflict = {Get({to})};
    const FBR_STATUS status = store.Commit(&change);
    if (status != FSSTATUS_SUCCESS) return status;
    if (change.isConflict)
        return from != to && !change.answers[0].found.empty() ? FSSTATUS_ALREADY_EXISTS
                                                              : AfterConflict(store, key);
    store.DropListings(record.parent);
    if (KeptReads* kept = store.Kept()) {
        kept->Children(record.parent).found.erase(folded);
        kept->Keep(record.parent, newFolded, Child{key.id, newName, key.lease});
    }
    return FSSTATUS_SUCCESS;
}

FBR_STATUS KeyTime(ClusterStore& store, const OpenedKey& key, platform::UtcTime* time) {
    if (const KeptReads* kept = store.Kept())
        if (const platform::UtcTime* known = kept->FindTime(key.id)) {
            *time = *known;
            return FSSTATUS_SUCCESS;
        }
    const std::string changed = store.names.Time(key.id), made = store.names.Key(key.id);
    Transaction look;
    look.ifTrue = {Get({made}), Get({changed})};
    TransactionReply reply;
    const Outcome outcome = store.Api().Do(look, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    if (reply.results[0].found.empty()) return WhyMissing(store, key);
    if (TimeOf(reply.results[0], reply.results[1], time)) return FSSTATUS_SUCCESS;
    return store.Damaged(reply.results[1].found.empty() ? made : changed);
}

FBR_STATUS OpenRoot(ClusterStore& store) {
    const std::string record = store.names.Key(kRootId);
    RangeReply root;
    const Outcome outcome = store.Api().Range({{record}}, &root);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    store.isMade = !root.found.empty();
    if (!store.isMade) return FSSTATUS_SUCCESS;
    int layout = 0;
    if (!ReadLayout(root.found[0].value, &layout)) return store.Damaged(record);
    return layout == kLayout ? FSSTATUS_SUCCESS : FSSTATUS_VERSION_MISMATCH;
}

FBR_STATUS MakeRoot(ClusterStore& store) {
    constexpr const platform::WChar* kVersionName = WTEXT("FBRVersion");
    const std::string record = store.names.Key(kRootId);
    const ValueRecord version{kVersionName, FBR_TYPE_DWORD, std::string("\2\0\0\0", 4)};
    Change change;
    change.compares = {IsMissing({record})};
    change.operations = {
        Put(record, RootText(UtcNow())),
        Put(store.names.Value(kRootId, FoldedText(kVersionName)), ValueText(version))};
    const FBR_STATUS status = store.Commit(&change);
    if (status != FSSTATUS_SUCCESS) return status;
    store.isMade = true;
    return change.isConflict ? OpenRoot(store) : FSSTATUS_SUCCESS;
}

}  // namespace cluster
