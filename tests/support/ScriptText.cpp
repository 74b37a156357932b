// SPDX-License-Identifier: MIT
#include "tests/support/ScriptText.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace support {

namespace {

// Bytes that no other size has.
Bytes Pattern(size_t size) {
    Bytes bytes(size);
    auto seed = static_cast<uint32_t>(size);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>((seed = seed * 1664525 + 1013904223) >> 24);
    return bytes;
}

// What stands between "<" and ">": a unit, or text many times. False when it is neither.
bool Expand(const WString& inside, WString* out) {
    const std::string text = platform::ToUtf8(inside);
    const size_t star = text.rfind('*');
    if (star != text.npos && star + 1 < text.size()) {
        for (int i = std::stoi(text.substr(star + 1)); i > 0; --i)
            *out += Text(text.substr(0, star));
        return true;
    }
    if (text.size() != 4 || text.find_first_not_of("0123456789ABCDEF") != text.npos) return false;
    *out += static_cast<platform::WChar>(std::stoul(text, nullptr, 16));
    return true;
}

// The lines behind "each", with each of its words.
void AddEach(const std::string& words, const std::vector<std::pair<int, std::string>>& block,
             Section* section) {
    std::istringstream in(words);
    for (std::string word; in >> word;)
        for (auto [number, line] : block) {
            for (size_t at; (at = line.find("%%")) != line.npos;) line.replace(at, 2, word);
            section->lines.emplace_back(number, line);
        }
}

}  // namespace

std::vector<Section> SectionsIn(const std::string& file) {
    return SectionsOf(std::filesystem::path(ZRFS_SOURCE_DIR) / "tests" / file);
}

std::vector<Section> SectionsOf(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::vector<Section> sections;
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    lines.emplace_back();
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (line.starts_with("== ")) {
            sections.emplace_back();
            std::istringstream words(line.substr(3));
            for (std::string word; words >> word;) {
                if (word[0] == '?' || word[0] == '!' || word[0] == '~') {
                    sections.back().traits.push_back(word);
                    continue;
                }
                if (word[0] >= 'a') word[0] = static_cast<char>(word[0] - 'a' + 'A');
                sections.back().name += word;
            }
        } else if (line.starts_with("each ")) {
            std::vector<std::pair<int, std::string>> block;
            while (lines[i + 1].starts_with(" ")) {
                ++i;
                block.emplace_back(i + 1, lines[i]);
            }
            AddEach(line.substr(5), block, &sections.back());
        } else if (!line.empty() && line[0] != '#') {
            sections.back().lines.emplace_back(i + 1, line);
        }
    }
    return sections;
}

Bytes DataOf(const std::string& word) {
    if (word.starts_with("'")) return Bytes(word.begin() + 1, word.end());
    if (word.starts_with("*")) return Pattern(std::stoul(word.substr(1)));
    Bytes bytes;
    for (size_t i = 0; i + 1 < word.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(word.substr(i, 2), nullptr, 16)));
    return bytes;
}

WString Shown(const Bytes& data) {
    if (data.size() > 15 && data == Pattern(data.size()))
        return Text("*" + std::to_string(data.size()));
    const auto plain = [](uint8_t byte) { return byte > ' ' && byte < 0x7F; };
    if (std::all_of(data.begin(), data.end(), plain))
        return Text("'" + std::string(data.begin(), data.end()));
    std::string hex;
    for (const uint8_t byte : data)
        hex += {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
    return Text(hex);
}

Words WordsOf(const std::string& line) {
    const WString text = platform::FromUtf8(line);
    Words words;
    for (size_t at = text.find_first_not_of(' '); at < text.size();
         at = text.find_first_not_of(' ', at)) {
        const bool quoted = text[at] == '"';
        const auto last = static_cast<platform::WChar>(quoted ? '"' : ' ');
        at += quoted;
        WString word;
        for (; at < text.size() && text[at] != last; ++at) {
            const size_t end = text[at] == '<' ? text.find('>', at) : text.npos;
            if (end != text.npos && Expand(text.substr(at + 1, end - at - 1), &word))
                at = end;
            else
                word += text[at];
        }
        at += quoted;
        words.push_back(word);
    }
    return words;
}

}  // namespace support
