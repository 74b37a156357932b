// SPDX-License-Identifier: MIT
#include "tools/page/Page.h"

#include <fmt/format.h>

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
constexpr size_t kShownBytes = 65536;

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

void AppendData(std::string& line, uint32_t type, const Bytes& data) {
    line += fmt::format("{},\"", type);
    AppendHex(line, data.data(), std::min(data.size(), kShownBytes), "");
    line += fmt::format("\",{}", data.size());
}

void AppendSide(std::string& line, const fbr::Value* value) {
    if (value == nullptr) {
        line += ",null";
        return;
    }
    line += ",[";
    AppendData(line, value->type, value->data);
    line += ']';
}

// The lines of `out` that a record is in, after the one before.
void Put(std::ostream& out, std::string& line) {
    out << line;
    line = ",\n[";
}

void Begin(std::ostream& out, const std::string& head, const std::string& map, std::string& line) {
    out << Between("", "@MAP@") << map << Between("@MAP@", "@DATA@") << "{\"head\":" << head
        << ",\"records\":[";
    line = "\n[";
}

void End(std::ostream& out) {
    out << "\n]}" << Between("@DATA@", "");
}

}  // namespace

StorePage::StorePage(std::ostream& out, const std::string& name, const std::string& map)
    : out_(out) {
    std::string head = "{\"v\":1,\"mode\":\"store\",\"name\":";
    AppendString(head, name);
    Begin(out_, head + '}', map, line_);
}

void StorePage::Key(WStringView path) {
    AppendString(line_, path);
    line_ += ',';
    AppendString(line_, time_);
    line_ += ']';
    Put(out_, line_);
}

void StorePage::Value(WStringView name, uint32_t type, const Bytes& data) {
    AppendString(line_, name);
    line_ += ',';
    AppendData(line_, type, data);
    line_ += ']';
    Put(out_, line_);
}

void StorePage::Finish() {
    End(out_);
}

DifferencePage::DifferencePage(std::ostream& out, const std::string& here, const std::string& there)
    : out_(out) {
    std::string head = "{\"v\":1,\"mode\":\"differences\",\"name\":";
    AppendString(head, here + " and " + there);
    head += ",\"here\":";
    AppendString(head, here);
    head += ",\"there\":";
    AppendString(head, there);
    Begin(out_, head + '}', "", line_);
}

void DifferencePage::KeyOnlyHere(WStringView path) {
    AddKey("\"-\",", path);
}
void DifferencePage::KeyOnlyThere(WStringView path) {
    AddKey("\"+\",", path);
}

void DifferencePage::AddKey(const char* sign, WStringView path) {
    line_ += sign;
    AppendString(line_, path);
    line_ += ']';
    Put(out_, line_);
}

void DifferencePage::ValueDiffers(WStringView path, const WString& name, const fbr::Value* here,
                                  const fbr::Value* there) {
    line_ += "\"~\",";
    AppendString(line_, path);
    line_ += ',';
    AppendString(line_, name);
    AppendSide(line_, here);
    AppendSide(line_, there);
    line_ += ']';
    Put(out_, line_);
}

void DifferencePage::Finish() {
    End(out_);
}

}  // namespace fbr
