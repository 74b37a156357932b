// SPDX-License-Identifier: MIT
#include "tools/commands/ShellLine.h"

namespace fbr {

ShellLine ParseShellLine(std::string_view line) {
    ShellLine out;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool blank = c == ' ' || c == '\t';
        if (!out.quoted && c == '|') {
            out.piped = true;
            out.pipe = line.substr(i + 1);
            out.atWord = false;
            return out;
        }
        if (!out.quoted && blank) {
            out.atWord = false;
            continue;
        }
        if (!out.atWord) out.words.emplace_back();
        out.atWord = true;
        const bool two = out.quoted && c == '"' && i + 1 < line.size() && line[i + 1] == '"';
        if (c == '"' && !two) {
            out.quoted = !out.quoted;
            continue;
        }
        if (two) ++i;
        out.words.back() += c;
    }
    return out;
}

std::string Typed(const ShellLine& line, const std::string& rest) {
    const size_t odd = line.quoted ? 0 : std::min(rest.find_first_of(" \t|\""), rest.size());
    std::string out = rest.substr(0, odd);
    if (!line.quoted && odd == rest.size()) return out;
    if (!line.quoted) out += '"';
    for (const char c : rest.substr(odd)) {
        if (c == '"') out += c;
        out += c;
    }
    return out + '"';
}

std::string ResolveKey(const std::string& current, const std::string& typed) {
    std::string path = typed.starts_with('\\') ? "" : current;
    for (size_t from = 0; from <= typed.size();) {
        const size_t to = std::min(typed.find('\\', from), typed.size());
        const std::string name = typed.substr(from, to - from);
        from = to + 1;
        if (name == "..") {
            const size_t last = path.rfind('\\');
            path.erase(last == std::string::npos ? 0 : last);
        } else if (!name.empty() && name != ".") {
            path += path.empty() ? name : '\\' + name;
        }
    }
    return path;
}

}  // namespace fbr
