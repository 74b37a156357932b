// SPDX-License-Identifier: MIT
// Base of objects that live in the process heap: a failed allocation makes `new` give null.
#pragma once

#include "platform/Heap.h"

namespace platform {

struct HeapObject {
    static void* operator new(size_t bytes) noexcept { return HeapAllocate(bytes); }
    static void operator delete(void* memory) noexcept { HeapRelease(memory); }
};

}  // namespace platform
