// Values that tell on themselves: where they belong, who set them, and whether they are whole.
#pragma once

#include <optional>
#include <string>

#include "tests/support/TempDir.h"

namespace sharing {

using support::Bytes;

// The least that a sealed value takes.
inline constexpr uint32_t kSealBytes = 32;

struct Seal {
    uint32_t writer = 0;
    uint32_t sequence = 0;
    bool operator==(const Seal& other) const = default;
};

// `size` bytes, at least kSealBytes, that no other key, name, writer or number has.
Bytes Sealed(const std::string& key, const std::string& name, Seal seal, uint32_t size);

// Who set the value, if it is whole and belongs to that key and name. Else nothing, and in *wrong
// what is the matter.
std::optional<Seal> ReadSeal(const Bytes& data, const std::string& key, const std::string& name,
                             std::string* wrong);

}  // namespace sharing
