// SPDX-License-Identifier: MIT
// The types of values: their numbers and their names.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Text.h"

namespace fbr {

inline constexpr uint32_t kRegNone = 0;
inline constexpr uint32_t kRegSz = 1;
inline constexpr uint32_t kRegExpandSz = 2;
inline constexpr uint32_t kRegBinary = 3;
inline constexpr uint32_t kRegDword = 4;
inline constexpr uint32_t kRegDwordBigEndian = 5;
inline constexpr uint32_t kRegLink = 6;
inline constexpr uint32_t kRegMultiSz = 7;
inline constexpr uint32_t kRegQword = 11;

// "REG_SZ" and so on; "type 0x1234" for a number without a name.
std::string TypeName(uint32_t type);

// A type from an argument: one of TypeWords or of the names, with or without "reg_" in front and in
// any case, or a number, decimal or 0x. Nothing for anything else.
std::optional<uint32_t> ParseType(std::string_view text);

// The words for the types that people set.
std::vector<std::string> TypeWords();

// An unsigned number, decimal or 0x, not over `limit`. Nothing for anything else.
std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t limit);

}  // namespace fbr
