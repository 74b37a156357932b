// SPDX-License-Identifier: MIT
// The bytes of a value in a container file, as far as they are there.
#pragma once

#include <string>
#include <vector>

#include "tools/inspect/Objects.h"

namespace fbr {

struct ValueRead {
    bool found = false;  // there is a type and a size
    uint32_t type = 0, size = 0;
    std::vector<uint8_t> data;  // as far as it is there, `size` bytes at most
    std::string fault;          // what is wrong, in words; empty when all is there
};

// Follows the object's pages from its header page. Where that breaks off, what other pages say
// that they are the object's is taken, too. Takes no more memory than the file is large, and a
// block.
ValueRead ValueOf(const Image& image, const Objects& objects, const FoundObject& object);

}  // namespace fbr
