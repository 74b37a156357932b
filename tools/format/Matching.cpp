// SPDX-License-Identifier: MIT
#include "tools/format/Matching.h"

#include <chrono>
#include <cstdio>

#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"

namespace fbr {
namespace {

// The library's regular expressions go one call deeper for each character that they look at.
constexpr size_t kRegexPart = 4096, kRegexOverlap = 1024;

WString Folded(WStringView text) {
    WString out(text);
    for (WChar& unit : out) unit = platform::Fold(unit);
    return out;
}

// Back to the last star where it does not go on, so that the time is at most the product of both
// lengths.
bool IsLike(WStringView text, WStringView glob) {
    size_t at = 0, in = 0, star = WStringView::npos, from = 0;
    while (at < text.size()) {
        if (in < glob.size() && glob[in] == '*') {
            star = in++;
            from = at;
        } else if (in < glob.size() && (glob[in] == '?' || glob[in] == platform::Fold(text[at]))) {
            ++in;
            ++at;
        } else if (star != WStringView::npos) {
            in = star + 1;
            at = ++from;
        } else {
            return false;
        }
    }
    while (in < glob.size() && glob[in] == '*') ++in;
    return in == glob.size();
}

bool Finds(const std::regex& regex, const std::string& text) {
    for (size_t at = 0;; at += kRegexPart - kRegexOverlap) {
        const auto begin = text.begin() + static_cast<std::ptrdiff_t>(at);
        const bool last = text.size() - at <= kRegexPart;
        const auto end = last ? text.end() : begin + kRegexPart;
        if (std::regex_search(begin, end, regex)) return true;
        if (last) return false;
    }
}

}  // namespace

Pattern::Pattern(Kind kind, WStringView text) : kind_(kind), text_(Folded(text)) {}

Pattern Pattern::Glob(WStringView text) {
    return {Kind::kGlob, text};
}

Pattern Pattern::Piece(WStringView text) {
    return {Kind::kPiece, text};
}

Pattern Pattern::Regex(WStringView text) {
    Pattern pattern(Kind::kRegex, text);
    try {
        pattern.regex_.emplace(Utf8(text), std::regex::ECMAScript | std::regex::icase);
    } catch (const std::regex_error&) {
        throw PatternError("expected a regular expression, not \"" + Utf8(text) + "\"");
    }
    return pattern;
}

bool Pattern::Fits(WStringView text) const {
    if (kind_ == Kind::kGlob) return IsLike(text, text_);
    if (kind_ == Kind::kRegex) return Finds(*regex_, Utf8(text));
    return Folded(text).find(text_) != WString::npos;
}

bool Pattern::FitsData(uint32_t type, const Bytes& data) const {
    const auto number = NumberOf(type, data);
    if (kind_ != Kind::kRegex && number) return ParseNumber(Utf8(text_), UINT64_MAX) == number;
    if (kind_ == Kind::kRegex || ReadsAsText(type, data))
        return Fits(platform::FromUtf8(DataInFull(type, data)));
    std::string digits, wanted = Utf8(text_);
    std::erase_if(wanted, [](char c) { return c == ' ' || c == ',' || c == ':'; });
    AppendHex(digits, data.data(), data.size(), {});
    for (size_t at = 0; (at = digits.find(wanted, at)) != digits.npos; ++at)
        if (at % 2 == 0) return true;
    return false;
}

int64_t SecondsSince1970(int year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                         unsigned second) {
    using namespace std::chrono;
    const year_month_day date{std::chrono::year(year), std::chrono::month(month),
                              std::chrono::day(day)};
    return duration_cast<seconds>(sys_days(date).time_since_epoch()).count() +
           int64_t{hour} * 3600 + int64_t{minute} * 60 + second;
}

std::optional<int64_t> ParseMoment(const std::string& text, int64_t now) {
    if (text.size() > 1 && text.size() < 10) {
        constexpr std::string_view kUnits = "smhdw";
        constexpr int64_t kSeconds[] = {1, 60, 3600, 86400, 604800};
        const size_t unit = kUnits.find(text.back());
        const auto number = ParseNumber(text.substr(0, text.size() - 1), 100'000'000);
        if (unit != kUnits.npos && number)
            return now - static_cast<int64_t>(*number) * kSeconds[unit];
    }
    int year = 0, end = 0;
    unsigned month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (std::sscanf(text.c_str(), "%4d-%2u-%2u%n", &year, &month, &day, &end) != 3)
        return std::nullopt;
    std::string rest = text.substr(static_cast<size_t>(end));
    if (rest.ends_with('Z')) rest.pop_back();
    if (!rest.empty()) {
        int behind = 0;
        const bool separated = rest[0] == 'T' || rest[0] == ' ';
        if (rest.size() == 6) rest += ":00";
        if (!separated ||
            std::sscanf(rest.c_str() + 1, "%2u:%2u:%2u%n", &hour, &minute, &second, &behind) != 3 ||
            static_cast<size_t>(behind) + 1 != rest.size())
            return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    return SecondsSince1970(year, month, day, hour, minute, second);
}

}  // namespace fbr
