// SPDX-License-Identifier: MIT
// Memory that will be looked at soon: it comes while something else is done.
#pragma once

#include <cstddef>
#include <cstdint>

namespace platform {

// `place` may be any number: nothing is looked at that is not there.
inline void Prefetch(const void* place, size_t bytes) {
    constexpr size_t kLine = 64;
    const auto first = reinterpret_cast<uintptr_t>(place);
    for (size_t at = 0; at < bytes; at += kLine)
        __builtin_prefetch(reinterpret_cast<const void*>(first + at));
    __builtin_prefetch(reinterpret_cast<const void*>(first + bytes - 1));
}

}  // namespace platform
