// SPDX-License-Identifier: MIT
#include "tools/format/RecordReader.h"

#include "tools/format/JsonLines.h"
#include "tools/format/RegReader.h"

namespace fbr {

void ReadRecords(std::string_view bytes, const std::string& format, const OnRecord& take) {
    const size_t first = bytes.find_first_not_of("\xEF\xBB\xBF \t\r\n");
    const bool looksLikeJson = first != std::string_view::npos && bytes[first] == '{';
    const bool json = format.empty() ? looksLikeJson : format == "jsonl";
    json ? ReadJsonLines(bytes, take) : ReadReg(bytes, take);
}

}  // namespace fbr
