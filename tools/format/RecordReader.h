// SPDX-License-Identifier: MIT
// A file of records in any of the text formats.
#pragma once

#include <string>

#include "tools/format/ByteSource.h"
#include "tools/format/Record.h"

namespace fbr {

// As ReadReg and ReadJsonLines, from the source's begin on. `format` is "reg", "jsonl", or empty:
// the first character tells.
void ReadRecords(ByteSource& source, const std::string& format, const OnRecord& take,
                 const Hearing& hearing = {});

}  // namespace fbr
