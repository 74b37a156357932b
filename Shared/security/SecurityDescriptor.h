// SPDX-License-Identifier: MIT
// Security descriptors in self-relative form, taken apart and put together. Portable; the bytes are
// those of the system's own structures. Nothing is assumed of alignment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace security {

using Bytes = std::vector<uint8_t>;
using View = std::span<const uint8_t>;

// Which parts of a descriptor are meant.
inline constexpr uint32_t kOwner = 0x1;
inline constexpr uint32_t kGroup = 0x2;
inline constexpr uint32_t kDacl = 0x4;
inline constexpr uint32_t kSacl = 0x8;
inline constexpr uint32_t kLabel = 0x10;  // the mandatory labels in the system list

// Control bits.
inline constexpr uint16_t kDaclPresent = 0x0004;
inline constexpr uint16_t kSaclPresent = 0x0010;
inline constexpr uint16_t kDaclInheritRequired = 0x0100;
inline constexpr uint16_t kSaclInheritRequired = 0x0200;
inline constexpr uint16_t kDaclInherited = 0x0400;
inline constexpr uint16_t kSaclInherited = 0x0800;
inline constexpr uint16_t kDaclProtected = 0x1000;
inline constexpr uint16_t kSaclProtected = 0x2000;
inline constexpr uint16_t kSelfRelative = 0x8000;
// Those that speak of one of the lists, except that it is there.
inline constexpr uint16_t kDaclBits = kDaclInheritRequired | kDaclInherited | kDaclProtected;
inline constexpr uint16_t kSaclBits = kSaclInheritRequired | kSaclInherited | kSaclProtected;

inline constexpr uint8_t kLabelAce = 0x11;

// The parts of a descriptor; empty ones are missing. A list that is present by its control bit but
// empty here is a null list, which grants everything.
struct Parts {
    uint16_t control = 0;
    View owner, group, sacl, dacl;
};

// One entry of a list.
struct Ace {
    uint8_t type, flags;
    uint32_t mask;
    View sid;
};

// The SID at the start of `bytes`, empty when there is no whole one.
View SidAt(View bytes);
// The entries of a list, none for an empty view. False when one reaches past the list's end.
bool EntriesOf(View list, std::vector<View>* entries);
// Takes an entry of the simple kinds apart (type, flags, size, mask, SID). False for others.
bool ReadAce(View entry, Ace* ace);

// Takes a self-relative descriptor apart. False when it is none, or a part reaches past its end.
// `bytes` may be longer than the descriptor.
bool TakeApart(View bytes, Parts* parts);
Bytes PutTogether(const Parts& parts);

// The parts that `information` names. Labels without kSacl give a system list of labels alone.
Bytes Select(const Parts& parts, uint32_t information);
// `old` with the parts that `information` names taken from `changed`.
Bytes Merge(const Parts& old, const Parts& changed, uint32_t information);

}  // namespace security
