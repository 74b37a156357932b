#include "tests/sharing/ToolExport.h"

#include <optional>
#include <sstream>

namespace sharing {
namespace {

// The text of a member, with the escaped backslashes of paths undone.
std::optional<std::string> Member(const std::string& line, const std::string& name) {
    const std::string start = "\"" + name + "\":\"";
    size_t at = line.find(start);
    if (at == std::string::npos) return std::nullopt;
    std::string text;
    for (at += start.size(); at < line.size() && line[at] != '"'; ++at) {
        if (line[at] == '\\') ++at;
        text += line[at];
    }
    return text;
}

std::u16string Units(const std::string& ascii) {
    return std::u16string(ascii.begin(), ascii.end());
}

support::Bytes FromHex(const std::string& text) {
    support::Bytes bytes;
    for (size_t at = 0; at + 1 < text.size(); at += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    return bytes;
}

}  // namespace

support::container::Key ReadExport(const std::string& text) {
    support::container::Key root;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const auto path = Member(line, "key"), name = Member(line, "name"),
                   data = Member(line, "data");
        if (!path) continue;
        support::container::Key* key = &root;
        std::istringstream parts(*path);
        for (std::string part; std::getline(parts, part, '\\');)
            if (!part.empty()) key = &key->keys[Units(part)];
        if (name && data && *name != "FBRVersion") key->values[Units(*name)] = {3, FromHex(*data)};
    }
    return root;
}

}  // namespace sharing
