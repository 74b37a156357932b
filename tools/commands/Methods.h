// SPDX-License-Identifier: MIT
// The methods of stores by the names that the command line has for them.
#pragma once

#include <string>
#include <vector>

#include "include/ZrFsTypes.h"

namespace fbr {

// By its name or number; throws UsageError.
FBR_METHOD ParseMethod(const std::string& text);

std::vector<std::string> MethodWords();

}  // namespace fbr
