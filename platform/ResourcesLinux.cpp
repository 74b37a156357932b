// SPDX-License-Identifier: MIT
// No names for objects in memory here: in a folder that all may write, anybody can lay a file in
// the way, and a name is not the file. The lock of the file itself serves.
#include "platform/Resources.h"

#include "platform/ErrnoLinux.h"

namespace platform {

bool HasNamedObjects() noexcept {
    return false;
}

Handle CreateNamedMutex(const WChar*, const void*) noexcept {
    Leave(kErrorNotSupported);
    return nullptr;
}

WaitResult WaitForMutex(Handle, uint32_t) noexcept {
    Leave(kErrorInvalidHandle);
    return WaitResult::Failed;
}

bool ReleaseNamedMutex(Handle) noexcept {
    Leave(kErrorInvalidHandle);
    return false;
}

void CloseNamedMutex(Handle) noexcept {}

Handle OpenSharedWord(const WChar*) noexcept {
    Leave(kErrorNotSupported);
    return nullptr;
}

Handle CreateSharedWord(const WChar*, const void*) noexcept {
    Leave(kErrorNotSupported);
    return nullptr;
}

uint32_t* MapSharedWord(Handle) noexcept {
    Leave(kErrorInvalidHandle);
    return nullptr;
}

void UnmapSharedWord(uint32_t*) noexcept {}

void CloseSharedWord(Handle) noexcept {}

}  // namespace platform
