// SPDX-License-Identifier: MIT
// Between the native functions' types and those of the stores.
#pragma once

#include "FS_Library_DLL/native/NtStatus.h"
#include "include/FsError.h"
#include "include/ZrFsTypes.h"

namespace nt {

inline HANDLE ToHandle(int64_t key) {
    return reinterpret_cast<HANDLE>(key);
}
inline int64_t ToKey(HANDLE key) {
    return reinterpret_cast<int64_t>(key);
}

inline FBR_STATUS ToFsStatus(NTSTATUS status) {
    return FsError::ToFsStatus(status);
}

}  // namespace nt
