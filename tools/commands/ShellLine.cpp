// SPDX-License-Identifier: MIT
#include "tools/commands/ShellLine.h"

namespace fbr {

ShellLine ParseShellLine(std::string_view line) {
    ShellLine out;
    const size_t first = line.find_first_not_of(" \t");
    if (first != line.npos && line[first] == '#') return out;
    out.zero = line.find('\0') != line.npos;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        const bool blank = c == ' ' || c == '\t';
        if (out.quote == 0 && c == '|') {
            out.piped = true;
            out.pipe = line.substr(i + 1);
            out.atWord = false;
            return out;
        }
        if (out.quote == 0 && blank) {
            out.atWord = false;
            continue;
        }
        if (!out.atWord) out.words.emplace_back();
        out.atWord = true;
        const bool two = out.quote == '"' && c == '"' && line.substr(i + 1).starts_with('"');
        if (!two && c == out.quote) {
            out.quote = 0;
        } else if (out.quote == 0 && (c == '"' || c == '\'')) {
            out.quote = c;
        } else {
            out.words.back() += c;
            if (two) ++i;
        }
    }
    return out;
}

std::string Typed(const ShellLine& line, const std::string& rest) {
    const size_t odd = line.quote != 0 ? 0 : std::min(rest.find_first_of(" \t|\"'"), rest.size());
    std::string out = rest.substr(0, odd);
    if (line.quote == 0 && odd == rest.size()) return out;
    const char quote = line.quote != 0 ? line.quote : '"';
    if (line.quote == 0) out += quote;
    for (const char c : rest.substr(odd)) {
        if (c != quote)
            out += c;
        else
            out += quote == '"' ? "\"\"" : "'\"'\"'";
    }
    return out + quote;
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
