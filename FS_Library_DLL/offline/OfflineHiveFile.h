// SPDX-License-Identifier: MIT
// The hive's file on disk: whether it is the one that was read, and how a new one takes its place.
#pragma once

#include <array>
#include <cstdint>
#include <functional>

#include "platform/ReplaceFile.h"
#include "platform/Text.h"

namespace offline {

// What tells one state of a hive's file from every other: which file it is, its size and time, and
// the part of its base block that each writer of hives changes.
struct HiveMark {
    platform::FileState file;
    std::array<uint8_t, 512> head{};  // what the file has of it; the sum of all ends it

    bool operator==(const HiveMark&) const = default;

    // False when the two sequence numbers differ: a change was begun and not ended, and the rest
    // of it may stand in a log.
    bool IsSettled() const;
};

// 0 also where there is no file; kErrorInvalidName for a link that leads to nothing.
uint32_t TakeMark(const platform::WString& path, HiveMark* mark);

// Lets `save` write a whole new file at a path of its own, and puts that file into the place of the
// one of which `read` is the mark. The new one has the owner and the mode of the old one. Whatever
// fails, and wherever the process ends, one of the two stands at `path`; what a failure leaves
// elsewhere is removed. kErrorSharingViolation when another file, or another state of the file,
// stands at `path` by now, and stays.
uint32_t ReplaceHive(const platform::WString& path, const HiveMark& read,
                     const std::function<uint32_t(const platform::WString& path)>& save);

}  // namespace offline
