// SPDX-License-Identifier: MIT
#include "tools/page/Page.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "tools/format/JsonLines.h"
#include "tools/format/Text.h"
#include "tools/format/ValueText.h"
#include "tools/page/PageTemplate.h"

namespace fbr {
namespace {

using platform::WString;
using platform::WStringView;

// Of one value. Nobody reads more in a browser, and the page stays small enough to be opened.
constexpr size_t kBytesInPage = 65536;

// The template in front of one of its marks, behind another, or whole between two.
std::string_view Between(std::string_view from, std::string_view to) {
    const std::string_view page = kPageTemplate;
    const size_t begin = from.empty() ? 0 : page.find(from) + from.size();
    const size_t end = to.empty() ? page.size() : page.find(to);
    return page.substr(begin, end - begin);
}

// JSON strings where a browser looks for the end of the script: no "<" may stand in them.
void AppendString(std::string& line, WStringView text) {
    const size_t begin = line.size();
    AppendJsonString(line, text);
    for (size_t at = line.find('<', begin); at != std::string::npos; at = line.find('<', at)) {
        line.replace(at, 1, "\\u003c");
    }
}

void AppendString(std::string& line, const std::string& utf8) {
    WString text;
    if (!FromStrictUtf8(utf8, text)) text.assign(1, WChar{0xFFFD});
    AppendString(line, text);
}

std::string HeadOf(const std::vector<Page::Store>& stores) {
    std::string head = "[";
    for (const Page::Store& store : stores) {
        head += head.size() == 1 ? "{\"name\":" : ",{\"name\":";
        AppendString(head, store.name);
        head += ",\"key\":";
        AppendString(head, store.key);
        head += '}';
    }
    return head + ']';
}

}  // namespace

Page::Page(std::ostream& out, const std::vector<Store>& stores) : out_(out) {
    out_ << Between("", "@MAPS@");
    for (const Store& store : stores) out_ << "<section>" << store.map << "</section>";
    out_ << Between("@MAPS@", "@DATA@") << "{\"stores\":" << HeadOf(stores) << ",\"records\":[";
}

void Page::Next() {
    const bool first = line_.empty();
    if (!first) out_ << line_ << ']';
    line_ = first ? "\n[" : ",\n[";
}

void Page::Key(size_t depth, WStringView name) {
    Next();
    line_ += fmt::format("{},", depth);
    AppendString(line_, name);
}

void Page::Value(WStringView name) {
    Next();
    AppendString(line_, name);
}

void Page::Time(const std::string& time) {
    line_ += ',';
    AppendString(line_, time);
}

void Page::Data(uint32_t type, const Bytes& data, size_t from) {
    from = std::min(from, data.size());
    line_ += fmt::format(",[{},\"", type);
    AppendHex(line_, data.data() + from, std::min(data.size() - from, kBytesInPage), "");
    line_ += from == 0 ? fmt::format("\",{}]", data.size())
                       : fmt::format("\",{},{}]", data.size(), from);
}

size_t Page::PartThatDiffers(const Bytes& here, const Bytes& there) {
    constexpr size_t kBefore = 256, kLine = 16;
    const size_t both = std::min(here.size(), there.size());
    const auto end = here.begin() + static_cast<ptrdiff_t>(both);
    const auto at =
        static_cast<size_t>(std::mismatch(here.begin(), end, there.begin()).first - here.begin());
    const bool same = at == here.size() && at == there.size();
    return same || at < kBytesInPage ? 0 : (at - kBefore) / kLine * kLine;
}

void Page::Missing() {
    line_ += ",null";
}

void Page::Finish() {
    Next();
    out_ << "\n]}" << Between("@DATA@", "");
}

}  // namespace fbr
