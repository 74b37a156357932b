// SPDX-License-Identifier: MIT
// Names, data and times as all commands show them.
#pragma once

#include <optional>
#include <string>

#include "tools/format/Json.h"
#include "tools/store/Store.h"

namespace fbr {

inline constexpr size_t kShownBytes = 32;  // of binary data in a line

// A value that is called "(Default)", beside the unnamed one, stands in quotes.
std::string ShowValueName(platform::WStringView name);
std::string ShowSubkeyName(platform::WStringView name);
// REG_SZ text.
std::string ShowTypeAndData(const Value& value);

// "\a\b" for the path "a\b", "" for the root.
platform::WString KeyInJson(platform::WStringView path);

// 2026-11-22 08:18:05, in UTC; nothing for what a store does not tell.
std::string ShowTime(const std::optional<FBR_SYSTEMTIME>& time, const char* none = "-");
// 2026-11-22T08:18:05.123Z.
std::string TimeInJson(const FBR_SYSTEMTIME& time);
// The member "time" of that name, which is null for what a store does not tell.
void AddTime(JsonObject& object, const char* name, const std::optional<FBR_SYSTEMTIME>& time);

// "1 key", "2 keys".
std::string Counted(uint64_t count, const char* what);

enum class Color { kNone, kRed, kGreen, kYellow, kBlue };
// The text in that colour, or as it is.
std::string Colored(bool on, Color color, const std::string& text);

}  // namespace fbr
