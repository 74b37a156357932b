// SPDX-License-Identifier: MIT
// The name of an entry in a container file, as far as it is there.
#pragma once

#include <string>

#include "tools/inspect/Objects.h"

namespace fbr {

struct StoredName {
    platform::WString units;  // in stored form, from its beginning up to what is missing
    std::string fault;        // why that is not all of it, or may be not, in words; else empty
};

// Of an object that has an entry. Where the chain of its pages breaks off, what other pages say
// that they are the name's is taken, too.
StoredName ReadStoredName(const Image& image, const Objects& objects, const FoundObject& object);

}  // namespace fbr
