// SPDX-License-Identifier: MIT
#include <windows.h>

#include <cstdlib>

#include "platform/ThreadSlot.h"

namespace platform {

ThreadSlot::ThreadSlot() noexcept : key_(TlsAlloc()) {
    if (key_ == TLS_OUT_OF_INDEXES) std::abort();
}

ThreadSlot::~ThreadSlot() {
    TlsFree(key_);
}

// Reading it would make the last error 0.
uintptr_t ThreadSlot::Get() const noexcept {
    const DWORD error = GetLastError();
    const auto value = reinterpret_cast<uintptr_t>(TlsGetValue(key_));
    SetLastError(error);
    return value;
}

void ThreadSlot::Set(uintptr_t value) noexcept {
    if (!TlsSetValue(key_, reinterpret_cast<void*>(value))) std::abort();
}

}  // namespace platform
