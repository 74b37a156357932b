// SPDX-License-Identifier: MIT
// Other programs, run from this one.
#pragma once

#include <string>
#include <vector>

namespace fbr {

// Runs this program once more with those words. `pipe`, if not empty, is a command of the system's
// shell that reads its output. The exit status of the last of the two; 1 when it could not be run.
int RunAgain(const std::vector<std::string>& words, const std::string& pipe);

}  // namespace fbr
