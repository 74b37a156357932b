// SPDX-License-Identifier: MIT
// page.html, which the build puts into the program.
#pragma once

#include <string_view>

namespace fbr {

extern const std::string_view kPageTemplate;

}  // namespace fbr
