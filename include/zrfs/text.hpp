// SPDX-License-Identifier: MIT
// Text: UTF-8 or UTF-16 where it goes in, UTF-8 where it comes out. A unit of UTF-16 that has no
// partner goes through as the three bytes that it would have, and back, so that every name and text
// of a store comes out, and in again. Other bytes that are no UTF-8 are refused, also the six of a
// pair whose units stand one by one: FSSTATUS_INVALID_NAME.
#ifndef ZRFS_TEXT_HPP
#define ZRFS_TEXT_HPP

#include "error.hpp"

#include <string>
#include <string_view>

namespace zrfs {

using WideString = std::basic_string<FBR_WCHAR>;
using WideView = std::basic_string_view<FBR_WCHAR>;

namespace detail {

inline bool is_high(char32_t unit) noexcept {
    return unit >= 0xD800 && unit < 0xDC00;
}
inline bool is_low(char32_t unit) noexcept {
    return unit >= 0xDC00 && unit < 0xE000;
}

inline constexpr const char* kNoUtf8 = "take a text that is no UTF-8";

inline void append_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += static_cast<char>(c);
        return;
    }
    const int more = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    constexpr unsigned kFirst[] = {0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kFirst[more] | c >> 6 * more);
    for (int i = more - 1; i >= 0; --i) out += static_cast<char>(0x80 | (c >> 6 * i & 0x3F));
}

// The character at `at`, which moves behind it.
inline char32_t next_utf8(std::string_view text, size_t& at) {
    const auto first = static_cast<unsigned char>(text[at++]);
    if (first < 0x80) return first;
    const auto refuse = [] { check(FSSTATUS_INVALID_NAME, kNoUtf8); };
    const int more = first < 0xC2 ? 0 : first < 0xE0 ? 1 : first < 0xF0 ? 2 : first < 0xF5 ? 3 : 0;
    if (more == 0 || text.size() - at < static_cast<size_t>(more)) refuse();
    char32_t c = first & (0x3Fu >> more);
    for (int i = 0; i < more; ++i) {
        const auto byte = static_cast<unsigned char>(text[at++]);
        if ((byte & 0xC0) != 0x80) refuse();
        c = c << 6 | (byte & 0x3F);
    }
    constexpr char32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (c < kLeast[more] || c > 0x10FFFF) refuse();
    return c;
}

}  // namespace detail

inline std::string to_utf8(WideView text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = static_cast<char16_t>(text[i]);
        if (detail::is_high(c) && i + 1 < text.size()) {
            const char32_t low = static_cast<char16_t>(text[i + 1]);
            if (detail::is_low(low)) {
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                ++i;
            }
        }
        detail::append_utf8(out, c);
    }
    return out;
}

inline WideString to_utf16(std::string_view text) {
    WideString out;
    out.reserve(text.size());
    for (size_t at = 0; at < text.size();) {
        const char32_t c = detail::next_utf8(text, at);
        // A pair that stands there unit by unit would come out as the four bytes of its character.
        if (detail::is_low(c) && !out.empty() && detail::is_high(static_cast<char16_t>(out.back())))
            check(FSSTATUS_INVALID_NAME, detail::kNoUtf8);
        if (c >= 0x10000) {
            out += static_cast<FBR_WCHAR>(0xD800 + ((c - 0x10000) >> 10));
            out += static_cast<FBR_WCHAR>(0xDC00 + ((c - 0x10000) & 0x3FF));
        } else {
            out += static_cast<FBR_WCHAR>(c);
        }
    }
    return out;
}

// A text that goes in, in either form.
class Text {
  public:
    Text(std::string_view utf8) : wide_(to_utf16(utf8)) {}
    Text(const std::string& utf8) : wide_(to_utf16(utf8)) {}
    Text(const char* utf8) : wide_(to_utf16(utf8)) {}
    Text(WideView wide) : wide_(wide) {}
    Text(const WideString& wide) : wide_(wide) {}
    Text(const FBR_WCHAR* wide) : wide_(wide) {}

    const FBR_WCHAR* c_str() const noexcept { return wide_.c_str(); }
    const WideString& wide() const noexcept { return wide_; }
    std::string utf8() const { return to_utf8(wide_); }
    // The library's functions would take a name as far as to a zero in it, for another one. What is
    // asked for by it is not there, and nothing can be made so.
    bool has_zero() const noexcept { return wide_.find(FBR_WCHAR{0}) != WideString::npos; }

  private:
    WideString wide_;
};

namespace detail {

// What was done, and on what, for check.
inline auto told(const char* what, const Text& on) {
    return [what, &on] {
        std::string text = what;
        for (const char c : on.utf8()) text += c == 0 ? std::string("\\0") : std::string(1, c);
        return text;
    };
}

}  // namespace detail

}  // namespace zrfs

#endif
