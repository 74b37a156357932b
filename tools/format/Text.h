// SPDX-License-Identifier: MIT
// Text at the tool's edges: strict UTF-8, UTF-16 in bytes, and the encodings of a text file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/Text.h"
#include "tools/format/ByteSource.h"

namespace fbr {

using platform::WChar;
using platform::WString;
using platform::WStringView;

// A file as the command line names it.
std::filesystem::path FilePath(std::string_view utf8);

// In front of what some systems write as UTF-8.
inline constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// Appends `text` as UTF-8. A lone surrogate, which UTF-8 cannot carry, becomes U+FFFD.
void AppendUtf8(std::string& out, WStringView text);
std::string Utf8(WStringView text);

// Decodes one character of `text` at `position` and moves past it. False when the bytes are not
// UTF-8 (overlong forms and surrogates are not), and `position` then stays where it was.
bool NextUtf8(std::string_view text, size_t& position, char32_t& character);

// Appends a character as one or two units.
void AppendUnits(WString& out, char32_t character);

// UTF-8 to UTF-16; false, with `out` unspecified, when `text` is not UTF-8.
bool FromStrictUtf8(std::string_view text, WString& out);

// Bytes of the Western code page (1252) to UTF-16; every byte has a character.
void AppendAnsi(WString& out, std::string_view bytes);

// The other way; IsAnsi tells whether every unit has a byte.
std::string Ansi(WStringView text);
bool IsAnsi(WStringView text);

// True for a unit that is half of a pair and does not stand beside its other half.
bool IsLoneSurrogate(WStringView text, size_t index);

// A text file in units, part by part, without its byte-order mark. UTF-16 is known by its mark
// (either byte order) or, without one, by a zero second byte; everything else is taken for UTF-8,
// with or without a mark. `allowAnsi` is asked with the first bytes: true takes a file that is not
// UTF-8 for the Western code page.
class TextDecoder {
  public:
    // `source` stands at its begin and outlives the decoder.
    TextDecoder(ByteSource& source, bool (*allowAnsi)(std::string_view begin));
    // Appends the next part; false when there is none. Throws DecodeError.
    bool More(WString& out);

  private:
    enum class Encoding { kUtf8, kAnsi, kLittleEndian, kBigEndian };
    void Fill();
    bool IsAllUtf8();
    bool IsMoreToCome(size_t whole) const;

    ByteSource& source_;
    std::string bytes_;  // read and not decoded yet
    bool ended_ = false;
    uint64_t lines_ = 1;
    Encoding encoding_ = Encoding::kUtf8;
};

// The whole file.
WString DecodeTextFile(std::string_view bytes, bool (*allowAnsi)(std::string_view bytes));

// Text for one line on a terminal: control characters, those that turn or hide the text
// around them, and lone surrogates as \n, \r, \t, \0 or \u and four digits; everything else as it
// stands.
std::string Printable(WStringView text);
// The same of UTF-8, with bytes that are none as \x and two digits.
std::string Printable(std::string_view text);

}  // namespace fbr
