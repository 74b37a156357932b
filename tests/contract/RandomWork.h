// The same random work on a store and on a plain tree in memory.
#pragma once

#include <optional>
#include <random>

#include "tests/contract/OpenStore.h"

namespace contract {

// The steps of one seed are always the same, whether a store carries them out or not.
class RandomWork {
  public:
    // Works on the keys below `base`, a path from the root or empty for the root itself.
    RandomWork(uint32_t seed, WString base, Differences differences)
        : random_(seed), base_(std::move(base)), differences_(std::move(differences)) {}

    // One operation; a store that answers otherwise than the tree fails the test. Without a store
    // the tree alone goes on.
    void Step(OpenStore* store);
    // What the keys below the base now hold.
    const Tree& Expected() const { return tree_; }
    // The same, had the last step been given up before its last call.
    Tree HalfDone() const;

  private:
    using Path = std::vector<WString>;
    uint32_t Roll(uint32_t below) { return static_cast<uint32_t>(random_() % below); }
    Path RandomPath();
    WString Joined(const Path& path) const;
    Tree* Find(const Path& path);
    void SetValue(OpenStore* store, const Path& path);
    void ReadKey(OpenStore* store, const Path& path);
    void DeleteValue(OpenStore* store, const Path& path);
    void DeleteTree(OpenStore* store, Path path);
    void Rename(OpenStore* store, Path path);

    std::mt19937 random_;
    WString base_;
    Differences differences_;
    Tree tree_;
    // What the last step's value was before it was set.
    struct Undo {
        Path path;
        WString name;
        std::optional<Value> value;
    };
    std::optional<Undo> undo_;
};

}  // namespace contract
