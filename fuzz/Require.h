// SPDX-License-Identifier: MIT
// What a fuzzer holds to be true of every input.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Ends the run as a finding.
inline void Require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "finding: %s\n", what);
    std::abort();
}

}  // namespace fuzz
