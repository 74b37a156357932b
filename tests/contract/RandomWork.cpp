#include "tests/contract/RandomWork.h"

namespace contract {

// A short path of few names, so that keys meet.
RandomWork::Path RandomWork::RandomPath() {
    Path path;
    for (uint32_t depth = 1 + Roll(3); depth > 0; --depth)
        path.push_back(Name("k" + std::to_string(Roll(3))));
    return path;
}

WString RandomWork::Joined(const Path& path) const {
    WString text = base_;
    for (const WString& part : path) text += WTEXT("\\") + part;
    return text;
}

// The key of a path in the tree, null when it is not there.
Tree* RandomWork::Find(const Path& path) {
    Tree* at = &tree_;
    for (const WString& part : path) {
        const auto next = at->keys.find(part);
        if (next == at->keys.end()) return nullptr;
        at = &next->second;
    }
    return at;
}

void RandomWork::SetValue(OpenStore* store, const Path& path) {
    const WString name = Name("v" + std::to_string(Roll(4)));
    const Value value{Roll(12), Bytes(Roll(4) == 0 ? Roll(3000) : Roll(40), Roll(1000))};
    if (store != nullptr) {
        EXPECT_EQ(store->Set(store->Create(Joined(path)), name, value.bytes, value.type),
                  FSSTATUS_SUCCESS);
    }
    Tree* at = &tree_;
    for (const WString& part : path) at = &at->keys[part];
    const auto old = at->values.find(name);
    undo_ = {path, name, old == at->values.end() ? std::nullopt : std::optional(old->second)};
    at->values[name] = value;
}

Tree RandomWork::HalfDone() const {
    Tree half = tree_;
    if (!undo_) return half;
    Tree* at = &half;
    for (const WString& part : undo_->path) at = &at->keys[part];
    if (undo_->value) {
        at->values[undo_->name] = *undo_->value;
    } else {
        at->values.erase(undo_->name);
    }
    return half;
}

void RandomWork::ReadKey(OpenStore* store, const Path& path) {
    const Tree* key = Find(path);
    if (store == nullptr || key == nullptr) return;
    EXPECT_EQ(store->Content(Joined(path)), *key);
}

void RandomWork::DeleteValue(OpenStore* store, const Path& path) {
    Tree* key = Find(path);
    const WString name = Name("v" + std::to_string(Roll(4)));
    if (key == nullptr) return;
    const bool there = key->values.erase(name) != 0;
    if (store == nullptr) return;
    EXPECT_EQ(FBR_DeleteValue(store->Open(Joined(path)), name.c_str(), store->Get()),
              there ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND);
}

void RandomWork::DeleteTree(OpenStore* store, Path path) {
    const WString whole = Joined(path);
    const WString last = path.back();
    path.pop_back();
    Tree* parent = Find(path);
    const bool there = parent != nullptr && parent->keys.erase(last) != 0;
    if (store == nullptr) return;
    // The parent of a key right below the base is the base, which may not have been made yet.
    const FBR_STATUS status = FBR_DeleteDirNamedEx(whole.c_str(), store->Get());
    if (parent == nullptr || (!base_.empty() && path.empty() && !there)) {
        EXPECT_TRUE(status == differences_.deleteBelowMissing || status == FSSTATUS_NOT_FOUND);
    } else {
        EXPECT_EQ(status, there ? FSSTATUS_SUCCESS : FSSTATUS_NOT_FOUND);
    }
}

void RandomWork::Rename(OpenStore* store, Path path) {
    const WString newName = Name("k" + std::to_string(Roll(4)));
    if (Find(path) == nullptr || newName == path.back()) return;
    const WString whole = Joined(path);
    const WString last = path.back();
    path.pop_back();
    auto& siblings = Find(path)->keys;
    const bool taken = siblings.count(newName) != 0;
    // The names that sort up to the new one end with the old one: the key stays in its place.
    const bool inPlace =
        last < newName && siblings.upper_bound(last) == siblings.lower_bound(newName);
    if (inPlace && differences_.renameInPlaceDuplicates) return;
    if (store != nullptr) {
        const OpenKey key = store->Open(whole);
        FBR_STATUS status = FBR_RenameDirEx(key, newName.c_str(), store->Get());
        if (differences_.renameTripsOverDeleted && status == FSSTATUS_NOT_FOUND)
            status = FSSTATUS_SUCCESS;
        EXPECT_EQ(status, taken ? FSSTATUS_ALREADY_EXISTS : FSSTATUS_SUCCESS);
    }
    if (taken) return;
    auto node = siblings.extract(last);
    node.key() = newName;
    siblings.insert(std::move(node));
}

void RandomWork::Step(OpenStore* store) {
    const Path path = RandomPath();
    const uint32_t what = Roll(12);
    undo_.reset();
    if (what < 6) {
        SetValue(store, path);
    } else if (what < 8) {
        DeleteValue(store, path);
    } else if (what == 8) {
        DeleteTree(store, path);
    } else if (what == 9) {
        Rename(store, path);
    } else {
        ReadKey(store, path);
    }
}

}  // namespace contract
