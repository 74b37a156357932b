// SPDX-License-Identifier: MIT
#include "platform/Resources.h"

#include <windows.h>

namespace platform {
namespace {

SECURITY_ATTRIBUTES* Attributes(const void* attributes) {
    return static_cast<SECURITY_ATTRIBUTES*>(const_cast<void*>(attributes));
}

}  // namespace

bool HasNamedObjects() noexcept {
    return true;
}

Handle CreateNamedMutex(const WChar* name, const void* attributes) noexcept {
    return CreateMutexW(Attributes(attributes), FALSE, name);
}

WaitResult WaitForMutex(Handle mutex, uint32_t milliseconds) noexcept {
    switch (WaitForSingleObject(mutex, milliseconds)) {
        case WAIT_OBJECT_0:
            return WaitResult::Granted;
        case WAIT_ABANDONED:
            return WaitResult::Abandoned;
        case WAIT_TIMEOUT:
            return WaitResult::TimedOut;
        default:
            return WaitResult::Failed;
    }
}

bool ReleaseNamedMutex(Handle mutex) noexcept {
    return ReleaseMutex(mutex) != 0;
}

void CloseNamedMutex(Handle mutex) noexcept {
    if (IsValid(mutex)) CloseHandle(mutex);
}

Handle OpenSharedWord(const WChar* name) noexcept {
    return OpenFileMappingW(FILE_MAP_READ | FILE_MAP_WRITE, FALSE, name);
}

Handle CreateSharedWord(const WChar* name, const void* attributes) noexcept {
    return CreateFileMappingW(INVALID_HANDLE_VALUE, Attributes(attributes), PAGE_READWRITE, 0,
                              sizeof(uint32_t), name);
}

uint32_t* MapSharedWord(Handle word) noexcept {
    return static_cast<uint32_t*>(
        MapViewOfFile(word, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(uint32_t)));
}

void UnmapSharedWord(uint32_t* view) noexcept {
    if (view != nullptr) UnmapViewOfFile(view);
}

void CloseSharedWord(Handle word) noexcept {
    if (IsValid(word)) CloseHandle(word);
}

}  // namespace platform
