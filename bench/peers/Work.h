// SPDX-License-Identifier: MIT
// The work that the stores are measured on, in phases; each does the same to all of them.
#pragma once

#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/peers/Store.h"
#include "bench/peers/System.h"

namespace bench {

enum class Phase { Make, Set, Overwrite, Get, Hot, Path, Enumerate, List, Delete, Reopen };
inline constexpr Phase kTablePhases[] = {Phase::Make,      Phase::Set,    Phase::Overwrite,
                                         Phase::Get,       Phase::Hot,    Phase::Path,
                                         Phase::Enumerate, Phase::Delete, Phase::Reopen};

const char* Name(Phase phase);

struct Sample {
    double cpuNs = 0, wallNs = 0;  // all operations together
    uint64_t operations = 0;       // 0 where the store has no such operation
};

// A store at work, with its open keys in the order of the content's.
struct Subject {
    Subject(const Maker& maker, const std::filesystem::path& folder);
    ~Subject();
    const Maker* maker;
    std::filesystem::path folder;
    std::unique_ptr<Store> store;
    std::vector<Store::Handle> handles;
};

class Work {
  public:
    // `brief` is for who counts what the work takes, which makes it slow: a tenth of the reads, and
    // nothing is compared.
    explicit Work(std::vector<KeyData> content, bool brief = false);

    // Draws the places of a phase, and what is there afterwards. Then Run for each subject.
    void Prepare(Phase phase);
    // Does the phase between two marks, and then compares the store's content with what should be
    // there. Throws std::runtime_error when it differs.
    Sample Run(Phase phase, Subject& subject);
    // Opens the keys of the content again until `count` more are open.
    void OpenMore(Subject& subject, uint32_t count) const;

  private:
    struct Place {
        uint32_t key, value;
    };
    uint64_t Do(Phase phase, Subject& subject);
    uint64_t MakeKeys(Subject& subject);
    uint64_t SetPlaces(Subject& subject);
    uint64_t GetPlaces(Subject& subject);
    uint64_t GetByPath(Subject& subject);
    uint64_t EnumerateKeys(Subject& subject);
    // The values that are listed are in the middle of one key.
    uint32_t ListedValues() const;
    uint32_t FirstListed() const;
    Store::Handle ListedKey(const Subject& subject) const;
    uint64_t ListValues(Subject& subject);
    uint64_t DeleteKeys(Subject& subject);
    uint64_t Reopen(Subject& subject);
    void OpenAll(Subject& subject) const;
    void Check(Subject& subject) const;
    void CheckKey(Subject& subject, uint32_t key) const;
    void DrawPlaces(size_t count);
    const ValueData& At(const Place& place) const {
        return content_[place.key].values[place.value];
    }

    std::vector<KeyData> content_;
    std::vector<Place> all_, places_;
    std::vector<uint32_t> deleting_;
    std::vector<bool> gone_;
    bool set_ = false;
    const bool brief_;
    std::mt19937 dice_{7};
    uint64_t seen_ = 0;  // what reads have touched, lest a compiler or a store leave it out
};

// The system calls of one store, by phase.
std::map<Phase, Calls> CountPhases(const Maker& maker, const std::vector<KeyData>& content,
                                   const std::filesystem::path& folder);

}  // namespace bench
