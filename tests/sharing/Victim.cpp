// SPDX-License-Identifier: MIT
#include "tests/sharing/Victim.h"

#include <algorithm>
#include <cstdio>

namespace sharing {
namespace {

using faults::Step;

// STORE PROGRESS SEED LOCKING: takes the steps of a seed until it is killed or one fails, with a
// byte in a file for each that was done; under one lock, or with a lock for each.
const Role kVictim("victim", [](const Words& words, Tally* tally) {
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
});

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

uint64_t StepsDone(const std::string& progress) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(progress, missing);
    return missing ? 0 : size;
}

}  // namespace sharing
