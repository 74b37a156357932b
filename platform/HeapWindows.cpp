// SPDX-License-Identifier: MIT
#include <windows.h>

#include "platform/Heap.h"
#include "platform/Hooks.h"

namespace platform {

void* HeapAllocate(size_t bytes) noexcept {
    if (!hooks::Admits(bytes)) [[unlikely]]
        return nullptr;
    return HeapAlloc(GetProcessHeap(), 0, bytes);
}

void* HeapAllocateZeroed(size_t bytes) noexcept {
    if (!hooks::Admits(bytes)) [[unlikely]]
        return nullptr;
    return HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, bytes);
}

void HeapRelease(void* memory) noexcept {
    if (memory != nullptr) HeapFree(GetProcessHeap(), 0, memory);
}

void HeapLeaveToTheEnd(const void*) noexcept {}

}  // namespace platform
