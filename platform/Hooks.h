// SPDX-License-Identifier: MIT
// What tests put in place of the system, kept here so that every file of the seam asks one place.
// For the files of platform/ only; others use the setters in Heap.h, Clock.h and PageFile.h.
#pragma once

#include "platform/Clock.h"
#include "platform/Heap.h"
#include "platform/PageFile.h"

namespace platform::hooks {

inline constinit AllocationGate allocationGate = nullptr;
inline constinit ClockSource clockSource = nullptr;
inline constinit PageFileWrapper pageFileWrapper = nullptr;

// False when a test wants this allocation to fail.
inline bool Admits(size_t bytes) {
    return allocationGate == nullptr || allocationGate(bytes);
}

// Gives `opened` to the wrapper, if there is one. Null stays null.
inline PageFile* Wrap(PageFile* opened, const WChar* path) {
    return opened != nullptr && pageFileWrapper != nullptr ? pageFileWrapper(opened, path) : opened;
}

}  // namespace platform::hooks
