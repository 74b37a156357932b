// SPDX-License-Identifier: MIT
// Errors of the system in words.
#pragma once

#include <string>

#include "platform/Errors.h"

namespace fbr {

// The reason, and what to do: "access is denied: ask its owner for the right".
std::string ReasonOf(platform::Error error);

}  // namespace fbr
