// SPDX-License-Identifier: MIT
#include "FS_Library_DLL/keystore/FsOperation.h"

#include <chrono>
#include <thread>

namespace {

constexpr uint32_t kTriesWithoutLock = 12;
constexpr uint32_t kReadPatience = 5000;  // milliseconds

}  // namespace

FsReadRetry::~FsReadRetry() {
    if (locked_) storage::ReleaseContainerLock(context_->container);
}

bool FsReadRetry::Again() {
    storage::StorageContext* container = context_->container;
    if (locked_) return ++tries_ < 2 * kTriesWithoutLock;
    if (++tries_ <= kTriesWithoutLock) {
        if (tries_ <= 3)
            std::this_thread::yield();
        else
            std::this_thread::sleep_for(std::chrono::microseconds(50u << (tries_ - 4)));
        return true;
    }
    storage::LockPatience patience;
    patience.milliseconds = kReadPatience;
    locked_ = storage::GetContainerLock(container, patience) == storage::kOk;
    return locked_;
}
