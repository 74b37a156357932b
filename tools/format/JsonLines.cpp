// SPDX-License-Identifier: MIT
#include "tools/format/JsonLines.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

#include "tools/format/Text.h"
#include "tools/format/ValueText.h"

namespace fbr {
namespace {

// One line. Strings go to UTF-16 at once, which keeps lone surrogates that a general reader of
// JSON would refuse.
class LineReader {
  public:
    LineReader(std::string_view text, uint64_t line) : text_(text), line_(line) {}

    // The members of the object; those that the line lacks stay empty.
    void Read() {
        Punctuation('{', "\"{\" at the start of the line");
        do {
            ReadMember();
        } while (Taken(','));
        Punctuation('}', "\",\" or \"}\" after a member");
        SkipBlanks();
        if (position_ != text_.size()) Expected("the end of the line after \"}\"");
    }

    std::optional<WString> key, name;
    std::optional<uint32_t> type;
    std::optional<Bytes> data;

    [[noreturn]] void Expected(const std::string& what) const { throw FormatError(line_, what); }

  private:
    void SkipBlanks() {
        while (position_ < text_.size() && (text_[position_] == ' ' || text_[position_] == '\t')) {
            ++position_;
        }
    }
    bool Taken(char c) {
        SkipBlanks();
        if (position_ >= text_.size() || text_[position_] != c) return false;
        ++position_;
        return true;
    }
    void Punctuation(char c, const char* what) {
        if (!Taken(c)) Expected(what);
    }

    void ReadMember();
    WString ReadString(const char* what);
    WChar ReadUnit();
    uint32_t ReadType();
    Bytes ReadHex();
    template <typename T>
    void Put(std::optional<T>& member, T value, const char* label) {
        if (member) Expected(fmt::format("one \"{}\" in a line", label));
        member = std::move(value);
    }

    const std::string_view text_;
    const uint64_t line_;
    size_t position_ = 0;
};

void LineReader::ReadMember() {
    constexpr char kWhat[] = "\"key\", \"name\", \"type\" or \"data\"";
    const std::string label = Utf8(ReadString(kWhat));
    Punctuation(':', "\":\" after the name of a member");
    if (label == "key")
        Put(key, ReadString("a string in quotes for \"key\""), "key");
    else if (label == "name")
        Put(name, ReadString("a string in quotes for \"name\""), "name");
    else if (label == "type")
        Put(type, ReadType(), "type");
    else if (label == "data")
        Put(data, ReadHex(), "data");
    else
        Expected(kWhat);
}

WString LineReader::ReadString(const char* what) {
    Punctuation('"', what);
    WString out;
    for (;;) {
        if (position_ >= text_.size()) Expected("a quote at the end of a string");
        const char c = text_[position_];
        if (c == '"') {
            ++position_;
            return out;
        }
        if (c == '\\') {
            out += ReadUnit();
            continue;
        }
        char32_t character = 0;
        if (!NextUtf8(text_, position_, character)) Expected("UTF-8 text");
        if (character < 0x20) Expected("control characters to stand as \\u escapes");
        AppendUnits(out, character);
    }
}

WChar LineReader::ReadUnit() {
    constexpr std::string_view kFrom = "\"\\/bfnrt", kTo = "\"\\/\b\f\n\r\t";
    const std::string_view rest = text_.substr(position_ + 1);
    if (!rest.empty() && rest[0] == 'u' && rest.size() >= 5) {
        if (const auto unit = ParseHexBytes(rest.substr(1, 4))) {
            position_ += 6;
            return static_cast<WChar>((*unit)[0] << 8 | (*unit)[1]);
        }
    } else if (!rest.empty() && kFrom.find(rest[0]) != std::string_view::npos) {
        position_ += 2;
        return static_cast<WChar>(kTo[kFrom.find(rest[0])]);
    }
    Expected("an escape of JSON after a backslash");
}

uint32_t LineReader::ReadType() {
    SkipBlanks();
    uint64_t number = 0;
    const size_t begin = position_;
    for (; position_ < text_.size() && text_[position_] >= '0' && text_[position_] <= '9';
         ++position_) {
        number = number * 10 + static_cast<uint64_t>(text_[position_] - '0');
        if (number > UINT32_MAX) break;
    }
    if (position_ == begin || number > UINT32_MAX) {
        Expected("a number from 0 to 4294967295 for \"type\"");
    }
    return static_cast<uint32_t>(number);
}

Bytes LineReader::ReadHex() {
    constexpr char kWhat[] = "pairs of hexadecimal digits in quotes for \"data\"";
    Punctuation('"', kWhat);
    const size_t end = std::min(text_.find('"', position_), text_.size());
    auto bytes = ParseHexBytes(text_.substr(position_, end - position_));
    if (!bytes || end == text_.size()) Expected(kWhat);
    position_ = end + 1;
    return std::move(*bytes);
}

// The lines of a source, of which one at a time is in memory.
class Lines {
  public:
    explicit Lines(ByteSource& source) : source_(source) {}

