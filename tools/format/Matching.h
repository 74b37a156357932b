// SPDX-License-Identifier: MIT
// What a search looks for: names, data, times.
#pragma once

#include <cstdint>
#include <optional>
#include <regex>
#include <string>

#include "tools/format/Record.h"

namespace fbr {

// A pattern that does not make sense; the text says what is wrong with it.
class PatternError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// A name or a piece of text, in any case of A to Z.
class Pattern {
  public:
    // Names that are like `text`, in which * stands for any units and ? for one.
    static Pattern Glob(platform::WStringView text);
    // Text that holds `text`.
    static Pattern Piece(platform::WStringView text);
    // Text in which the regular expression (ECMAScript without references back) is found, in a
    // time in proportion to the lengths of both. Throws PatternError.
    static Pattern Regex(platform::WStringView text);

    bool Fits(platform::WStringView text) const;
    // Numbers by their value, decimal or 0x; text by itself; anything else by its bytes in
    // hexadecimal, of which the pattern may part pairs by blanks.
    bool FitsData(uint32_t type, const Bytes& data) const;

  private:
    enum class Kind { kGlob, kPiece, kRegex };
    Pattern(Kind kind, platform::WStringView text);

    Kind kind_;
    platform::WString text_;  // folded
    std::optional<std::wregex> regex_;
};

// A moment as seconds since 1970 in UTC: "2026-11-22", "2026-11-22 08:18", "2026-11-22T08:18:05Z",
// with thousandths behind it or not; or so long before `now`: "90s", "10m", "2h", "3d", "1w".
// Nothing for anything else.
std::optional<int64_t> ParseMoment(const std::string& text, int64_t now);
int64_t SecondsSince1970(int year, unsigned month, unsigned day, unsigned hour, unsigned minute,
                         unsigned second);

}  // namespace fbr
