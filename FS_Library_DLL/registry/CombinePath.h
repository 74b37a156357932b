// SPDX-License-Identifier: MIT
// The path join of keys.
#pragma once

#include "platform/Text.h"

// Joins two key paths with exactly one backslash between them; a single leading backslash of
// `relative` is dropped. Either path may bear the long-path prefix "\\?\", which the result has
// when `base` had it. An empty path gives the other one as it stands.
platform::WString CombinePath(platform::WStringView base, platform::WStringView relative);
