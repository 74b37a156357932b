// SPDX-License-Identifier: MIT
// The registry that the benchmark works on: 2,000 keys in three levels with 20 values each.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "include/ZrFsTypes.h"

namespace bench {

using Text = std::basic_string<FBR_WCHAR>;

inline constexpr uint32_t kValuesPerKey = 20;

struct ValueData {
    Text name;
    std::string plainName;  // the same, for stores that take bytes
    uint32_t type = 0;
    std::vector<uint8_t> data;
};
struct KeyData {
    Text path;  // from the root, with a leading backslash
    std::string plainPath;
    bool leaf = false;
    std::vector<ValueData> values;
};

Text ToText(const std::string& ascii);

// Keys with parents before children, the same at every run: 60 % strings of 8 to 60 units, 25 %
// numbers, 10 % binary of 16 to 256 bytes, 5 % binary of 1 to 8 KiB. `keys` is 2,000, or fewer
// for a quick look.
std::vector<KeyData> MakeContent(uint32_t keys);

// One key of that mixture, for registries of another shape.
KeyData MakeKey(std::mt19937& dice, const std::string& path, bool leaf, uint32_t values);

}  // namespace bench
