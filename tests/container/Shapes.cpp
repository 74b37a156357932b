// SPDX-License-Identifier: MIT
#include "tests/container/Shapes.h"

#include <algorithm>
#include <sstream>

#include "tests/support/ScriptText.h"

namespace support::container {

namespace {

std::u16string Units(const std::string& text) {
    const platform::WString units = platform::FromUtf8(text);
    return std::u16string(units.begin(), units.end());
}

// The object at a path, which is made with the directories on the way to it.
Item* At(Item* root, const std::string& path) {
    Item* at = root;
    std::istringstream parts(path);
    for (std::string part; std::getline(parts, part, '\\');) {
        if (part.empty()) continue;
        at->kind = ItemKind::Directory;
        const std::u16string name = Units(part);
        auto found = std::find_if(at->children.begin(), at->children.end(),
                                  [&](const Item& item) { return item.name == name; });
        if (found == at->children.end()) {
            at->children.emplace_back().name = name;
            found = at->children.end() - 1;
        }
        at = &*found;
    }
    if (path.ends_with('\\')) at->kind = ItemKind::Directory;
    return at;
}

void Describe(Item* item, const std::string& word, size_t payload) {
    const auto is = [&](const char* key) { return word.starts_with(key); };
    const auto number = [&] {
        return static_cast<uint32_t>(SizeIn(word.substr(word.find('=') + 1), payload));
    };
    if (word.find_first_of("'*~0123456789ABCDEF") == 0) item->body = DataIn(word, payload);
    if (is(">")) {
        item->kind = ItemKind::Link;
        item->body = UnitBytes(Units(word.substr(1)));
    }
    if (is("attributes=")) item->attributes = number();
    if (is("size=")) item->size = number();
    if (is("method=")) item->method = number();
    if (is("block=")) item->pagesPerBlock = number();
    if (is("free=")) item->freeEntries = number();
    item->inPages |= word == "pages";
    item->indexed |= word == "indexed";
    item->secondHeader |= word == "second-header";
    item->inlineEntries |= word == "inline-entries";
}

}  // namespace

Bytes Pattern(size_t size, uint32_t seed) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(seed >> 24);
    }
    return bytes;
}

Bytes Runs(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = i / 150 % 3 == 0 ? 0xFF : static_cast<uint8_t>(i / 150);
    for (size_t i = 0; i < size; i += 97) bytes[i] = 0xFF;
    return bytes;
}

uint64_t SizeIn(const std::string& word, size_t payload) {
    size_t end = 0;
    const uint64_t number = std::stoull(word, &end);
    if (end == word.size() || word[end] != 'p') return number;
    const int more = end + 1 == word.size() ? 0 : std::stoi(word.substr(end + 1));
    return number * payload + static_cast<uint64_t>(more);
}

std::string SizeTold(uint64_t size, size_t payload) {
    const uint64_t pages = size / payload + (size % payload + 1 == payload ? 1 : 0);
    const uint64_t more = size - pages * payload;
    if (pages == 0 || more + 1 > 2 || size >> 32 != 0) return std::to_string(size);
    return std::to_string(pages) + (more == 0 ? "p" : more == 1 ? "p+1" : "p-1");
}

Bytes DataIn(const std::string& word, size_t payload) {
    const auto size = [&](size_t at) {
        return static_cast<size_t>(SizeIn(word.substr(at), payload));
    };
    if (word.starts_with('*')) return Pattern(size(1));
    if (word.starts_with('~')) return Runs(size(1));
    const bool times = word.size() > 2 && word[2] == '*' && word[0] != '\'';
    return times ? Bytes(size(3), support::DataOf(word.substr(0, 2)).at(0)) : support::DataOf(word);
}

std::string DataTold(const Bytes& data) {
    constexpr size_t kRun = 4, kPattern = 16;
    std::string told;
    Bytes piece;  // since the last run
    const auto tell = [&] {
        const bool pattern = piece.size() >= kPattern && piece == Pattern(piece.size());
        told += told.empty() ? "" : " ";
        told +=
            pattern ? "*" + std::to_string(piece.size()) : platform::ToUtf8(support::Shown(piece));
        piece.clear();
    };
    for (size_t at = 0, end = 0; at < data.size(); at = end) {
        while (end < data.size() && data[end] == data[at]) ++end;
        if (end - at >= kRun && !piece.empty()) tell();
        piece.insert(piece.end(), std::min(end - at, kRun), data[at]);
        if (end - at < kRun) continue;
        piece.resize(1);
        told += (told.empty() ? "" : " ") + platform::ToUtf8(support::Shown(piece)) + "*" +
                std::to_string(end - at);
        piece.clear();
    }
    if (!piece.empty() || data.empty()) tell();
    return told;
}

Item Tree(const std::string& text, uint32_t pageSize) {
    Item root;
    root.kind = ItemKind::Directory;
    std::istringstream in(text);
    for (std::string object; std::getline(in, object, ';');) {
        const support::Words words = support::WordsOf(object);
        if (words.empty()) continue;
        Item* item = At(&root, platform::ToUtf8(words[0]));
        if (words.size() == 1) item->kind = ItemKind::Directory;
        for (size_t i = 1; i < words.size(); ++i)
            Describe(item, platform::ToUtf8(words[i]), pageSize - 32);
    }
    return root;
}

Item Tree(const support::Section& section, uint32_t pageSize) {
    std::string text;
    for (const auto& [number, line] : section.lines) text += line + ";";
    return Tree(text, pageSize);
}

Item RichTree(uint32_t pageSize) {
    static const support::Section rich = SectionsIn("container/rich.txt").at(0);
    return Tree(rich, pageSize);
}

}  // namespace support::container
