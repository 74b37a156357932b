// SPDX-License-Identifier: MIT
#include <pthread.h>

#include <cstdlib>

#include "platform/ThreadSlot.h"

namespace platform {

ThreadSlot::ThreadSlot() noexcept {
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0) std::abort();
    key_ = key;
}

ThreadSlot::~ThreadSlot() {
    pthread_key_delete(key_);
}

uintptr_t ThreadSlot::Get() const noexcept {
    return reinterpret_cast<uintptr_t>(pthread_getspecific(key_));
}

void ThreadSlot::Set(uintptr_t value) noexcept {
    if (pthread_setspecific(key_, reinterpret_cast<void*>(value)) != 0) std::abort();
}

}  // namespace platform
