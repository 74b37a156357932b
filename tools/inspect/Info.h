// SPDX-License-Identifier: MIT
// A container file at a glance.
#pragma once

#include <ostream>

#include "tools/inspect/Image.h"

namespace fbr {

// As text, or as one JSON object on one line.
void WriteInfo(const Image& image, bool json, std::ostream& out);

}  // namespace fbr
