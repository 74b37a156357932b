// SPDX-License-Identifier: MIT
#include "tools/format/Matching.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>

#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"

namespace fbr {
namespace {

// Steps through the states side by side and never goes back: no expression takes for ever, and none
// goes deeper for longer text.
constexpr auto kRegexFlags = std::regex::ECMAScript | std::regex::icase | std::regex::nosubs |
                             std::regex_constants::__polynomial;

constexpr size_t kLongestRegex = 1000;  // the library reads brackets within brackets by recursion

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

// An expression that begins anywhere, so that one walk over the text finds it: asked for it at each
// place in turn, the library would walk to the end from each.
std::wregex Anywhere(const std::wstring& text) {
    if (text.size() > kLongestRegex) throw std::regex_error(std::regex_constants::error_space);
    // Sound by itself, and not only within the brackets.
    const std::wregex alone(text, kRegexFlags);
    return std::wregex(L"[^]*?(?:" + text + L")", kRegexFlags);
}

// A unit is a character to an expression, as it is to a glob.
std::wstring Wide(WStringView text) {
    return {text.begin(), text.end()};
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
        pattern.regex_ = Anywhere(Wide(text));
    } catch (const std::regex_error& error) {
        const auto code = error.code();
        const char* which = code == std::regex_constants::error_complexity
                                ? " without references back"
                            : code == std::regex_constants::error_space ? " that is shorter"
                                                                        : "";
        throw PatternError(
            fmt::format("expected a regular expression{}, not \"{}\"", which, Utf8(text)));
    }
    return pattern;
}

bool Pattern::Fits(WStringView text) const {
    if (kind_ == Kind::kGlob) return IsLike(text, text_);
    if (kind_ == Kind::kRegex)
        return std::regex_search(Wide(text), *regex_, std::regex_constants::match_continuous);
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
    constexpr std::string_view kUnits = "smhdw";
    constexpr int64_t kSeconds[] = {1, 60, 3600, 86400, 604800};
    constexpr size_t kMostDigits = 9;
    const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
    if (digits != 0 && digits <= kMostDigits && digits + 1 == text.size()) {
        const size_t unit = kUnits.find(text.back());
        if (unit == kUnits.npos) return std::nullopt;
        return now - std::stoll(text) * kSeconds[unit];
    }
    const std::string_view form = "0000-00-00T00:00:00.000";
    std::string moment = text;
    if (moment.ends_with('Z')) moment.pop_back();
    if (moment.size() > 10 && moment[10] == ' ') moment[10] = 'T';
    const size_t size = moment.size();
    if (size != 10 && size != 16 && size != 19 && size != form.size()) return std::nullopt;
    const auto fits = [](char c, char in) { return in == '0' ? c >= '0' && c <= '9' : c == in; };
    if (!std::equal(moment.begin(), moment.end(), form.begin(), fits)) return std::nullopt;
    moment += form.substr(size);
    const auto number = [&moment](size_t at, size_t count) {
        return static_cast<unsigned>(std::stoul(moment.substr(at, count)));
    };
    const unsigned hour = number(11, 2), minute = number(14, 2), second = number(17, 2);
    using namespace std::chrono;
    const year_month_day date{year(static_cast<int>(number(0, 4))), month(number(5, 2)),
                              day(number(8, 2))};
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
    return SecondsSince1970(static_cast<int>(date.year()), number(5, 2), number(8, 2), hour, minute,
                            second);
}

}  // namespace fbr
