// SPDX-License-Identifier: MIT
#include "tools/format/TypeNames.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

namespace fbr {
namespace {

constexpr std::array<std::string_view, 12> kNames = {
    "REG_NONE",
    "REG_SZ",
    "REG_EXPAND_SZ",
    "REG_BINARY",
    "REG_DWORD",
    "REG_DWORD_BIG_ENDIAN",
    "REG_LINK",
    "REG_MULTI_SZ",
    "REG_RESOURCE_LIST",
    "REG_FULL_RESOURCE_DESCRIPTOR",
    "REG_RESOURCE_REQUIREMENTS_LIST",
    "REG_QWORD",
};

// What people write for those that they set, which are the names for most.
struct TypeWord {
    std::string_view word;
    uint32_t type;
};
constexpr TypeWord kWords[] = {
    {"sz", kRegSz},         {"expand_sz", kRegExpandSz}, {"multi_sz", kRegMultiSz},
    {"binary", kRegBinary}, {"dword", kRegDword},        {"dword_be", kRegDwordBigEndian},
    {"qword", kRegQword},   {"link", kRegLink},          {"none", kRegNone}};

std::string Upper(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return out;
}

}  // namespace

std::string TypeName(uint32_t type) {
    if (type < kNames.size()) return std::string(kNames[type]);
    return fmt::format("type 0x{:x}", type);
}

std::vector<std::string> TypeWords() {
    std::vector<std::string> words;
    for (const TypeWord& one : kWords) words.emplace_back(one.word);
    return words;
}

std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t limit) {
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        base = 16;
        text.remove_prefix(2);
    }
    uint64_t number = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number, base);
    if (result.ec != std::errc{} || result.ptr != end || number > limit) return std::nullopt;
    return number;
}

std::optional<uint32_t> ParseType(std::string_view text) {
    std::string name = Upper(text);
    if (!name.starts_with("REG_")) name.insert(0, "REG_");
    for (uint32_t type = 0; type < kNames.size(); ++type) {
        if (name == kNames[type]) return type;
    }
    for (const auto& [word, type] : kWords) {
        if (name == "REG_" + Upper(word)) return type;
    }
    const auto number = ParseNumber(text, UINT32_MAX);
    if (!number) return std::nullopt;
    return static_cast<uint32_t>(*number);
}

}  // namespace fbr
