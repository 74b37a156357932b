// SPDX-License-Identifier: MIT
#include "platform/Hooks.h"

namespace platform {

void SetAllocationGate(AllocationGate gate) noexcept {
    hooks::allocationGate = gate;
}

void SetClock(ClockSource source) noexcept {
    hooks::clockSource = source;
}

void SetPageFileWrapper(PageFileWrapper wrapper) noexcept {
    hooks::pageFileWrapper = wrapper;
}

}  // namespace platform
