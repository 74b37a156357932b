// SPDX-License-Identifier: MIT
// Creators of the objects that processes share: the file, the named mutex and the shared word.
// They are reached through CreateLowIntegrityResource, which gives them their security label.
#pragma once

#include <cstdint>

#include "platform/Errors.h"
#include "platform/PageFile.h"
#include "platform/Text.h"

namespace platform {

// A system handle (Windows) or a pointer to the seam's own object (Linux). Null and -1 are never
// valid.
using Handle = void*;
inline bool IsValid(Handle handle) noexcept {
    return handle != nullptr && handle != reinterpret_cast<Handle>(static_cast<intptr_t>(-1));
}

// Opens a file for reading and writing, or for reading only; others may read and write it, and
// access is expected at random places. `attributes` is a SECURITY_ATTRIBUTES on Windows and
// unused elsewhere. On failure the result is not valid and LastError tells why.
Handle OpenFileHandle(const WChar* path, bool readOnly, uint32_t disposition,
                      const void* attributes) noexcept;
// Makes a page file of an open file handle and owns it from then on. Null when there is no
// memory; the handle is closed then. Applies the wrapper of PageFile.h; `path` is handed to it.
PageFile* AdoptFileHandle(Handle handle, const WChar* path) noexcept;

// Whether the system knows objects that processes share by name. Where it does not, the functions
// below answer that there is none, and the lock of the file (FileLock.h) stands alone.
bool HasNamedObjects() noexcept;

// A mutex known by name to all processes of the user's session: recursive for each thread,
// granted to a waiter when its owner dies. Created unowned; an existing one is opened.
Handle CreateNamedMutex(const WChar* name, const void* attributes) noexcept;
enum class WaitResult { Granted, Abandoned, TimedOut, Failed };
WaitResult WaitForMutex(Handle mutex, uint32_t milliseconds) noexcept;
bool ReleaseNamedMutex(Handle mutex) noexcept;
void CloseNamedMutex(Handle mutex) noexcept;

// A 4-byte word shared by name, 0 when new, gone with its last user.
Handle OpenSharedWord(const WChar* name) noexcept;
Handle CreateSharedWord(const WChar* name, const void* attributes) noexcept;
uint32_t* MapSharedWord(Handle word) noexcept;
void UnmapSharedWord(uint32_t* view) noexcept;
void CloseSharedWord(Handle word) noexcept;

}  // namespace platform
