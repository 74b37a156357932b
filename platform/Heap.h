// SPDX-License-Identifier: MIT
// The process heap. All memory of the engine and every string that crosses the interface is from
// here.
#pragma once

#include <cstddef>

namespace platform {

// Both return null when there is no memory. Zero bytes give a pointer that can be released.
void* HeapAllocate(size_t bytes) noexcept;
void* HeapAllocateZeroed(size_t bytes) noexcept;
// Null is ignored.
void HeapRelease(void* memory) noexcept;
// Stays, with all it refers to, until the process ends: no leak to a program that looks for leaks.
void HeapLeaveToTheEnd(const void* memory) noexcept;

// For tests: asked before each allocation; false makes that allocation fail. Null removes it.
// Not to be changed while another thread allocates.
using AllocationGate = bool (*)(size_t bytes);
void SetAllocationGate(AllocationGate gate) noexcept;

}  // namespace platform
