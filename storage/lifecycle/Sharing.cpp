// SPDX-License-Identifier: MIT
#include "storage/lifecycle/Sharing.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <utility>

#include "Shared/logging/Logger.h"
#include "Shared/security/LowIntegrityResource.h"
#include "platform/LockWaitLimit.h"
#include "storage/core/PageCache.h"
#include "storage/core/PageIo.h"
#include "storage/core/PageMap.h"
#include "storage/core/SwitchMark.h"
#include "storage/lifecycle/ContextLife.h"

#undef ZRFS_LOG_FILE
#define ZRFS_LOG_FILE "Sharing"

namespace storage {

namespace {

constexpr size_t kNameUnits = 260;
constexpr WChar kMutexPrefix[] = WTEXT("Varnhold-TARN_MP_LOCK_");
constexpr WChar kGenerationPrefix[] = WTEXT("Varnhold-TARN_MP_MMF_VERSION_");

WChar Mangle(WChar unit) {
    for (const WChar reserved : platform::WStringView(WTEXT("\\/:*?\"<>|# ")))
        if (unit == reserved) return '_';
    return unit >= 'a' && unit <= 'z' ? static_cast<WChar>(unit - ('a' - 'A')) : unit;
}

// The name of a shared object. What passes the buffer is cut: two such paths then share their
// objects, which costs waits and no more.
struct SharedName {
    WChar text[kNameUnits];

