// SPDX-License-Identifier: MIT
#include "tools/format/RegReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <optional>

#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"

namespace fbr {
namespace {

constexpr std::string_view kHeader5 = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHeader4 = "REGEDIT4";

bool IsBlank(WChar unit) {
    return unit == ' ' || unit == '\t';
}
bool IsLineEnd(WChar unit) {
    return unit == '\n' || unit == '\r';
}

int HexDigit(WChar unit) {
    if (unit >= '0' && unit <= '9') return unit - '0';
    const WChar folded = platform::Fold(unit);
    return folded >= 'a' && folded <= 'f' ? folded - 'a' + 10 : -1;
}

bool IsText(uint32_t type) {
    return type == kRegSz || type == kRegExpandSz || type == kRegMultiSz;
}

// The file is a stream of units with one position; each Read function starts at what it reads and
// leaves the position behind it.
class Reader {
  public:
    Reader(ByteSource& source, const OnRecord& take, const Hearing& hearing)
        : decoder_(source, [](std::string_view file) { return file.starts_with(kHeader4); }),
          take_(take),
          hearing_(hearing) {}

    void Read() {
        ReadHeader();
        while (!AtEnd()) {
            DropLinesRead();
            ReadLineOrTell();
        }
        TellEscapes();
    }

  private:
    [[noreturn]] void Expected(std::string_view what) const {
        throw FormatError(line_, std::string(what));
    }

    bool AtEnd() { return position_ >= text_.size() && !decoder_.More(text_); }
    // What stands before the position is not looked at again from a line's begin on.
    void DropLinesRead() {
        if (position_ < kDropUnits) return;
        text_.erase(0, position_);
        position_ = 0;
    }
    // The unit at the position; a line end at the end of the file.
    WChar Peek() { return AtEnd() ? WChar{'\n'} : text_[position_]; }
    bool Take(WChar unit) {
        if (AtEnd() || text_[position_] != unit) return false;
        ++position_;
        return true;
    }
    bool TakeWord(std::string_view word);
    void SkipBlanks() {
        while (!AtEnd() && IsBlank(text_[position_])) ++position_;
    }
    void SkipToLineEnd() {
        while (!AtEnd() && !IsLineEnd(text_[position_])) ++position_;
    }
    void TakeLineEnd();
    void EndOfLine(std::string_view after);

    void ReadHeader();
    void ReadLineOrTell();
    void ReadLine();
    void ReadKeyLine();
    WString KeyPath(WStringView text) const;
    std::optional<WChar> KeyEscape(WStringView text) const;
    void ReadValueLine();
    void ReadValue(Record& record);
    WString ReadQuoted(std::string_view what, bool* hasEscapes = nullptr);
    bool EndsInKeyLine(size_t end);
    bool ReadEscape(WString& out);
    void TellEscapes() const;
    void ReadData(Record& record);
    void ReadString(Record& record);
    uint32_t ReadHexNumber(std::string_view what);
    void ReadBytes(Bytes& data);
    bool ContinueBytes();

    static constexpr size_t kDropUnits = 32 * 1024;

