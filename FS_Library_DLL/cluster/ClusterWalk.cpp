// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/ClusterWalk.h"

#include <algorithm>

namespace cluster {
namespace {

constexpr int64_t kChildrenAtOnce = 1000;
constexpr int kMostWalks = 20;
// Of a very deep path, the first parts are no more looked at than this.
constexpr size_t kMostCompares = 100;
constexpr size_t kMostSeen = 4096;

// What the steps of a walk have seen, each of which looks at all before it again: so that the last
// one knows all of the way at one moment.
struct Way {
    std::vector<Compare> seen;

    void Saw(const std::string& record, int64_t modified) {
        if (seen.size() == kMostCompares) seen.erase(seen.begin());
        seen.push_back({Compare::What::Modified, Compare::How::Equal, {record}, modified});
    }
};

// One step of a walk without the lock. `moved` becomes true when something on the way changed.
FBR_STATUS Step(ClusterStore& store, const std::string& parent, const WString& name, Way* way,
                Child* child, bool* moved) ZRFS_REQUIRES(store.lock) {
    const Span children = store.names.Children(parent);
    const std::string record = children.from + FoldedText(name);
    Transaction transaction{way->seen, {Get({record})}, {}};
    TransactionReply reply;
    const Outcome outcome = store.Api().Do(transaction, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    *moved = !reply.isTrue;
    if (*moved) return FSSTATUS_SUCCESS;
    if (reply.results[0].found.empty()) return FSSTATUS_NOT_FOUND;
    const KeyValue& pair = reply.results[0].found[0];
    std::string folded;
    if (pair.key != record || !ReadChildOf(pair, children, child, &folded))
        return store.Damaged(record);
    way->Saw(record, pair.modified);
    if (store.seen.size() >= kMostSeen) store.seen.clear();
    store.seen[record] = {*child, pair.modified};
    return FSSTATUS_SUCCESS;
}

// The first parts as they were when they were last seen.
void WalkSeen(ClusterStore& store, const std::string& base, const std::vector<WString>& parts,
              Walked* walked, Way* way) ZRFS_REQUIRES(store.lock) {
    if (parts.size() > kMostCompares) return;
    for (const WString& part : parts) {
        const std::string record = store.names.Child(walked->LastId(base), FoldedText(part));
        const auto found = store.seen.find(record);
        if (found == store.seen.end()) return;
        walked->found.push_back(found->second.child);
        way->Saw(record, found->second.modified);
    }
}

// Whether nothing of the way has changed.
FBR_STATUS LookAgain(ClusterStore& store, const Way& way, bool* moved) ZRFS_REQUIRES(store.lock) {
    TransactionReply reply;
    const Outcome outcome = store.Api().Do({way.seen, {}, {}}, &reply);
    *moved = !reply.isTrue;
    return store.StatusOf(outcome);
}

FBR_STATUS WalkFree(ClusterStore& store, const std::string& base, const std::vector<WString>& parts,
                    Walked* walked) ZRFS_REQUIRES(store.lock) {
    for (int tries = 0; tries < kMostWalks; ++tries) {
        walked->found.clear();
        Way way;
        bool moved = false;
        WalkSeen(store, base, parts, walked, &way);
        if (walked->found.size() == parts.size()) {
            const FBR_STATUS status = LookAgain(store, way, &moved);
            if (status != FSSTATUS_SUCCESS) return status;
        }
        while (!moved && walked->found.size() < parts.size()) {
            Child child;
            const WString& part = parts[walked->found.size()];
            const FBR_STATUS status = Step(store, walked->LastId(base), part, &way, &child, &moved);
            if (status == FSSTATUS_NOT_FOUND) return FSSTATUS_SUCCESS;
            if (status != FSSTATUS_SUCCESS) return status;
            if (!moved) walked->found.push_back(std::move(child));
        }
        if (!moved) return FSSTATUS_SUCCESS;
        store.seen.clear();
    }
    return FSSTATUS_LOCK_FAILED;  // others' changes leave no moment
}

// Under the lock, all children of a key are read at once where there are not too many.
FBR_STATUS ReadChildren(ClusterStore& store, const std::string& parent, KeptReads* kept)
    ZRFS_REQUIRES(store.lock) {
    const Span children = store.names.Children(parent);
    RangeReply reply;
    const Outcome outcome = store.Api().Range({children, kChildrenAtOnce}, &reply);
    if (outcome != Outcome::Answered) return store.StatusOf(outcome);
    bool all = !reply.hasMore;
    for (const KeyValue& pair : reply.found) {
        Child child;
        std::string folded;
        // Who asks for one that is none is told.
        if (!ReadChildOf(pair, children, &child, &folded) || store.MayGo(pair.lease))
            all = false;
        else
            kept->Keep(parent, folded, std::move(child));
    }
    kept->Children(parent).isAll = all;
    return FSSTATUS_SUCCESS;
}

FBR_STATUS StepKept(ClusterStore& store, KeptReads& kept, const std::string& parent,
                    const WString& name, Child* child) ZRFS_REQUIRES(store.lock) {
    const std::string folded = FoldedText(name);
    KeptReads::Names<Child>* children = &kept.Children(parent);
    auto found = children->found.find(folded);
    if (found == children->found.end() && !children->isAll && children->found.empty()) {
        const FBR_STATUS status = ReadChildren(store, parent, &kept);
        if (status != FSSTATUS_SUCCESS) return status;
        found = children->found.find(folded);
    }
    if (found != children->found.end()) {
        *child = found->second;
        return FSSTATUS_SUCCESS;
    }
    if (children->isAll) return FSSTATUS_NOT_FOUND;
    Way way;
    bool moved = false;
    const FBR_STATUS status = Step(store, parent, name, &way, child, &moved);
    if (status == FSSTATUS_SUCCESS && !store.MayGo(child->lease)) kept.Keep(parent, folded, *child);
    return status;
}

}  // namespace

std::vector<WString> PartsOf(WStringView path) {
    std::vector<WString> parts;
    while (!path.empty()) {
        const size_t end = std::min(path.find('\\'), path.size());
        if (end != 0) parts.emplace_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return parts;
}

WString PathOf(const WString& parent, const std::vector<WString>& parts) {
    WString path = parent;
    for (const WString& part : parts) path += WTEXT("\\") + part;
    return path;
}

OpenedKey Walked::Last(const OpenedKey& base, const std::vector<WString>& parts) const {
    if (found.empty()) return base;
    const auto end = parts.begin() + static_cast<ptrdiff_t>(found.size());
    WayDown way = base.way;
    for (const Child& child : found) way.Step(child.id);
    return {found.back().id, PathOf(base.path, {parts.begin(), end}), found.back().lease,
            found.size() > 1 ? found.end()[-2].id : base.id, way};
}

bool ReadChildOf(const KeyValue& pair, const Span& children, Child* child, std::string* folded) {
    ChildRecord record;
    *folded = RestOf(pair.key, children);
    if (!ReadChild(pair.value, *folded, &record)) return false;
    *child = {std::move(record.id), std::move(record.name), pair.lease};
    return true;
}

FBR_STATUS Walk(ClusterStore& store, const std::string& base, const std::vector<WString>& parts,
                Walked* walked) {
    walked->found.clear();
    KeptReads* kept = store.Kept();
    if (kept == nullptr) return WalkFree(store, base, parts, walked);
    for (const WString& part : parts) {
        Child child;
        const FBR_STATUS status = StepKept(store, *kept, walked->LastId(base), part, &child);
        if (status == FSSTATUS_NOT_FOUND) break;
        if (status != FSSTATUS_SUCCESS) return status;
        walked->found.push_back(std::move(child));
    }
    return FSSTATUS_SUCCESS;
}

}  // namespace cluster
