// SPDX-License-Identifier: MIT
#include "tests/faults/Registry.h"

#include <algorithm>

namespace faults {

namespace {

using support::container::Numbered;
using support::container::ToWide;

WString Joined(const std::vector<std::u16string>& path) {
    WString text;
    for (const std::u16string& part : path) text += WTEXT("\\") + ToWide(part);
    return text;
}

Bytes RandomData(std::mt19937* random) {
    const uint32_t sizes[] = {0, 4, 20, 60, 300, 600, 2000, 9000};
    Bytes data(sizes[(*random)() % std::size(sizes)]);
    for (uint8_t& byte : data) byte = static_cast<uint8_t>((*random)());
    return data;
}

void Flatten(const Key& key, Path* path, Values* values) {
    path->emplace_back();
    for (const auto& [name, value] : key.values) {
        path->back() = name;
        values->emplace(*path, value);
    }
    for (const auto& [name, child] : key.keys) {
        path->back() = name;
        Flatten(child, path, values);
    }
    path->pop_back();
}

FBR_STATUS OnKey(const Step& step, Store* store, FBR_KEY key) {
    const WString name = ToWide(step.name);
    switch (step.kind) {
        case Step::Kind::Set:
            return store->Set(key, name, step.value.data, step.value.type);
        case Step::Kind::DeleteValue:
            return FBR_DeleteValue(key, name.c_str(), store->handle);
        default:
            return FBR_RenameDirEx(key, name.c_str(), store->handle);
    }
}

// What is left of a tree whose deletion was cut off.
bool IsPartOf(const Key& part, const Key& whole) {
    const auto value = [&](const auto& entry) {
        const auto found = whole.values.find(entry.first);
        return found != whole.values.end() && found->second == entry.second;
    };
    const auto key = [&](const auto& entry) {
        const auto found = whole.keys.find(entry.first);
        return found != whole.keys.end() && IsPartOf(entry.second, found->second);
    };
    return std::all_of(part.values.begin(), part.values.end(), value) &&
           std::all_of(part.keys.begin(), part.keys.end(), key);
}

bool IsDeletionOnTheWay(Key before, const Step& step, Key found) {
    const std::vector<std::u16string> above(step.path.begin(), step.path.end() - 1);
    Key* whole = FindKey(&before, above);
    Key* part = FindKey(&found, above);
    if (whole == nullptr || part == nullptr) return false;
    const auto wholeNode = whole->keys.extract(step.path.back());
    const auto partNode = part->keys.extract(step.path.back());
    return before == found && (partNode.empty() || IsPartOf(partNode.mapped(), wholeNode.mapped()));
}

bool IsMakingOnTheWay(Key before, const Step& step, const Key& found) {
    Key* key = &before;
    for (const std::u16string& part : step.path) {
        key = &key->keys[part];
        if (before == found) return true;
    }
    return false;
}

// A value makes room for the last key of a path, and not for one on the way to it.
bool IsInTheWay(const Key& root, const std::vector<std::u16string>& path) {
    const Key* key = &root;
    for (size_t i = 0; i + 1 < path.size(); ++i) {
        const auto below = key->keys.find(path[i]);
        if (below == key->keys.end()) return key->values.count(path[i]) != 0;
        key = &below->second;
    }
    return false;
}

std::string Told(const Path& path) {
    return platform::ToUtf8(Joined(path));
}

}  // namespace

Key* FindKey(Key* root, const std::vector<std::u16string>& path) {
    Key* key = root;
    for (const std::u16string& part : path) {
        const auto found = key->keys.find(part);
        if (found == key->keys.end()) return nullptr;
        key = &found->second;
    }
    return key;
}

bool Apply(const Step& step, Key* root) {
    if (step.kind == Step::Kind::Compact) return true;
    if (step.kind == Step::Kind::Set) {
        Key* key = root;
        for (const std::u16string& part : step.path) key = &key->keys[part];
        key->values[step.name] = step.value;
        return true;
    }
    Key* key = FindKey(root, step.path);
    if (key == nullptr) return false;
    if (step.kind == Step::Kind::DeleteValue) return key->values.erase(step.name) != 0;
    const std::vector<std::u16string> above(step.path.begin(), step.path.end() - 1);
    Key* parent = FindKey(root, above);
    if (step.kind == Step::Kind::Rename && parent->keys.count(step.name) != 0) return false;
    auto node = parent->keys.extract(step.path.back());
    if (step.kind == Step::Kind::DeleteKey) return true;
    node.key() = step.name;
    parent->keys.insert(std::move(node));
    return true;
}

FBR_STATUS Apply(const Step& step, Store* store) {
    const WString path = Joined(step.path);
    if (step.kind == Step::Kind::DeleteKey)
        return FBR_DeleteDirNamedEx(path.c_str(), store->handle);
    if (step.kind == Step::Kind::Compact) {
        uint32_t done = 0;
        return FBR_Compact(store->handle, &done);
    }
    const FBR_KEY key = step.path.empty()              ? store->Root()
                        : step.kind == Step::Kind::Set ? store->Make(path)
                                                       : store->Open(path);
    if (key == 0) return FSSTATUS_FAILED;
    const FBR_STATUS status = OnKey(step, store, key);
    FBR_CloseDirEx(key, store->handle);
    return status;
}

Step RandomStep(std::mt19937* random, const Key& root) {
    const auto roll = [random](uint32_t below) {
        return static_cast<uint32_t>((*random)() % below);
    };
    Step step{Step::Kind::Set, {}, Numbered(roll(6) == 0 ? u"v/:" : u"v", roll(12)), {}};
    for (uint32_t depth = roll(4); depth > 0; --depth)
        step.path.push_back(Numbered(roll(9) == 0 ? u"a key with a long name " : u"k", roll(4)));
    const uint32_t what = roll(20);
    if (what < 11) {
        step.value = {1 + roll(11), RandomData(random)};
    } else if (what < 15) {
        step.kind = Step::Kind::DeleteValue;
        if (!root.keys.empty() && roll(3) != 0) step.path = {root.keys.begin()->first};
    } else if (!step.path.empty()) {
        step.kind = what < 17 ? Step::Kind::DeleteKey : Step::Kind::Rename;
        if (step.kind == Step::Kind::Rename) step.name = Numbered(u"k", roll(6));
    } else if (what > 16) {
        step.kind = Step::Kind::Compact;
    }
    return step;
}

Step Steps::Next() {
    for (;;) {
        Step step = RandomStep(&random_, content_);
        const uint32_t roll = static_cast<uint32_t>(random_() % 16);
        const bool ofValue = step.kind == Step::Kind::Set || step.kind == Step::Kind::DeleteValue;
        // Values that bear the names of keys beside them.
        if (ofValue && roll < 5) step.name = Numbered(u"k", roll);
        if (step.kind == Step::Kind::Set && roll % 4 == 1) {
            step.value.data.resize(random_() % 12001);
            std::generate(step.value.data.begin(), step.value.data.end(),
                          [&] { return static_cast<uint8_t>(random_()); });
        }
        const bool wanted = kinds_.empty() || std::count(kinds_.begin(), kinds_.end(), step.kind);
        if (!wanted || IsInTheWay(content_, step.path)) continue;
        if (Apply(step, &content_)) return step;
    }
}

uint64_t StepsDone(const std::string& progress) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(progress, missing);
    return missing ? 0 : size;
}

Values Flatten(const Key& key) {
    Values values;
    Path path;
    Flatten(key, &path, &values);
    return values;
}

std::string JudgeCut(const Key& before, const Step& step, const Key& found) {
    Key after = before;
    Apply(step, &after);
    if (found == before || found == after) return {};
    if (step.kind == Step::Kind::DeleteKey && IsDeletionOnTheWay(before, step, found)) return {};
    if (step.kind == Step::Kind::Set && IsMakingOnTheWay(before, step, found)) return {};
    constexpr const char* kKinds[] = {"set", "delete value", "delete key", "rename", "compact"};
    std::string text = std::string(kKinds[static_cast<int>(step.kind)]) + " at" + Told(step.path) +
                       " " + platform::ToUtf8(ToWide(step.name)) + "\n";
    // The values that are not what they were.
    const Values was = Flatten(before), is = Flatten(found);
    for (const auto& [path, value] : was)
        if (is.count(path) == 0 || !(is.at(path) == value)) text += "- " + Told(path) + "\n";
    for (const auto& [path, value] : is)
        if (was.count(path) == 0 || !(was.at(path) == value)) text += "+ " + Told(path) + "\n";
    return text;
}

}  // namespace faults
