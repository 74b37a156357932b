// SPDX-License-Identifier: MIT
// The data of a value as a person reads it, and as a person types it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/format/Record.h"

namespace fbr {

// Data that cannot be made from the words that were given; the text says what was expected.
class DataError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// The whole units of the data of a text.
WString Units(const Bytes& data);

// Appends bytes as pairs of lower-case digits with `separator` between them.
void AppendHex(std::string& out, const uint8_t* data, size_t size, std::string_view separator);

// Pairs of hexadecimal digits with nothing between them, of either case. Nothing when `text` is
// anything else; no bytes for an empty text.
std::optional<Bytes> ParseHexBytes(std::string_view text);

// On one line: strings as they are with control characters escaped, the strings of a multi-string
// in quotes, numbers in decimal and hexadecimal, anything else (also data that does not fit its
// type) as bytes, of which at most `maxBytes` are shown.
std::string DataOnOneLine(uint32_t type, const Bytes& data, size_t maxBytes);

// True where the functions below give text or a number and not bytes.
bool ReadsAsText(uint32_t type, const Bytes& data);
// The number in a value of a type of numbers.
std::optional<uint64_t> NumberOf(uint32_t type, const Bytes& data);

// Whole: a string as it is, a multi-string one string a line, a number in decimal, anything else
// as bytes. No line end at the end.
std::string DataInFull(uint32_t type, const Bytes& data);

// The data of a value from the words of a command line, by its type: one string, any number of
// strings, one number, or bytes as hexadecimal digits, which may have blanks, commas or colons
// between them. `hex` takes bytes for every type. Throws DataError.
Bytes DataFromWords(uint32_t type, bool hex, const std::vector<std::string>& words);

// True for the types of text and of numbers, whose data a person writes.
bool IsWritten(uint32_t type);
// The data from a text: one line end at its end does not count, and of strings each is a line.
Bytes DataFromText(uint32_t type, bool hex, std::string text);

}  // namespace fbr
