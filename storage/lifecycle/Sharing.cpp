#include "storage/lifecycle/Sharing.h"

#include <atomic>

#include "FS_Library_DLL/LockWait.h"
#include "Shared/security/LowIntegrityResource.h"
#include "storage/lifecycle/ContextLife.h"

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
// objects, which costs reloads and no more.
struct SharedName {
    WChar text[kNameUnits];

    SharedName(const WChar* prefix, const WChar* path) {
        size_t at = 0;
        for (; *prefix != 0; ++prefix) text[at++] = *prefix;
        for (; *path != 0 && at + 1 < kNameUnits; ++path) text[at++] = Mangle(*path);
        text[at] = 0;
    }
};

// The caller holds containerLock.
Status OpenMutex(StorageContext* context) {
    if (context->lockMutex != nullptr) return kOk;
    if (context->path == nullptr) return kInternal;
    const SharedName name(kMutexPrefix, context->path);
    const platform::Handle mutex =
        CreateLowIntegrityResource(static_cast<uint32_t>(ResourceType::Mutex), name.text, 0);
    if (!platform::IsValid(mutex)) return kInternal;
    context->lockMutex = mutex;
    return kOk;
}

// The caller holds containerLock and the mutex, so that one process at a time makes the word.
Status OpenGeneration(StorageContext* context) {
    if (context->sharedGeneration != nullptr) return kOk;
    if (context->path == nullptr) return kInternal;
    const SharedName name(kGenerationPrefix, context->path);
    if (!platform::IsValid(context->sharedMapping))
        context->sharedMapping = platform::OpenSharedWord(name.text);
    if (!platform::IsValid(context->sharedMapping))
        context->sharedMapping = CreateLowIntegrityResource(
            static_cast<uint32_t>(ResourceType::FileMapping), name.text, 0);
    if (!platform::IsValid(context->sharedMapping)) {
        context->sharedMapping = nullptr;
        return kInternal;
    }
    context->sharedGeneration = platform::MapSharedWord(context->sharedMapping);
    return context->sharedGeneration != nullptr ? kOk : kInternal;
}

uint32_t LoadGeneration(const StorageContext* context) {
    return std::atomic_ref<uint32_t>(*context->sharedGeneration).load();
}

// As long as the process wants to wait; who asked is told of the wait.
platform::WaitResult WaitForMutex(platform::Handle mutex) {
    const platform::WaitResult result = platform::WaitForMutex(mutex, 0);
    const uint32_t wait = LockWaitMilliseconds();
    if (result != platform::WaitResult::TimedOut || wait == 0) return result;
    if (const LockWaitBegins begins = LockWaitCallback()) begins();
    return platform::WaitForMutex(mutex, wait);
}

// Throws away what memory holds of the container and opens it again. Open handles and searches
// lose their objects.
Status Reload(StorageContext* context) {
    const uint32_t generation = LoadGeneration(context);
    WChar* path = CopyString(context->path);
    if (path == nullptr) return kOk;  // the old state is kept
    WChar* logPath = MakeLogPath(path);
    CloseContainer(context, Closing::Discard);
    Status status = logPath == nullptr ? kNoMemory : OpenContainer(context, path, logPath);
    context->seenGeneration = status == kOk ? generation : 0;
    platform::HeapRelease(logPath);
    if (context->path == nullptr) {
        context->path = path;
    } else {
        platform::HeapRelease(path);
    }
    return status;
}

// `ownerDied`: what the dead owner wrote has no generation of its own. Everybody reads again.
Status EnterLocked(StorageContext* context, bool ownerDied) {
    const std::lock_guard guard(context->containerLock);
    // The word is gone with its last user, so that what others wrote and closed before the first
    // lock cannot be told from nothing.
    const bool firstLock = context->sharedGeneration == nullptr;
    Status status = OpenGeneration(context);
    if (status != kOk) return status;
    if (firstLock || ownerDied || context->seenGeneration != LoadGeneration(context) || !context->active)
        status = Reload(context);
    if (status != kOk) return status;
    if (ownerDied) context->wroteSinceLock = true;
    ++context->lockDepth;
    return kOk;
}

void PublishWrites(StorageContext* context) {
    if (context->sharedGeneration == nullptr || !context->wroteSinceLock) return;
    const uint32_t next = LoadGeneration(context) + 1;
    context->seenGeneration = next < 0xFFFFFFFF && next != 0 ? next : 2;
    std::atomic_ref<uint32_t>(*context->sharedGeneration).store(context->seenGeneration);
    if (context->grewSinceFlush && context->file != nullptr) context->file->Flush();
    context->grewSinceFlush = false;
    context->wroteSinceLock = false;
}

}  // namespace

Status GetContainerLock(StorageContext* context) {
    {
        const std::lock_guard guard(context->containerLock);
        if (OpenMutex(context) != kOk) return kInternal;
    }
    // Not under containerLock: the owner needs that to get on and let the mutex go.
    const platform::WaitResult result = WaitForMutex(context->lockMutex);
    const bool ownerDied = result == platform::WaitResult::Abandoned;
    if (result != platform::WaitResult::Granted && !ownerDied) return kInternal;
    const Status status = EnterLocked(context, ownerDied);
    if (status != kOk) platform::ReleaseNamedMutex(context->lockMutex);
    return status;
}

Status ReleaseContainerLock(StorageContext* context) {
    const std::lock_guard guard(context->containerLock);
    if (context->lockMutex == nullptr) return kInternal;
    PublishWrites(context);
    if (context->lockDepth > 0) --context->lockDepth;
    platform::ReleaseNamedMutex(context->lockMutex);
    return kOk;
}

void CloseSharedObjects(StorageContext* context) {
    if (context->lockDepth > 0) PublishWrites(context);
    for (; context->lockDepth > 0; --context->lockDepth)
        platform::ReleaseNamedMutex(context->lockMutex);
    if (context->sharedGeneration != nullptr) platform::UnmapSharedWord(context->sharedGeneration);
    if (context->sharedMapping != nullptr) platform::CloseSharedWord(context->sharedMapping);
    if (context->lockMutex != nullptr) platform::CloseNamedMutex(context->lockMutex);
    context->sharedGeneration = nullptr;
    context->sharedMapping = context->lockMutex = nullptr;
}

}  // namespace storage