    SharedName(const WChar* prefix, const WChar* path) {
        size_t at = 0;
        for (; *prefix != 0; ++prefix) text[at++] = *prefix;
        for (; *path != 0 && at + 1 < kNameUnits; ++path) text[at++] = Mangle(*path);
        text[at] = 0;
    }
};

Status OpenMutex(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    if (!platform::HasNamedObjects()) return kOk;
    const SharedName name(kMutexPrefix, context->path);
    context->lockMutex =
        CreateLowIntegrityResource(static_cast<uint32_t>(ResourceType::Mutex), name.text, 0);
    if (platform::IsValid(context->lockMutex)) return kOk;
    context->lockMutex = nullptr;
    return kInternal;
}

// With the lock held, so that one process at a time makes the word.
void OpenGeneration(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    if (context->sharedGeneration != nullptr || !platform::HasNamedObjects()) return;
    const SharedName name(kGenerationPrefix, context->path);
    if (!platform::IsValid(context->sharedMapping))
        context->sharedMapping = platform::OpenSharedWord(name.text);
    if (!platform::IsValid(context->sharedMapping))
        context->sharedMapping = CreateLowIntegrityResource(
            static_cast<uint32_t>(ResourceType::FileMapping), name.text, 0);
    if (platform::IsValid(context->sharedMapping))
        context->sharedGeneration = platform::MapSharedWord(context->sharedMapping);
    else
        context->sharedMapping = nullptr;
}

// Programs that watch the shared word see it move; page 1 is what we ourselves go by.
void PublishGeneration(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    if (context->sharedGeneration == nullptr) return;
    std::atomic_ref<uint32_t> word(*context->sharedGeneration);
    const uint32_t next = word.load() + 1;
    word.store(next < 0xFFFFFFFF && next != 0 ? next : 2);
}

struct ChangeMark {
    uint32_t counter = 0;
    bool changing = false;
    bool logPending = false;
    bool isLoaded = false;  // what memory has of page 1 is this, but for the counter
};

// Page 1 as it stands in the file.
Status ReadMark(StorageContext* context, ChangeMark* mark) ZRFS_REQUIRES(context->containerLock) {
    Superblock super;
    const uint64_t offset = (uint64_t{context->basePage} + kSuperblockNumber) * context->pageSize;
    uint32_t done = 0;
    const platform::Error error = context->file->Read(offset, &super, sizeof super, &done);
    if (error != 0) return static_cast<Status>(error);
    const bool swapped = context->byteSwapped;
    const uint16_t kind = swapped ? Swap16(super.kind) : super.kind;
    if (done != sizeof super || kind != kSuperblockPage) return kCorrupt;
    mark->counter = swapped ? Swap32(super.transactionCounter) : super.transactionCounter;
    mark->changing = super.changing != 0;
    mark->logPending = super.logPending != 0;
    const Superblock* loaded = context->Super();
    mark->isLoaded = loaded->logPending == 0 && loaded->changing == 0 &&
                     loaded->logChainHead == super.logChainHead &&
                     (swapped || loaded->lastFileId >= super.lastFileId);
    return kOk;
}

bool HasAnotherSize(StorageContext* context, uint64_t size) ZRFS_REQUIRES(context->containerLock) {
    return (size >> context->pageShift) != uint64_t{context->basePage} + context->totalPages;
}

// Memory in line with the file. The lock is held, or (`locked` false) the look is a passing one.
Status Reload(StorageContext* context, bool locked) ZRFS_REQUIRES(context->containerLock) {
    context->metSwitch = false;
    const Status status = ReloadContainer(context, locked);
    context->stale = status != kOk;
    return status;
}

// Who has the lock for writing ends what a writer that died had begun: the file is whole, only
// page 1 still says that a change is under way, or tells of pages that were not written. What
// memory holds is nothing of those.
Status EndForeignChange(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    if (context->readOnly) return kOk;
    const bool settled = !context->unsettled ||
                         (context->listed.count != 0 && AreSwitched(context, context->listed));
    if (context->Super()->changing != 0 || !settled) {
        context->changing = true;
        const Status status = EndChange(context);
        if (status != kOk) return status;
    }
    // A listed page may have come along with its neighbours before it was written.
    if (context->unsettled || context->awaited.count != 0) context->blocks.Forget();
    context->unsettled = context->metSwitch = false;
    context->awaited.count = 0;
    return kOk;
}

// The state that the lock is taken on. Where it keeps no writer off, it may take a while to have
// one.
Status ReloadUnderLock(StorageContext* context, uint32_t milliseconds)
    ZRFS_REQUIRES(context->containerLock) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(platform::LockWaitOf(milliseconds));
    for (;;) {
        const Status status = Reload(context, true);
        if (status != kSharing || !context->readOnly || Clock::now() >= end ||
            platform::IsLockWaitToEnd())
            return status;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

// A reader that may not write waits here for the change to end; nobody can keep it from the file.
Status WaitForQuiet(StorageContext* context, ChangeMark* mark, uint32_t milliseconds)
    ZRFS_REQUIRES(context->containerLock) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(platform::LockWaitOf(milliseconds));
    for (;;) {
        const Status status = ReadMark(context, mark);
        if (status != kOk) return status;
        // A writer that is no more left a whole file.
        if (!mark->changing || !context->file->IsMarkedElsewhere()) return kOk;
        if (Clock::now() >= end || platform::IsLockWaitToEnd()) return kSharing;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

// After the lock was taken. Memory is brought up to date.
Status EnterLocked(StorageContext* context, bool ownerDied, uint32_t patience)
    ZRFS_REQUIRES(context->containerLock) {
    context->enteredTurn = context->lock->Turn();
    OpenGeneration(context);
    uint64_t size = 0;
    if (!context->file->IsAt(context->path, &size)) return kInternal;
    // A file that could not be read the last time is tried again.
    if (!context->active) {
        const Status status = ReloadUnderLock(context, patience);
        return status == kOk ? EndForeignChange(context) : status;
    }
    ChangeMark mark;
    Status status =
        context->readOnly ? WaitForQuiet(context, &mark, patience) : ReadMark(context, &mark);
    if (status != kOk) return status;
    const bool moved = mark.counter != context->seenCounter || mark.changing || mark.logPending;
    // Page 1 itself was read while somebody may have been writing it: as it was loaded it must be.
    if (context->stale || ownerDied || moved || HasAnotherSize(context, size) || !mark.isLoaded)
        status = ReloadUnderLock(context, patience);
    if (status == kOk) status = EndForeignChange(context);
    if (status == kOk && ownerDied) context->wroteSinceLock = true;
    return status;
}

}  // namespace

void SettleMap(StorageContext* context) {
    if (!context->active || context->readOnly || context->stale || !context->transactions.Empty())
        return;
    GiveBackSparePages(context);
    FlushMapPages(context);
}

namespace {

// Before the lock is let go: nothing that is not in the file may stay to be written later.
void SettleBeforeRelease(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    if (!context->active || context->readOnly) return;
    for (StorageTransaction* t = context->transactions.head; t != nullptr; t = t->next)
        if (t->writes && t->pageCount != 0) t->failure = kSharing;
    // What the map has too many or too few pages of needs no new state of the file.
    SettleMap(context);
    context->spare.changes = 0;
    EndChange(context);
    if (context->wroteSinceLock) PublishGeneration(context);
    if (context->grewSinceFlush && context->file != nullptr) context->file->Flush();
    context->grewSinceFlush = context->wroteSinceLock = false;
}

bool Granted(platform::FileLock::Result result) {
    return result == platform::FileLock::Result::Granted ||
           result == platform::FileLock::Result::OwnerDied;
}

}  // namespace

namespace {

void SettleForLook(void* container) {
    auto* context = static_cast<StorageContext*>(container);
    const platform::MutexGuard guard(context->containerLock);
    SettleMap(context);
}

}  // namespace

Status AttachLock(StorageContext* context) {
    const Status status = OpenMutex(context);
    if (status != kOk) return status;
    context->lock = new platform::FileLock(context->file, context->lockMutex);
    if (context->lock == nullptr || !context->lock->Join()) return kNoMemory;
    context->lock->BeforeLook(SettleForLook, context);
    return kOk;
}

void DetachLock(StorageContext* context) {
    if (context->IsLocked()) SettleBeforeRelease(context);
    delete context->lock;
    delete context->retiredLock;
    context->lock = context->retiredLock = nullptr;
    if (context->sharedGeneration != nullptr) platform::UnmapSharedWord(context->sharedGeneration);
    if (context->sharedMapping != nullptr) platform::CloseSharedWord(context->sharedMapping);
    if (context->lockMutex != nullptr) platform::CloseNamedMutex(context->lockMutex);
    context->sharedGeneration = nullptr;
    context->sharedMapping = context->lockMutex = nullptr;
    context->implicitLock = false;
    context->writers = 0;
}

namespace {

// Another program denied writing when the container was opened. Once it no longer does, the file is
// opened for writing. The old opening stays until the end: a thread may be waiting at its lock.
void RegainWriting(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    if (!context->writingDenied || context->lock == nullptr || context->lock->IsHeld()) return;
    platform::PageFile* file =
        OpenPageFile(context->path, ResourceType::FileCreate, platform::Disposition::OpenExisting);
    platform::FileIdentity before, now;
    auto* lock = file != nullptr ? new platform::FileLock(file, context->lockMutex) : nullptr;
    if (lock == nullptr || !lock->Join() || context->file->Identity(&before) != 0 ||
        file->Identity(&now) != 0 || !(before == now)) {
        delete lock;
        delete file;
        ZRFS_LOG(Varnhold::Hob::Detail::kWarning, "GetContainerLock",
                 "[{}] is open for reading only: another program denies writing",
                 platform::ToUtf8(context->path));
        return;
    }
    context->retiredFile = std::exchange(context->file, file);
    context->retiredLock = std::exchange(context->lock, lock);
    lock->BeforeLook(SettleForLook, context);
    context->readOnly = context->writingDenied = false;
    context->stale = true;
}

}  // namespace

Status GetContainerLock(StorageContext* context, const LockPatience& patience) {
    platform::FileLock* lock = nullptr;
    bool nested = false;
    {
        const platform::MutexGuard guard(context->containerLock);
        RegainWriting(context);
        lock = context->lock;
        nested = lock != nullptr && lock->IsMine() && !context->implicitLock;
    }
    if (lock == nullptr) return kInternal;
    // Not under containerLock: the owner needs that to get on and let the lock go.
    const auto result = lock->Acquire(patience.milliseconds, patience.waiting);
    if (!Granted(result)) return kInternal;
    if (nested) return kOk;
    const platform::MutexGuard guard(context->containerLock);
    const bool ownerDied = result == platform::FileLock::Result::OwnerDied;
    const Status status = EnterLocked(context, ownerDied, patience.milliseconds);
    context->everLocked = true;
    if (status != kOk) lock->Release();
    return status;
}

Status ReleaseContainerLock(StorageContext* context) {
    platform::FileLock* lock = context->lock;
    if (lock == nullptr) return kInternal;
    const platform::MutexGuard guard(context->containerLock);
    if (!lock->IsMine()) return context->everLocked && !lock->IsHeld() ? kOk : kInternal;
    if (lock->Depth() == 1) SettleBeforeRelease(context);
    return lock->Release() ? kOk : kInternal;
}

bool IsLockedByOthers(const StorageContext* context) {
    return context->lock != nullptr && context->lock->IsHeld() && !context->lock->IsMine();
}

Status EnterWrite(StorageContext* context, bool mayReload) {
    if (context->lock == nullptr) return kOk;
    if (!context->IsLocked()) {
        // Another thread is about to have it, and needs this one out of its way.
        if (context->lock->IsHeld()) return kSharing;
        if (!Granted(context->lock->Acquire(kLockWait, nullptr))) return kSharing;
        context->implicitLock = true;
        Status status = kOk;
        if (mayReload) {
            status = EnterLocked(context, false, kLockWait);
        } else {
            context->enteredTurn = context->lock->Turn();
            ChangeMark mark;
            status = ReadMark(context, &mark);
            if (status == kOk &&
                (context->stale || mark.logPending || mark.counter != context->seenCounter))
                status = kSharing;
            if (status == kOk) status = EndForeignChange(context);
        }
        if (status != kOk) {
            context->implicitLock = false;
            context->lock->Release();
            return status;
        }
    } else if (context->stale && mayReload) {
        const Status status = Reload(context, true);
        if (status != kOk) return status;
    } else if (context->stale) {
        return kSharing;
    }
    ++context->writers;
    return kOk;
}

void LeaveWrite(StorageContext* context) {
    if (context->writers > 0) --context->writers;
    if (context->writers != 0 || !context->implicitLock) return;
    context->implicitLock = false;
    SettleBeforeRelease(context);
    // A file may be closed by another thread than the one that opened it.
    if (!context->lock->Release()) context->lock->ReleaseAll();
}

Status MakeUsable(StorageContext* context) {
    if (context->active && !context->stale) return kOk;
    if (context->lock == nullptr) return context->active ? kOk : kNotOpen;
    // Operations at work go on with what they have.
    if (context->active && (context->writers != 0 || context->reading != 0)) return kOk;
    // A log that is in force is replayed first: what it holds is what was answered for.
    return context->IsLocked() ? Reload(context, true) : LoadShared(context);
}

namespace {

// A read under the lock of a reader who may not write: nothing keeps the writers off, so that the
// state it began with must still be there.
Status ReadUnderWeakLock(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    ChangeMark mark;
    const Status status = ReadMark(context, &mark);
    if (status != kOk) return status;
    const bool same = mark.counter == context->seenCounter &&
                      (!mark.changing || !context->file->IsMarkedElsewhere());
    return same ? kOk : kLockLost;
}

Status CatchUp(StorageContext* context) ZRFS_REQUIRES(context->containerLock) {
    ChangeMark mark;
    const Status status = ReadMark(context, &mark);
    if (status != kOk) return status;
    // Only a live writer is worth waiting for; what a dead one left needs no end to be read, but
    // one that may write does end it, under the lock.
    if (mark.changing || mark.logPending) {
        if (!context->readOnly || context->file->IsMarkedElsewhere()) return kSharing;
    }
    if (!context->stale && mark.counter == context->seenCounter) return kOk;
    const Status loaded = Reload(context, false);
    // What cannot be loaded beside a change may well be sound.
    const bool final = loaded == kOk || (context->readOnly && !context->file->IsMarkedElsewhere());
    return final ? loaded : Status{kSharing};
}

}  // namespace

Status BeginRead(StorageContext* context) {
    context->readsBefore = context->pageReads;
    Status status = kOk;
    if (!context->active) {
        status = MakeUsable(context);
    } else if (context->IsLocked()) {
        if (context->readOnly) status = ReadUnderWeakLock(context);
        if (status == kOk && context->stale) status = Reload(context, true);
    } else {
        status = CatchUp(context);
    }
    if (status != kOk) return status;
    ++context->reading;
    return kOk;
}

Status EndRead(StorageContext* context, Status result) {
    --context->reading;
    if (context->IsLocked() && !context->readOnly) return kOk;
    if (context->metSwitch) {
        context->stale = true;
        return kSharing;
    }
    // Damage is only told by one who has the lock: what looks like it may be a change under way.
    const bool doubtful = result == kCorrupt;
    if (context->pageReads == context->readsBefore && !doubtful) return kOk;
    ChangeMark mark;
    Status status = ReadMark(context, &mark);
    if (status == kOk && (mark.counter != context->seenCounter ||
                          (mark.changing && context->file->IsMarkedElsewhere())))
        status = kSharing;
    if (status == kOk && doubtful && !context->readOnly) status = kSharing;
    if (status != kOk) context->stale = true;
    return status == kOk ? kOk : kSharing;
}

Status LoadShared(StorageContext* context) {
    constexpr int kTries = 20;
    for (int i = 0; i < kTries; ++i) {
        Status status = Reload(context, false);
        ChangeMark mark;
        if (status == kOk) status = ReadMark(context, &mark);
        const bool ends = mark.changing || mark.logPending;
        if (status == kOk && mark.counter == context->seenCounter) {
            if (!ends || (context->readOnly && !context->file->IsMarkedElsewhere())) return kOk;
            if (!context->file->IsMarkedElsewhere()) break;
        }
        // What is no container at all needs no second look, and damage is told under the lock.
        if (status == kNotContainer || status == kNoMemory || status > 0) return status;
        if (status != kOk && !context->file->IsMarkedElsewhere()) break;
        std::this_thread::sleep_for(std::chrono::microseconds(100 << (i < 5 ? i : 5)));
    }
    if (context->readOnly) return Reload(context, false);
    if (context->lock->IsHeld()) return kSharing;
    const auto result = context->lock->Acquire(kLockWait, nullptr);
    if (!Granted(result)) return kSharing;
    context->enteredTurn = context->lock->Turn();
    Status status = Reload(context, true);
    if (status == kOk) status = EndForeignChange(context);
    if (status == kOk) SettleBeforeRelease(context);
    context->lock->Release();
    return status;
}

}  // namespace storage
