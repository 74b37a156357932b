// SPDX-License-Identifier: MIT
#include "storage/lifecycle/RunLock.h"

#include "storage/core/PageIo.h"
#include "storage/lifecycle/ContextLife.h"
#include "storage/lifecycle/Sharing.h"

namespace storage {

RunLock::~RunLock() {
    if (context_ == nullptr) return;
    CloseContainer(context_, Closing::Fail);
    DestroyContext(context_);
}

// On an opening of its own: a check reads the file through one that need not be able to write.
Status RunLock::Take(const WChar* path, bool onlyReads) {
    context_ = MakeContext();
    if (context_ == nullptr) return kNoMemory;
    context_->containerLock.AssertAlone();
    context_->path = CopyRealPath(path);
    if (context_->path == nullptr) return kNoMemory;
    Status status = OpenContainerFile(context_, context_->path);
    if (status == kOk) status = AttachLock(context_);
    if (status != kOk) return status;
    const auto result = context_->lock->Acquire(kRunLockWait, nullptr);
    const bool granted = result == platform::FileLock::Result::Granted ||
                         result == platform::FileLock::Result::OwnerDied;
    context_->enteredTurn = context_->lock->Turn();
    const bool own = result == platform::FileLock::Result::OwnWait && onlyReads;
    if (own) context_->lock->SettleForLook();
    return granted || own ? kOk : kSharing;
}

bool RunLock::IsBesideWriter() const {
    if (context_ == nullptr) return false;
    context_->containerLock.AssertAlone();
    return context_->readOnly && context_->file->IsMarkedElsewhere();
}

Status LockContainerForRun(StorageContext* context) {
    LockPatience patience;
    patience.milliseconds = kRunLockWait;
    const Status status = GetContainerLock(context, patience);
    return status == kInternal ? kSharing : status;
}

}  // namespace storage
