// SPDX-License-Identifier: MIT
// One page of a container file for people: field by field, then its bytes.
#pragma once

#include <ostream>

#include "tools/inspect/Image.h"

namespace fbr {

// `page` is below PageCount(), or equal to it when there are trailing bytes. Whatever the page
// holds, the output is bounded by its size.
void DumpPage(const Image& image, uint32_t page, std::ostream& out);

}  // namespace fbr
