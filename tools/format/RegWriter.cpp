// SPDX-License-Identifier: MIT
#include "tools/format/RegWriter.h"

#include <fmt/format.h>

#include <bit>
#include <cstring>

#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"

namespace fbr {
namespace {

static_assert(std::endian::native == std::endian::little, "units go to the file as they lie");

// A line of hexadecimal bytes is broken behind the comma that reaches this column.
constexpr size_t kWrapColumn = 77;

void AppendAscii(WString& out, std::string_view text) {
    out.append(text.begin(), text.end());
}

void AppendEscaped(WString& out, WStringView text) {
    for (const WChar unit : text) {
        switch (unit) {
            case '\n':
                AppendAscii(out, "\\n");
                break;
            case '\r':
                AppendAscii(out, "\\r");
                break;
            case '\\':
            case '"':
                out += '\\';
                [[fallthrough]];
            default:
                out += unit;
        }
    }
}

void AppendKeyEscape(WString& out, WChar unit) {
    AppendAscii(out, fmt::format("\\\\u{:04X}", static_cast<uint16_t>(unit)));
}

// What a REGEDIT4 file has as text of its code page.
bool IsAnsiData(uint32_t type) {
    return type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
}

WString QuotedUnits(const Bytes& data) {
    WString text(data.size() / 2 - 1, WChar{});
    std::memcpy(text.data(), data.data(), text.size() * 2);
    return text;
}

}  // namespace

bool IsQuotable(const Bytes& data) {
    if (data.size() < 2 || data.size() % 2 != 0) return false;
    if (data[data.size() - 1] != 0 || data[data.size() - 2] != 0) return false;
    const WString text = QuotedUnits(data);
    for (size_t i = 0; i < text.size(); ++i) {
        const WChar unit = text[i];
        if (unit == 0 || unit == '\r' || unit == '\n' || IsLoneSurrogate(text, i)) return false;
    }
    return true;
}

RegWriter::RegWriter(std::ostream& out, WString prefix, RegForm form)
    : out_(out), prefix_(std::move(prefix)), form_(form) {
    if (form_ == RegForm::kUtf16) out_.write("\xFF\xFE", 2);
    AppendAscii(line_,
                form_ == RegForm::kRegedit4 ? "REGEDIT4" : "Windows Registry Editor Version 5.00");
    EndLine();
}

bool RegWriter::CarriesText(WStringView text) const {
    if (form_ == RegForm::kUtf16) return true;
    if (form_ == RegForm::kRegedit4) return IsAnsi(text);
    for (size_t i = 0; i < text.size(); ++i)
        if (IsLoneSurrogate(text, i)) return false;
    return true;
}

bool RegWriter::CarriesKey(WStringView path) const {
    return CarriesText(prefix_) && CarriesText(path);
}

bool RegWriter::CarriesValue(WStringView name, uint32_t type, const Bytes& data) const {
    if (!CarriesText(name)) return false;
    return form_ != RegForm::kRegedit4 || !IsAnsiData(type) ||
           (data.size() % 2 == 0 && IsAnsi(Units(data)));
}

void RegWriter::EndLine() {
    AppendAscii(line_, "\r\n");
    if (form_ == RegForm::kUtf8)
        out_ << Utf8(line_);
    else if (form_ == RegForm::kRegedit4)
        out_ << Ansi(line_);
    else
        out_.write(reinterpret_cast<const char*>(line_.data()),
                   static_cast<std::streamsize>(line_.size() * sizeof(WChar)));
    line_.clear();
}

void RegWriter::KeyLine(WStringView path, bool deletion) {
    EndLine();
    line_ += '[';
    if (deletion) line_ += '-';
    WString full = prefix_;
    if (!prefix_.empty() && !path.empty()) full += '\\';
    full += path;
    for (size_t i = 0; i < full.size(); ++i) {
        const WChar unit = full[i];
        const bool asDeletion = i == 0 && unit == '-';
        if (unit == '\r' || unit == '\n' || asDeletion)
            AppendKeyEscape(line_, unit);
        else
            line_ += unit;
    }
    line_ += ']';
    EndLine();
}

void RegWriter::Key(WStringView path) {
    KeyLine(path, false);
}
void RegWriter::DeleteKey(WStringView path) {
    KeyLine(path, true);
}

void RegWriter::ValueName(WStringView name) {
    if (name.empty()) {
        line_ += '@';
    } else {
        line_ += '"';
        AppendEscaped(line_, name);
        line_ += '"';
    }
    line_ += '=';
}

void RegWriter::Value(WStringView name, uint32_t type, const Bytes& data) {
    ValueName(name);
    if (type == kRegSz && IsQuotable(data)) {
        line_ += '"';
        AppendEscaped(line_, QuotedUnits(data));
        line_ += '"';
    } else if (type == kRegDword && data.size() == 4) {
        uint32_t number = 0;
        std::memcpy(&number, data.data(), sizeof(number));
        AppendAscii(line_, fmt::format("dword:{:08x}", number));
    } else {
        const bool narrow = form_ == RegForm::kRegedit4 && IsAnsiData(type);
        const std::string bytes = narrow ? Ansi(Units(data)) : "";
        HexData(type, narrow ? Bytes(bytes.begin(), bytes.end()) : data);
    }
    EndLine();
}

void RegWriter::HexData(uint32_t type, const Bytes& data) {
    AppendAscii(line_, type == kRegBinary ? "hex:" : fmt::format("hex({:x}):", type));
    constexpr char kDigits[] = "0123456789abcdef";
    size_t column = line_.size();
    for (size_t i = 0; i < data.size(); ++i) {
        line_ += kDigits[data[i] >> 4];
        line_ += kDigits[data[i] & 15];
        if (i + 1 == data.size()) break;
        line_ += ',';
        column += 3;
        if (column >= kWrapColumn) {
            AppendAscii(line_, "\\\r\n  ");
            column = 2;
        }
    }
}

void RegWriter::DeleteValue(WStringView name) {
    ValueName(name);
    line_ += '-';
    EndLine();
}

void RegWriter::Finish() {
    EndLine();
}

}  // namespace fbr
