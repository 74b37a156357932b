// SPDX-License-Identifier: MIT
// A tree that uses everything the format offers, for many tests.
#pragma once

#include "tests/support/ContainerBuilder.h"

namespace support::container {

// Bytes that differ from place to place and hold no runs.
inline Bytes Pattern(size_t size, uint32_t seed = 1) {
    Bytes bytes(size);
    for (uint8_t& byte : bytes) {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(seed >> 24);
    }
    return bytes;
}

// Bytes that run-length coding shortens, 0xFF among them.
inline Bytes Runs(size_t size) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i)
        bytes[i] = i / 150 % 3 == 0 ? 0xFF : static_cast<uint8_t>(i / 150);
    for (size_t i = 0; i < size; i += 97) bytes[i] = 0xFF;
    return bytes;
}

inline Item Coded(Item item, uint32_t pagesPerBlock) {
    item.method = 4;
    item.pagesPerBlock = pagesPerBlock;
    return item;
}
inline Item Paged(Item item) {
    item.inPages = true;
    return item;
}

inline Item RichTree(uint32_t pageSize) {
    const size_t payload = pageSize - 32;
    Item second = File(u"second header", Pattern(40));
    second.secondHeader = true;
    Item indexed = Paged(File(u"indexed", Pattern(payload * 9 - 5)));
    indexed.indexed = true;
    Item gaps = Directory(u"gaps", {File(u"one"), File(u"two", Pattern(3))});
    gaps.freeEntries = 9;
    Item inlineEntries = Directory(u"inline", {File(u"in", Pattern(10))});
    inlineEntries.inlineEntries = true;
    Item longer = File(u"longer", Pattern(20));
    longer.size = 30;  // within what an inline stream is rounded up to
    Item deep = Directory(u"deep", {Directory(u"er", {File(u"down", Pattern(33))})});
    std::vector<Item> many;
    for (int i = 20; i-- > 0;)
        many.push_back(File(std::u16string(u"name ") + static_cast<char16_t>(u'a' + i),
                            Pattern(static_cast<size_t>(i) * 7, static_cast<uint32_t>(i))));
    Item root = Directory(u"", {File(u"empty"),
                                File(u"small", Pattern(17)),
                                Paged(File(u"paged", Pattern(payload * 3))),
                                File(u"long", Pattern(payload * 20 + 11)),
                                indexed,
                                second,
                                gaps,
                                inlineEntries,
                                longer,
                                deep,
                                Directory(u"many", many),
                                Directory(u"nothing"),
                                File(std::u16string(22, u'x'), Pattern(1)),
                                File(std::u16string(23, u'x'), Pattern(2)),
                                File(std::u16string(300, u'y'), Pattern(3)),
                                Coded(File(u"coded inline", Bytes(90, 0xFF)), 1),
                                Coded(Paged(File(u"coded", Runs(payload * 9 + 5))), 4),
                                Coded(Paged(File(u"coded long", Runs(payload * 18))), 2),
                                Coded(Paged(File(u"not shorter", Pattern(payload * 5 + 1))), 4),
                                Link(u"link", u"\\deep\\er"),
                                Link(u"near", u"deep"),
                                Paged(Link(u"paged link", u"small"))});
    root.body = Pattern(12);
    return root;
}

}  // namespace support::container
