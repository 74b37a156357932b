// SPDX-License-Identifier: MIT
// UTF-16 text: the unit, literals, the case rule of names, and conversion at the edges.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#ifdef _WIN32
#define WTEXT(literal) L##literal
namespace platform {
using WChar = wchar_t;
}
#else
#define WTEXT(literal) u##literal
namespace platform {
using WChar = char16_t;
}
#endif

namespace platform {

static_assert(sizeof(WChar) == 2, "a unit is one UTF-16 code unit");

using WString = std::basic_string<WChar>;
using WStringView = std::basic_string_view<WChar>;

// Number of units before the terminating zero. `text` is not null.
size_t Length(const WChar* text) noexcept;

// The one case rule of names: A to Z fold to a to z, nothing else does.
inline WChar Fold(WChar unit) noexcept {
    return unit >= 'A' && unit <= 'Z' ? static_cast<WChar>(unit + ('a' - 'A')) : unit;
}

// Three-way comparisons by code unit, negative, zero or positive. The folded ones apply Fold to
// both sides first.
int Compare(WStringView a, WStringView b) noexcept;
int CompareFolded(WStringView a, WStringView b) noexcept;

// True for the code units that the "C" locale of the Windows run time (ucrtbase) calls printable;
// the same table on every system. A tab is not printable.
bool IsPrintable(WChar unit) noexcept;

// Conversions replace what cannot be converted (lone surrogates, bad bytes) by U+FFFD.
std::string ToUtf8(WStringView text);
WString FromUtf8(std::string_view text);

}  // namespace platform
