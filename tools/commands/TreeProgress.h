// SPDX-License-Identifier: MIT
// What a walk over keys tells the person who waits for it.
#pragma once

#include <functional>
#include <string>

#include "tools/commands/Cli.h"
#include "tools/console/Interrupt.h"
#include "tools/console/Progress.h"
#include "tools/store/Reach.h"

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

}  // namespace fbr
