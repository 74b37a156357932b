// SPDX-License-Identifier: MIT
// What the directories of a container file hold, counted.
#pragma once

#include <cstdint>

#include "tools/inspect/Image.h"

namespace fbr {

struct Contents {
    uint64_t keys = 0;  // the root among them
    uint64_t values = 0;
    uint64_t links = 0;
    uint32_t depth = 0;          // keys above the deepest one
    uint64_t valueBytes = 0;     // data of all values
    uint64_t largestValue = 0;   // data of one
    uint64_t badReferences = 0;  // that lead to no page of the right kind, or to one a second time
};

// Follows the directories from the root as far as they can be followed. Every page is entered once
// at most.
Contents CountContents(const Image& image);

}  // namespace fbr
