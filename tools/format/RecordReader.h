// SPDX-License-Identifier: MIT
// A file of records in any of the text formats.
#pragma once

#include <string>
#include <string_view>

#include "tools/format/Record.h"

namespace fbr {

// As ReadReg and ReadJsonLines. `format` is "reg", "jsonl", or empty: the first character tells.
void ReadRecords(std::string_view bytes, const std::string& format, const OnRecord& take);

}  // namespace fbr
