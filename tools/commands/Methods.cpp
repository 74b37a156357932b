// SPDX-License-Identifier: MIT
#include "tools/commands/Methods.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/commands/Cli.h"
#include "tools/format/TypeNames.h"

namespace fbr {
namespace {

struct MethodWord {
    const char* word;
    FBR_METHOD method;
};
constexpr MethodWord kMethods[] = {
    {"container", FS_VR_METHOD_TARN},  {"native", FS_VR_METHOD_NATIVE},
    {"hive", FS_VR_METHOD_HIVE},       {"offline", FS_VR_METHOD_OFFLINE},
    {"cluster", FS_VR_METHOD_CLUSTER}, {"remote-container", FS_VR_METHOD_REMOTE_CONTAINER}};

}  // namespace

FBR_METHOD ParseMethod(const std::string& text) {
    for (const auto& [word, method] : kMethods)
        if (text == word) return method;
    const auto number = ParseNumber(text, FS_VR_METHOD_CLUSTER);
    const bool isMethod = number && *number != 0 &&
                          (*number <= FS_VR_METHOD_OFFLINE || *number == FS_VR_METHOD_CLUSTER);
    if (!isMethod) {
        throw UsageError(
            fmt::format("expected {} or a number, 1 to 6 or 16, after --method, not \"{}\"",
                        fmt::join(MethodWords(), ", "), text));
    }
    return static_cast<FBR_METHOD>(*number);
}

std::vector<std::string> MethodWords() {
    std::vector<std::string> words;
    for (const MethodWord& one : kMethods) words.emplace_back(one.word);
    return words;
}

}  // namespace fbr
