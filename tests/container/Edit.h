// SPDX-License-Identifier: MIT
// Changes to a container laid out by hand, in words, so that a case of damage is a row of a table.
//
// A place is NAME.PART: a path without its first separator, nothing for the root, and
//     head  entries  names  stream  index    its pages of that sort, with .2 the third, .end the
//     last entry                                  the page with its directory entry dirent that
//     entry record.2                               its record of type 2 id no place, but its file
//     id
// or page.7, or last.0 for the container's last page.
#pragma once

#include <string>
#include <vector>

#include "tests/support/ContainerBuilder.h"

namespace support::container {

// Pairs of words: PLACE+OFFSET and the number of 32 bits that is put there, with OFFSET:16 one of
// 16. A number may be a place, for the number of its page. Also "add" and the kind of a page more,
// "slot/PLACE" and what the map has for it, "fill/PLACE+OFFSET" and how many bytes become 0xFF,
// and "zero/PLACE+OFFSET".
void Edit(Builder* builder, const std::string& edits);

// The pages of places, rising.
std::vector<uint32_t> PagesAt(Builder* builder, const std::string& places);

}  // namespace support::container
