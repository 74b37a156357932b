// SPDX-License-Identifier: MIT
#include "tools/commands/Shown.h"

#include <fmt/format.h>

#include "tools/format/Text.h"
#include "tools/format/TypeNames.h"
#include "tools/format/ValueText.h"

namespace fbr {

std::string ShowValueName(WStringView name) {
    if (name.empty()) return "(Default)";
    return name == WTEXT("(Default)") ? "\"(Default)\"" : Printable(name);
}

std::string ShowSubkeyName(WStringView name) {
    return name.empty() ? "\"\"" : Printable(name);
}

std::string ShowTypeAndData(const Value& value) {
    return TypeName(value.type) + " " + DataOnOneLine(value.type, value.data, kShownBytes);
}

WString KeyInJson(WStringView path) {
    return path.empty() ? WString() : WTEXT("\\") + WString(path);
}

std::string ShowTime(const std::optional<FBR_SYSTEMTIME>& time, const char* none) {
    if (!time) return none;
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", time->wYear, time->wMonth, time->wDay,
                       time->wHour, time->wMinute, time->wSecond);
}

std::string TimeInJson(const FBR_SYSTEMTIME& time) {
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", time.wYear, time.wMonth,
                       time.wDay, time.wHour, time.wMinute, time.wSecond, time.wMilliseconds);
}

void AddTime(JsonObject& object, const char* name, const std::optional<FBR_SYSTEMTIME>& time) {
    if (time)
        object.Text(name, TimeInJson(*time));
    else
        object.Json(name, "null");
}

std::string Counted(uint64_t count, const char* what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string Colored(bool on, Color color, const std::string& text) {
    constexpr int kCodes[] = {0, 31, 32, 33, 34};
    if (!on || color == Color::kNone) return text;
    return fmt::format("\x1b[{}m{}\x1b[0m", kCodes[static_cast<int>(color)], text);
}

}  // namespace fbr
