// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/cluster/Base64.h"

#include <array>
#include <cstdint>

namespace cluster {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kNone = 255;

constexpr std::array<uint8_t, 256> kValues = [] {
    std::array<uint8_t, 256> values{};
    values.fill(kNone);
    for (size_t i = 0; i < kDigits.size(); ++i)
        values[static_cast<uint8_t>(kDigits[i])] = static_cast<uint8_t>(i);
    return values;
}();

}  // namespace

std::string ToBase64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t at = 0; at < bytes.size(); at += 3) {
        const size_t count = std::min<size_t>(3, bytes.size() - at);
        uint32_t group = 0;
        for (size_t i = 0; i < 3; ++i)
            group = group << 8 | (i < count ? static_cast<uint8_t>(bytes[at + i]) : 0);
        for (size_t i = 0; i < 4; ++i)
            text += i <= count ? kDigits[group >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

bool FromBase64(std::string_view text, std::string* bytes) {
    bytes->clear();
    if (text.size() % 4 != 0) return false;
    bytes->reserve(text.size() / 4 * 3);
    for (size_t at = 0; at < text.size(); at += 4) {
        std::string_view digits = text.substr(at, 4);
        if (at + 4 == text.size())
            for (int i = 0; i < 2 && digits.back() == '='; ++i) digits.remove_suffix(1);
        uint32_t group = 0;
        for (size_t i = 0; i < 4; ++i) {
            const uint8_t value = i < digits.size() ? kValues[static_cast<uint8_t>(digits[i])] : 0;
            if (value == kNone) return false;
            group = group << 6 | value;
        }
        // The bits that no byte has are zero.
        if ((group & ((1u << (8 * (4 - digits.size()))) - 1)) != 0) return false;
        for (size_t i = 0; i + 1 < digits.size(); ++i)
            *bytes += static_cast<char>(group >> (16 - 8 * i) & 255);
    }
    return true;
}

}  // namespace cluster
