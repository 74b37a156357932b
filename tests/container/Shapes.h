// SPDX-License-Identifier: MIT
// Trees of objects in words, for many tests.
#pragma once

#include "tests/support/ContainerBuilder.h"
#include "tests/support/ScriptText.h"

namespace support::container {

// Bytes that differ from place to place and hold no runs.
Bytes Pattern(size_t size, uint32_t seed = 1);
// Bytes that run-length coding shortens, 0xFF among them.
Bytes Runs(size_t size);

// The root of a tree that is told with ";" between its objects, as in "d\ ; d\f *20 ; l >d\f". What
// stands on the way to an object is a directory, and so is one with "\" behind it, or nothing. The
// others tell
//
//     DATA        their bytes: 'text, *9 for a pattern, ~9 for runs, 07*9 for nine bytes 07, or
//                 hexadecimal; "2p-1" is one less than what two pages hold
//     >PATH       that they are a link, and to where
//     KEY=NUMBER  a field of Item: attributes, size, method, block, free
//     pages indexed second-header inline-entries
//
// in words as those of a script.
Item Tree(const std::string& text, uint32_t pageSize = 512);

// Data and sizes as words, where a page holds `payload` bytes, and the words for them.
Bytes DataIn(const std::string& word, size_t payload);
uint64_t SizeIn(const std::string& word, size_t payload);
std::string DataTold(const Bytes& data);
std::string SizeTold(uint64_t size, size_t payload);

// The sections of a text in the folder of the tests, and the tree whose objects are one's lines.
using support::SectionsIn;
Item Tree(const support::Section& section, uint32_t pageSize = 512);

// Everything that the format offers.
Item RichTree(uint32_t pageSize);

}  // namespace support::container
