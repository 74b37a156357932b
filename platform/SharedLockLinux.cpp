// SPDX-License-Identifier: MIT
#include "platform/SharedLock.h"

#include <pthread.h>

namespace platform {

struct SharedLock::System {
    pthread_rwlock_t lock;
};

SharedLock::SharedLock() : system_(std::make_unique<System>()) {
    pthread_rwlockattr_t attributes;
    pthread_rwlockattr_init(&attributes);
    pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
    pthread_rwlock_init(&system_->lock, &attributes);
    pthread_rwlockattr_destroy(&attributes);
}

SharedLock::~SharedLock() {
    pthread_rwlock_destroy(&system_->lock);
}

void SharedLock::lock() noexcept {
    pthread_rwlock_wrlock(&system_->lock);
}
void SharedLock::unlock() noexcept {
    pthread_rwlock_unlock(&system_->lock);
}
void SharedLock::lock_shared() noexcept {
    pthread_rwlock_rdlock(&system_->lock);
}
void SharedLock::unlock_shared() noexcept {
    pthread_rwlock_unlock(&system_->lock);
}

}  // namespace platform
