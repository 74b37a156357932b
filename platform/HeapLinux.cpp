#include <cstdlib>

#include "platform/Heap.h"
#include "platform/Hooks.h"

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

}  // namespace platform
