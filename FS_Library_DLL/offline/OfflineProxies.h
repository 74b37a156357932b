// SPDX-License-Identifier: MIT
// What the sources of the offline store share: its key handles, and the results of the library.
#pragma once

#include <cstdint>

#include "FS_Library_DLL/offline/ORHandleProxy.h"
#include "include/FsError.h"

namespace offline {

inline constexpr uint32_t kErrorFileNotFound = 2;
inline constexpr uint32_t kErrorOutOfMemory = 14;
inline constexpr uint32_t kErrorBufferOverflow = 111;
inline constexpr uint32_t kErrorMoreData = 234;
inline constexpr uint32_t kErrorFileCorrupt = 1392;

inline constexpr uint32_t kOpenedExistingKey = 2;

inline ORHandleProxy* AsProxy(int64_t key) {
    return reinterpret_cast<ORHandleProxy*>(static_cast<intptr_t>(key));
}
inline int64_t AsHandle(ORHandleProxy* proxy) {
    return reinterpret_cast<intptr_t>(proxy);
}

inline FBR_STATUS ToStatus(uint32_t error) {
    return FsError::ToFsStatus(static_cast<FBR_WIN32ERROR>(error));
}

}  // namespace offline
