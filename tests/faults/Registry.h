// SPDX-License-Identifier: MIT
// A registry in plain memory and random work that is done on it and on a store alike.
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/ContainerReader.h"
#include "tests/support/Store.h"

namespace faults {

using platform::WString;
using support::Bytes;
using support::Store;
using support::container::Key;
using support::container::Value;

// One step of work. Values are set in keys that the step makes when they are missing.
struct Step {
    enum class Kind { Set, DeleteValue, DeleteKey, Rename, Compact };
    Kind kind;
    std::vector<std::u16string> path;  // of the key
    std::u16string name;               // of the value, or the new name of the key
    Value value = {};
};

// The key at `path`, null when it is missing.
Key* FindKey(Key* root, const std::vector<std::u16string>& path);

// Does the step on the model. False when there is nothing to do it on, and nothing is changed.
bool Apply(const Step& step, Key* root);
// Does a step that Apply did, on the store; the first failure.
FBR_STATUS Apply(const Step& step, Store* store);

// A step like those that a program makes, repeatable by the state of `random`.
Step RandomStep(std::mt19937* random, const Key& root);

// The steps of one seed. They depend on the content that they begin with, so that who knows both
// knows them all.
class Steps {
  public:
    // Of these kinds only, if there are any.
    Steps(uint32_t seed, const Key& start, std::vector<Step::Kind> kinds = {})
        : random_(seed), content_(start), kinds_(std::move(kinds)) {}
    // The next step, which has been done on the content then.
    Step Next();
    const Key& Content() const { return content_; }

  private:
    std::mt19937 random_;
    Key content_;
    const std::vector<Step::Kind> kinds_;
};

// How many steps somebody has done who writes a byte for each into a file.
uint64_t StepsDone(const std::string& progress);

// Every value of a key and below it, by its path, the name last.
using Path = std::vector<std::u16string>;
using Values = std::map<Path, Value>;
Values Flatten(const Key& key);

// Empty when `found` is what a step that was cut off may leave: the content before it or after it.
// A step that makes several keys may have made the first of them, and one that deletes a tree may
// have deleted some of it. Else what is the matter.
std::string JudgeCut(const Key& before, const faults::Step& step, const Key& found);

// What a store holds, read from its bytes, without the value that tells its version.
inline Key ContentOf(const support::container::Reading& reading) {
    Key root = RegistryOf(reading.root);
    root.values.erase(u"FBRVersion");
    return root;
}

}  // namespace faults
