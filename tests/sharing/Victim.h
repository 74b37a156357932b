// SPDX-License-Identifier: MIT
// Work on a store that is ended at any moment, and what the store may hold then.
#pragma once

#include <random>

#include "tests/faults/Registry.h"
#include "tests/sharing/Content.h"

namespace sharing {

// The steps of one seed. They depend on the content that they begin with, so that who knows both
// knows them all.
class Steps {
  public:
    Steps(uint32_t seed, const Key& start) : random_(seed), content_(start) {}
    // The next step, which has been done on the content then.
    faults::Step Next();
    const Key& Content() const { return content_; }

  private:
    std::mt19937 random_;
    Key content_;
};

using faults::JudgeCut;

// How many steps a victim has done, from its file.
uint64_t StepsDone(const std::string& progress);

}  // namespace sharing
