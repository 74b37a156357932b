// SPDX-License-Identifier: MIT
// Bytes as the text in which they travel.
#pragma once

#include <string>
#include <string_view>

namespace cluster {

std::string ToBase64(std::string_view bytes);
// Nothing but what ToBase64 makes; false for anything else.
bool FromBase64(std::string_view text, std::string* bytes);

}  // namespace cluster
