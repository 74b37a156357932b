// SPDX-License-Identifier: MIT
// The name of the value that has none.
#pragma once

#include "platform/Text.h"

inline constexpr const platform::WChar* kUnnamedValue = WTEXT("(Default)");

// The unnamed value has a name towards every store. A null name is none, too.
inline const platform::WChar* OrDefault(const platform::WChar* name) {
    return name == nullptr || name[0] == 0 ? kUnnamedValue : name;
}