    // The next one without its end, until the next call; false behind the last.
    bool Next(std::string_view& line) {
        size_t end = bytes_.find('\n', position_);
        while (end == bytes_.npos && ReadOn()) end = bytes_.find('\n', searched_);
        const bool last = end == bytes_.npos;
        if (last && position_ == bytes_.size()) return false;
        end = std::min(end, bytes_.size());
        line = std::string_view(bytes_).substr(position_, end - position_);
        position_ = end + (last ? 0 : 1);
        return true;
    }

  private:
    static constexpr size_t kPart = 64 * 1024;

    bool ReadOn() {
        bytes_.erase(0, position_);
        position_ = 0;
        searched_ = bytes_.size();
        bytes_.resize(searched_ + kPart);
        const size_t more = source_.Read(bytes_.data() + searched_, kPart);
        bytes_.resize(searched_ + more);
        return more != 0;
    }

    ByteSource& source_;
    std::string bytes_;
    size_t position_ = 0, searched_ = 0;
};

// "\a\b" to "a\b"; nothing when it is not a key.
std::optional<WString> KeyOf(const WString& text) {
    if (text.empty()) return WString();
    if (text.front() != '\\' || text.back() == '\\') return std::nullopt;
    if (text.find(WTEXT("\\\\")) != WString::npos || text.find(WChar{}) != WString::npos) {
        return std::nullopt;
    }
    return text.substr(1);
}

// The key of the line before, and how many there were; one that comes back later counts anew.
struct Keys {
    WString last;
    uint32_t count = 0;
};

void TakeRecord(Keys& keys, LineReader& line, uint64_t number, const OnRecord& take) {
    const bool isValue = line.name || line.type || line.data;
    if (!line.key) line.Expected("a \"key\" in every line");
    if (isValue && !(line.name && line.type && line.data)) {
        line.Expected("\"name\", \"type\" and \"data\" together for a value");
    }
    if (isValue && line.name->find(WChar{}) != WString::npos) {
        line.Expected("a value name without a zero character");
    }
    auto key = KeyOf(*line.key);
    if (!key) line.Expected("\"\" for the root or a key like \"\\\\a\\\\b\"");

    if (keys.count == 0 || keys.last != *key) {
        keys.last = std::move(*key);
        ++keys.count;
    }
    Record record;
    record.kind = isValue ? Record::Kind::kValue : Record::Kind::kKey;
    record.line = number;
    record.key = keys.count - 1;
    if (isValue) {
        record.name = std::move(*line.name);
        record.type = *line.type;
        record.data = std::move(*line.data);
    }
    take(keys.last, record);
}

}  // namespace

void AppendJsonString(std::string& out, WStringView text) {
    constexpr std::string_view kFrom = "\"\\\b\f\n\r\t", kTo = "\"\\bfnrt";
    out += '"';
    for (size_t i = 0; i < text.size(); ++i) {
        const WChar unit = text[i];
        const size_t special = unit < 0x80 ? kFrom.find(static_cast<char>(unit)) : kFrom.npos;
        if (special != kFrom.npos) {
            out += '\\';
            out += kTo[special];
        } else if (unit < 0x20 || IsLoneSurrogate(text, i)) {
            out += fmt::format("\\u{:04x}", static_cast<uint16_t>(unit));
        } else if (unit < 0x80) {
            out += static_cast<char>(unit);
        } else {
            const size_t count = unit >= 0xD800 && unit < 0xDC00 ? 2 : 1;
            AppendUtf8(out, text.substr(i, count));
            i += count - 1;
        }
    }
    out += '"';
}

JsonLinesWriter::JsonLinesWriter(std::ostream& out, WString prefix)
    : out_(out), prefix_(std::move(prefix)) {}

void JsonLinesWriter::Key(WStringView path) {
    WString full;
    if (!prefix_.empty()) (full += '\\') += prefix_;
    if (!path.empty()) (full += '\\') += path;
    key_ = "{\"key\":";
    AppendJsonString(key_, full);
    out_ << key_ << "}\n";
}

void JsonLinesWriter::Value(WStringView name, uint32_t type, const Bytes& data) {
    std::string line = key_ + ",\"name\":";
    AppendJsonString(line, name);
    line += fmt::format(",\"type\":{},\"data\":\"", type);
    AppendHex(line, data.data(), data.size(), {});
    out_ << line << "\"}\n";
}

void ReadJsonLines(ByteSource& source, const OnRecord& take, const Hearing& hearing) {
    Lines lines(source);
    Keys keys;
    std::string_view text;
    for (uint64_t number = 1; lines.Next(text); ++number) {
        if (number == 1 && text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
        if (text.ends_with('\r')) text.remove_suffix(1);
        if (text.find_first_not_of(" \t") == text.npos) continue;
        try {
            LineReader line(text, number);
            line.Read();
            TakeRecord(keys, line, number, take);
        } catch (const FormatError& error) {
            if (!hearing.bad) throw;
            hearing.bad(error.Line(), error.what());
        }
    }
}

Document ReadJsonLines(std::string_view bytes) {
    return Gather([bytes](const OnRecord& take) {
        ByteView source(bytes);
        ReadJsonLines(source, take);
    });
}

}  // namespace fbr
