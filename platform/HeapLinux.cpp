// SPDX-License-Identifier: MIT
#include <cstdlib>

#include "platform/Heap.h"
#include "platform/Hooks.h"

// There in a build with the address sanitizer only.
extern "C" [[gnu::weak]] void __lsan_ignore_object(const void* memory);

namespace platform {

void* HeapAllocate(size_t bytes) noexcept {
    if (!hooks::Admits(bytes)) [[unlikely]]
        return nullptr;
    return std::malloc(bytes != 0 ? bytes : 1);
}

void* HeapAllocateZeroed(size_t bytes) noexcept {
    if (!hooks::Admits(bytes)) [[unlikely]]
        return nullptr;
    return std::calloc(1, bytes != 0 ? bytes : 1);
}

void HeapRelease(void* memory) noexcept {
    std::free(memory);
}

void HeapLeaveToTheEnd(const void* memory) noexcept {
    if (__lsan_ignore_object != nullptr) __lsan_ignore_object(memory);
}

}  // namespace platform
