// SPDX-License-Identifier: MIT
#include "tools/console/TellError.h"

#include <iostream>

#include "tools/format/Text.h"

namespace fbr {

void TellError(std::string_view text) {
    std::cout.flush();
    std::cerr << "fbr: " + Printable(text) + '\n' << std::flush;
}

}  // namespace fbr
