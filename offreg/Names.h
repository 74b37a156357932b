// SPDX-License-Identifier: MIT
// The case rule of the registry's names: units compare by their upper case, each for itself.
#pragma once

#include <cstdint>

#include "platform/Text.h"

namespace offreg {

using platform::WChar;
using platform::WString;
using platform::WStringView;

uint16_t Upcase(WChar unit) noexcept;

// Three-way comparison without regard to case, in the order in which hives keep subkeys.
int CompareNames(WStringView a, WStringView b) noexcept;

// Equal for names that CompareNames calls equal. This is the hash that hives of format 1.5 keep
// beside each subkey.
uint32_t HashName(WStringView name) noexcept;

struct NameHash {
    size_t operator()(WStringView name) const noexcept { return HashName(name); }
};
struct NameEqual {
    bool operator()(WStringView a, WStringView b) const noexcept { return CompareNames(a, b) == 0; }
};

}  // namespace offreg
