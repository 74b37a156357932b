#include "tests/sharing/Victim.h"

#include <algorithm>
#include <cstdio>

namespace sharing {
namespace {

using faults::Step;
using support::ChildRole;

// STORE PROGRESS SEED LOCKING: takes the steps of a seed until it is killed or one fails, with a
// byte in a file for each that was done; under one lock, or with a lock for each.
void BeVictim(const Words& words, Tally* tally) {
    Store store(words[0]);
    Key start;
    if (!tally->Went(store.status, "open") || !tally->Went(store.Lock(), "lock")) return;
    if (!tally->Went(ReadAll(store.handle, &start), "walk")) return;
    Steps steps(static_cast<uint32_t>(std::stoul(words[2])), start);
    std::FILE* progress = std::fopen(words[1].c_str(), "wb");
    for (const bool often = words[3] == "often";;) {
        if (often && !tally->Went(store.Unlock(), "release")) return;
        if (often && !tally->Went(store.Lock(), "lock")) return;
        if (!tally->Did(Apply(steps.Next(), &store), "step")) return;
        std::fputc('.', progress);
        std::fflush(progress);
    }
}
const ChildRole kVictim("sharing-victim", Role<BeVictim>);

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
    Key* whole = faults::FindKey(&before, above);
    Key* part = faults::FindKey(&found, above);
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

std::string Name(const std::u16string& text) {
    std::string name;
    for (const char16_t unit : text) name += static_cast<char>(unit);
    return name;
}

// The places where two contents differ, for people.
void Differences(const Key& before, const Key& found, const std::string& path, std::string* text) {
    if (text->size() > 400) return;
    for (const auto& [name, value] : before.values) {
        const auto other = found.values.find(name);
        if (other == found.values.end())
            *text += "- " + path + " " + Name(name) + "\n";
        else if (!(other->second == value))
            *text += "~ " + path + " " + Name(name) + ": " + std::to_string(value.data.size()) +
                     " bytes, now " + std::to_string(other->second.data.size()) + "\n";
    }
    for (const auto& [name, value] : found.values)
        if (before.values.count(name) == 0) *text += "+ " + path + " " + Name(name) + "\n";
    for (const auto& [name, key] : before.keys) {
        const auto other = found.keys.find(name);
        if (other == found.keys.end())
            *text += "- " + path + "\\" + Name(name) + "\n";
        else
            Differences(key, other->second, path + "\\" + Name(name), text);
    }
    for (const auto& [name, key] : found.keys)
        if (before.keys.count(name) == 0) *text += "+ " + path + "\\" + Name(name) + "\n";
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

}  // namespace

Step Steps::Next() {
    for (;;) {
        Step step = faults::RandomStep(&random_, content_);
        const uint32_t roll = static_cast<uint32_t>(random_() % 16);
        const bool ofValue = step.kind == Step::Kind::Set || step.kind == Step::Kind::DeleteValue;
        // Values that bear the names of keys beside them.
        if (ofValue && roll < 5) step.name = u"k" + std::u16string(1, u'0' + roll);
        if (step.kind == Step::Kind::Set && roll % 4 == 1) {
            step.value.data.resize(random_() % 12001);
            std::generate(step.value.data.begin(), step.value.data.end(),
                          [&] { return static_cast<uint8_t>(random_()); });
        }
        if (IsInTheWay(content_, step.path)) continue;
        if (faults::Apply(step, &content_)) return step;
    }
}

std::string JudgeCut(const Key& before, const Step& step, const Key& found) {
    Key after = before;
    faults::Apply(step, &after);
    if (found == before || found == after) return {};
    if (step.kind == Step::Kind::DeleteKey && IsDeletionOnTheWay(before, step, found)) return {};
    if (step.kind == Step::Kind::Set && IsMakingOnTheWay(before, step, found)) return {};
    constexpr const char* kKinds[] = {"set", "delete value", "delete key", "rename", "compact"};
    std::string text = std::string(kKinds[static_cast<int>(step.kind)]) + " at";
    for (const std::u16string& part : step.path) text += "\\" + Name(part);
    text += " " + Name(step.name) + "\n";
    Differences(before, found, "", &text);
    return text;
}

uint64_t StepsDone(const std::string& progress) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(progress, missing);
    return missing ? 0 : size;
}

}  // namespace sharing
