// SPDX-License-Identifier: MIT
// What a walk over keys tells the person who waits for it.
#pragma once

#include <functional>
#include <string>

#include "tools/commands/Cli.h"
#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/store/Place.h"
#include "tools/store/Reach.h"
#include "tools/store/TreeReader.h"

namespace fbr {

// A bar with a step a key. An interrupt ends the walk at its next key; a loss is told between two
// drawings of the bar. Outlives what it hands out.
class TreeProgress : public Progress {
  public:
    TreeProgress(Cli& cli, std::string what, uint64_t total)
        : Progress(std::move(what), total), cli_(cli) {}

    std::function<void()> OnKey() {
        return [this] {
            StopIfInterrupted();
            Step();
        };
    }
    fbr::OnLoss OnLoss() {
        return [this](const std::string& loss) {
            Clear();
            cli_.TellLoss(loss);
            whole_ = false;
        };
    }
    // False when something was lost.
    bool IsWhole() const { return whole_; }

  private:
    Cli& cli_;
    bool whole_ = true;
};

// A bar needs to know how many keys and values there are, which takes a walk of its own that nobody
// goes who does not see it.
inline uint64_t EntriesToShow(const Place& place) {
    if (!Progress::Shows()) return 0;
    Progress counting("Counting:", 0);
    uint64_t entries = 0;
    WalkKeys(place.store, place.key, {}, [&](const Key& key) {
        entries += 1 + CountValues(key, {});
        counting.At(entries);
    });
    return entries;
}

// Hands on to `sink`, with a step a value; OnKey has those for the keys.
class SteppedValues : public RecordSink {
  public:
    SteppedValues(RecordSink& sink, Progress& progress) : sink_(sink), progress_(progress) {}

    void Key(platform::WStringView path) override { sink_.Key(path); }
    void Value(platform::WStringView name, uint32_t type, const Bytes& data) override {
        progress_.Step();
        sink_.Value(name, type, data);
    }

  private:
    RecordSink& sink_;
    Progress& progress_;
};

}  // namespace fbr
