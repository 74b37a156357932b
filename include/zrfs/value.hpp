// SPDX-License-Identifier: MIT
// Typed bytes.
#ifndef ZRFS_VALUE_HPP
#define ZRFS_VALUE_HPP

#include "text.hpp"

#include <algorithm>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zrfs {

using Bytes = std::vector<unsigned char>;

// Typed bytes. The makers write what other programs expect; the readers answer nothing where the
// type or the size is another one.
struct Value {
    uint32_t type = FBR_TYPE_NONE;
    Bytes data;

    bool operator==(const Value&) const = default;

    static Value binary(std::span<const unsigned char> bytes) {
        return {FBR_TYPE_BINARY, Bytes(bytes.begin(), bytes.end())};
    }
    static Value dword(uint32_t number) { return of_number(FBR_TYPE_DWORD, number, 4); }
    static Value qword(uint64_t number) { return of_number(FBR_TYPE_QWORD, number, 8); }
    static Value text(const Text& text) { return of_text(FBR_TYPE_SZ, text); }
    static Value expand_text(const Text& text) { return of_text(FBR_TYPE_EXPAND_SZ, text); }
    // Empty texts cannot be told from the end, and are left out; one with a zero in it, which would
    // be two, is FSSTATUS_INVALID_NAME.
    static Value texts(const std::vector<std::string>& texts) {
        Value value{FBR_TYPE_MULTI_SZ, {}};
        for (const std::string& utf8 : texts) {
            const Text text(utf8);
            if (text.has_zero())
                check(FSSTATUS_INVALID_NAME, detail::told("take into a list of texts ", text));
            if (!text.wide().empty()) value.append(text.wide());
        }
        value.append({});
        return value;
    }

    // DWORD (either order of bytes) and QWORD.
    std::optional<uint64_t> number() const {
        const bool small = type == FBR_TYPE_DWORD || type == FBR_TYPE_DWORD_BE;
        if ((!small && type != FBR_TYPE_QWORD) || data.size() != (small ? 4u : 8u)) return {};
        uint64_t number = 0;
        for (size_t i = 0; i < data.size(); ++i) {
            const size_t place = type == FBR_TYPE_DWORD_BE ? data.size() - 1 - i : i;
            number |= static_cast<uint64_t>(data[i]) << 8 * place;
        }
        return number;
    }
    // SZ, EXPAND_SZ and LINK, up to the first zero unit.
    std::optional<std::string> text() const {
        if (type != FBR_TYPE_SZ && type != FBR_TYPE_EXPAND_SZ && type != FBR_TYPE_LINK) return {};
        const WideString wide = units();
        return to_utf8(WideView(wide).substr(0, wide.find(FBR_WCHAR{0})));
    }
    // MULTI_SZ.
    std::optional<std::vector<std::string>> texts() const {
        if (type != FBR_TYPE_MULTI_SZ) return {};
        std::vector<std::string> out;
        const WideString wide = units();
        for (WideView rest = wide; !rest.empty() && rest.front() != 0;) {
            const size_t end = std::min(rest.find(FBR_WCHAR{0}), rest.size());
            out.push_back(to_utf8(rest.substr(0, end)));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        return out;
    }

  private:
    static Value of_number(uint32_t type, uint64_t number, int bytes) {
        Value value{type, {}};
        for (int i = 0; i < bytes; ++i)
            value.data.push_back(static_cast<unsigned char>(number >> 8 * i));
        return value;
    }
    static Value of_text(uint32_t type, const Text& text) {
        Value value{type, {}};
        value.append(text.wide());
        return value;
    }
    // The units, the lowest byte first, and a zero unit.
    void append(const WideString& text) {
        for (size_t i = 0; i <= text.size(); ++i) {
            const auto unit = static_cast<char16_t>(text.c_str()[i]);
            data.push_back(static_cast<unsigned char>(unit));
            data.push_back(static_cast<unsigned char>(unit >> 8));
        }
    }
    WideString units() const {
        WideString out;
        for (size_t i = 0; i + 1 < data.size(); i += 2)
            out += static_cast<FBR_WCHAR>(data[i] | data[i + 1] << 8);
        return out;
    }
};

}  // namespace zrfs

#endif