    TextDecoder decoder_;
    const OnRecord& take_;
    const Hearing& hearing_;
    WString text_;  // decoded, from a line's begin on
    size_t position_ = 0;
    uint64_t line_ = 1;
    bool ansi_ = false;      // a REGEDIT4 file
    bool inKey_ = false;     // values may follow
    bool lost_ = false;      // the key could not be read, and its values are nobody's
    std::string_view open_;  // a text that ran over the end of a line
    WString key_;            // the key read last
    uint32_t keys_ = 0;
    // Strings with \n, \r or \0 in them, and the line of the first.
    uint64_t escaped_ = 0, firstEscaped_ = 0;
};

// The word in any case of its letters.
bool Reader::TakeWord(std::string_view word) {
    while (text_.size() - position_ < word.size())
        if (!decoder_.More(text_)) return false;
    for (size_t i = 0; i < word.size(); ++i) {
        if (platform::Fold(text_[position_ + i]) != static_cast<WChar>(word[i])) return false;
    }
    position_ += word.size();
    return true;
}

void Reader::TakeLineEnd() {
    if (AtEnd()) return;
    Take('\r');
    Take('\n');
    ++line_;
}

// What may stand behind the last thing of a line: blanks and a comment.
void Reader::EndOfLine(std::string_view after) {
    SkipBlanks();
    if (Peek() == ';') SkipToLineEnd();
    if (!IsLineEnd(Peek())) Expected(fmt::format("the end of the line after {}", after));
    TakeLineEnd();
}

void Reader::ReadHeader() {
    SkipToLineEnd();
    const size_t end = position_;
    WStringView first = WStringView(text_).substr(0, end);
    while (!first.empty() && IsBlank(first.back())) first.remove_suffix(1);
    const std::string header = Utf8(first);
    if (header != kHeader5 && header != kHeader4) {
        Expected(fmt::format("\"{}\" or \"{}\" as the first line", kHeader5, kHeader4));
    }
    ansi_ = header == kHeader4;
    TakeLineEnd();
}

// Behind a line that cannot be read the next one may be sound.
void Reader::ReadLineOrTell() {
    if (!hearing_.bad) return ReadLine();
    try {
        ReadLine();
    } catch (const DecodeError&) {
        throw;
    } catch (const FormatError& error) {
        SkipToLineEnd();
        TakeLineEnd();
        hearing_.bad(error.Line(), error.what());
    }
}

void Reader::ReadLine() {
    SkipBlanks();
    const WChar first = Peek();
    if (first == '[')
        ReadKeyLine();
    else if (first == '"' || first == '@')
        ReadValueLine();
    else if (first == ';' || IsLineEnd(first))
        EndOfLine("a comment");
    else
        Expected("a key in brackets, a value name in quotes, \"@\" or a comment");
}

// A key ends at the last bracket of its line, for a name may hold brackets.
void Reader::ReadKeyLine() {
    const size_t begin = position_ + 1;
    inKey_ = false;
    lost_ = true;
    SkipToLineEnd();
    const size_t end = text_.rfind(']', position_ - 1);
    if (end == WString::npos || end < begin) Expected("\"]\" at the end of the key");
    WStringView path = WStringView(text_).substr(begin, end - begin);

    Record record;
    record.line = line_;
    if (!path.empty() && path.front() == '-') {
        record.kind = Record::Kind::kDeleteKey;
        path.remove_prefix(1);
    }
    key_ = KeyPath(path);
    if (record.kind == Record::Kind::kDeleteKey && key_.empty())
        Expected("the key to delete after \"-\"");
    record.key = keys_++;
    position_ = end + 1;
    EndOfLine("the key");
    lost_ = false;
    inKey_ = record.kind == Record::Kind::kKey;
    take_(key_, record);
}

// Two backslashes, "u" and four hexadecimal digits at the start of `text`: a unit of a name that
// a key line cannot carry.
std::optional<WChar> Reader::KeyEscape(WStringView text) const {
    if (text.size() < 7 || text.substr(0, 3) != WTEXT("\\\\u")) return std::nullopt;
    int unit = 0;
    for (const WChar digit : text.substr(3, 4)) {
        if (HexDigit(digit) < 0) return std::nullopt;
        unit = unit << 4 | HexDigit(digit);
    }
    if (unit == 0 || unit == '\\') return std::nullopt;
    return static_cast<WChar>(unit);
}

// Names joined by single backslashes; one in front and one behind are let pass.
WString Reader::KeyPath(WStringView text) const {
    WString path;
    path.reserve(text.size());
    bool nameIsEmpty = true;
    for (size_t i = 0; i < text.size();) {
        const WStringView rest = text.substr(i);
        if (const auto escaped = KeyEscape(rest)) {
            path += *escaped;
            nameIsEmpty = false;
            i += 7;
        } else if (rest[0] != '\\') {
            if (rest[0] == 0) Expected("a key name without a zero character");
            path += rest[0];
            nameIsEmpty = false;
            ++i;
        } else {
            if (nameIsEmpty && i != 0) Expected("a key name between two backslashes");
            if (i != 0 && rest.size() > 1) path += '\\';
            nameIsEmpty = true;
            ++i;
        }
    }
    return path;
}

void Reader::ReadValueLine() {
    if (!inKey_ && !lost_) Expected("a key in brackets before the first value");
    Record record;
    record.kind = Record::Kind::kValue;
    record.line = line_;
    record.key = keys_ - 1;
    const size_t begin = position_;
    open_ = {};
    try {
        ReadValue(record);
    } catch (const DecodeError&) {
        throw;
    } catch (const FormatError&) {
        if (open_.empty()) throw;
        // What runs on into something else lacks its last quote rather than anything there.
        line_ = record.line;
        position_ = begin;  // the next line may be sound
        Expected(fmt::format("a quote at the end of {}", open_));
    }
    if (!lost_) return take_(key_, record);
    if (hearing_.lost) hearing_.lost(record.line);
}

void Reader::ReadValue(Record& record) {
    if (!Take('@')) record.name = ReadQuoted("the value name");
    if (record.name.find(WChar{}) != WString::npos) {
        Expected("a value name without a zero character");
    }
    SkipBlanks();
    if (!Take('=')) Expected("\"=\" after the value name");
    SkipBlanks();
    ReadData(record);
    EndOfLine("the value");
}

// True for a quote with more behind it in a line that would be a key: it is one of the key's rather
// than the last one of a text that began lines before.
bool Reader::EndsInKeyLine(size_t end) {
    SkipBlanks();
    const size_t lineEnd = text_.find_last_of(WTEXT("\r\n"), end);
    const size_t first = text_.find_first_not_of(WTEXT(" \t"), lineEnd + 1);
    return text_[first] == '[' && !IsLineEnd(Peek());
}

// Text in quotes, which may run over line ends; they are part of it.
WString Reader::ReadQuoted(std::string_view what, bool* hasEscapes) {
    const uint64_t begin = line_;
    const size_t start = position_;
    Take('"');
    WString out;
    while (!Take('"')) {
        if (AtEnd()) {
            line_ = begin;
            position_ = start;  // the next line may be sound
            Expected(fmt::format("a quote at the end of {}", what));
        }
        const WChar unit = text_[position_++];
        if (unit == '\n' || (unit == '\r' && Peek() != '\n')) {
            ++line_;
            open_ = what;
        }
        if (unit != '\\')
            out += unit;
        else if (ReadEscape(out) && hasEscapes != nullptr)
            *hasEscapes = true;
    }
    if (line_ != begin && EndsInKeyLine(position_ - 1))
        Expected("the end of the line after a text that runs to a key");
    return out;
}

// True for one that stands for a line end or a zero.
bool Reader::ReadEscape(WString& out) {
    const WChar unit = Peek();
    if (IsLineEnd(unit)) Expected("\\, \", n, r or 0 after a backslash in quotes");
    ++position_;
    constexpr std::string_view kFrom("\\\"nr0", 5), kTo("\\\"\n\r\0", 5);
    const size_t which = unit < 0x80 ? kFrom.find(static_cast<char>(unit)) : kFrom.npos;
    if (which != kFrom.npos) {
        out += static_cast<WChar>(kTo[which]);
        return which >= 2;
    }
    out += '\\';
    out += unit;
    if (!hearing_.odd) return false;
    const WChar both[] = {'\\', unit};
    hearing_.odd(line_, fmt::format("took \"{}\" in quotes as it stands, which a .reg file writes "
                                    "with two backslashes",
                                    Printable({both, 2})));
    return false;
}

// Names have these from a writer, data has not: there a path may be meant.
void Reader::TellEscapes() const {
    if (escaped_ == 0 || !hearing_.odd) return;
    hearing_.odd(
        firstEscaped_,
        fmt::format("took \"\\n\", \"\\r\" and \"\\0\" in quotes for line ends and zeros, in {} "
                    "string{} of the file; where a backslash is meant, two are written",
                    escaped_, escaped_ == 1 ? "" : "s"));
}

void Reader::ReadData(Record& record) {
    if (Take('-')) {
        record.kind = Record::Kind::kDeleteValue;
    } else if (Peek() == '"') {
        ReadString(record);
    } else if (TakeWord("dword:")) {
        SkipBlanks();
        record.type = kRegDword;
        const uint32_t number = ReadHexNumber("dword:");
        for (int shift = 0; shift < 32; shift += 8) {
            record.data.push_back(static_cast<uint8_t>(number >> shift));
        }
    } else if (TakeWord("hex:")) {
        record.type = kRegBinary;
        ReadBytes(record.data);
    } else if (TakeWord("hex(")) {
        record.type = ReadHexNumber("hex(");
        if (!Take(')') || !Take(':')) Expected("\"):\" after the type number");
        ReadBytes(record.data);
        if (ansi_ && IsText(record.type)) {
            WString wide;
            AppendAnsi(wide,
                       {reinterpret_cast<const char*>(record.data.data()), record.data.size()});
            record.data.resize(wide.size() * 2);
            if (!wide.empty()) std::memcpy(record.data.data(), wide.data(), record.data.size());
        }
    } else {
        Expected("a string in quotes, \"dword:\", \"hex:\", \"hex(\" or \"-\" after \"=\"");
    }
}

void Reader::ReadString(Record& record) {
    record.type = kRegSz;
    bool hasEscapes = false;
    const uint64_t line = line_;
    const WString text = ReadQuoted("the string", &hasEscapes);
    if (hasEscapes && escaped_++ == 0) firstEscaped_ = line;
    record.data.resize((text.size() + 1) * 2);
    std::memcpy(record.data.data(), text.c_str(), record.data.size());
}

uint32_t Reader::ReadHexNumber(std::string_view what) {
    uint32_t number = 0;
    int digits = 0;
    for (; HexDigit(Peek()) >= 0 && digits < 8; ++digits) {
        number = number << 4 | static_cast<uint32_t>(HexDigit(Peek()));
        ++position_;
    }
    if (digits == 0 || HexDigit(Peek()) >= 0) {
        Expected(fmt::format("one to eight hexadecimal digits after \"{}\"", what));
    }
    return number;
}

// Bytes of one or two digits between commas. A backslash goes on in the next line; a comma may
// stand at the end of all.
void Reader::ReadBytes(Bytes& data) {
    bool needed = false;
    for (;;) {
        SkipBlanks();
        if (Take('\\')) {
            if (!ContinueBytes()) Expected("more bytes in the line after \"\\\"");
            needed = true;
        }
        const int high = HexDigit(Peek());
        if (high < 0) {
            if (needed) Expected("a byte of two hexadecimal digits");
            return;
        }
        ++position_;
        const int low = HexDigit(Peek());
        if (low >= 0) ++position_;
        data.push_back(static_cast<uint8_t>(low < 0 ? high : high << 4 | low));
        needed = false;
        SkipBlanks();
        if (!Take(',')) return;
    }
}

// To the first byte of the next line with any; lines with nothing but a comment do not count.
bool Reader::ContinueBytes() {
    EndOfLine("\"\\\"");
    while (!AtEnd()) {
        SkipBlanks();
        if (!IsLineEnd(Peek()) && Peek() != ';') return true;
        EndOfLine("a comment");
    }
    return false;
}

}  // namespace

void ReadReg(ByteSource& source, const OnRecord& take, const Hearing& hearing) {
    Reader(source, take, hearing).Read();
}

Document ReadReg(std::string_view bytes) {
    return Gather([bytes](const OnRecord& take) {
        ByteView source(bytes);
        ReadReg(source, take);
    });
}

}  // namespace fbr
