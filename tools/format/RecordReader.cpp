// SPDX-License-Identifier: MIT
#include "tools/format/RecordReader.h"

#include "tools/format/JsonLines.h"
#include "tools/format/RegReader.h"

namespace fbr {
namespace {

bool LooksLikeJson(ByteSource& source) {
    char bytes[4096];
    const std::string_view begin(bytes, source.Read(bytes, sizeof bytes));
    const size_t first = begin.find_first_not_of("\xEF\xBB\xBF \t\r\n");
    return first != std::string_view::npos && begin[first] == '{';
}

}  // namespace

void ReadRecords(ByteSource& source, const std::string& format, const OnRecord& take,
                 const Hearing& hearing) {
    source.Rewind();
    const bool json = format.empty() ? LooksLikeJson(source) : format == "jsonl";
    source.Rewind();
    json ? ReadJsonLines(source, take, hearing) : ReadReg(source, take, hearing);
}

}  // namespace fbr
