#include "platform/Resources.h"

#include <cerrno>
#include <ctime>

#include "platform/ErrnoLinux.h"
#include "platform/SharedPageLinux.h"

namespace platform {
namespace {

constexpr uint32_t kWaitForEver = 0xFFFFFFFF;

Handle Join(SharedKind kind, const WChar* name, bool create) {
    SharedObject* object = nullptr;
    const Error error = Leave(JoinShared(kind, name, create, &object));
    return error == kErrorSuccess ? object : nullptr;
}

int LockWithin(pthread_mutex_t* mutex, uint32_t milliseconds) {
    if (milliseconds == 0) {
        const int result = pthread_mutex_trylock(mutex);
        return result == EBUSY ? ETIMEDOUT : result;
    }
    if (milliseconds == kWaitForEver) return pthread_mutex_lock(mutex);
    timespec until{};
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += milliseconds / 1000;
    until.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000;
    if (until.tv_nsec >= 1000000000) {
        until.tv_nsec -= 1000000000;
        ++until.tv_sec;
    }
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &until);
}

void NoteOwner(SharedObject* object, uint32_t depth) {
    object->owner = ThisThread();
    object->depth = depth;
}

}  // namespace

Handle CreateNamedMutex(const WChar* name, const void* /*attributes*/) noexcept {
    return Join(SharedKind::Mutex, name, true);
}

WaitResult WaitForMutex(Handle mutex, uint32_t milliseconds) noexcept {
    if (!IsValid(mutex)) {
        Leave(kErrorInvalidHandle);
        return WaitResult::Failed;
    }
    auto* object = static_cast<SharedObject*>(mutex);
    const int result = LockWithin(&object->page->mutex, milliseconds);
    switch (result) {
        case 0:
            NoteOwner(object, object->owner == ThisThread() ? object->depth + 1 : 1);
            return WaitResult::Granted;
        case EOWNERDEAD:
            pthread_mutex_consistent(&object->page->mutex);
            NoteOwner(object, 1);
            return WaitResult::Abandoned;
        case ETIMEDOUT:
            return WaitResult::TimedOut;
        default:
            Leave(FromErrno(result));
            return WaitResult::Failed;
    }
}

bool ReleaseNamedMutex(Handle mutex) noexcept {
    auto* object = static_cast<SharedObject*>(mutex);
    if (!IsValid(mutex) || object->owner != ThisThread()) {
        Leave(IsValid(mutex) ? kErrorNotOwner : kErrorInvalidHandle);
        return false;
    }
    // Noted before the release: from then on another thread may be the owner.
    if (--object->depth == 0) object->owner = nullptr;
    return pthread_mutex_unlock(&object->page->mutex) == 0;
}

void CloseNamedMutex(Handle mutex) noexcept {
    if (IsValid(mutex)) DropShared(static_cast<SharedObject*>(mutex));
}

Handle OpenSharedWord(const WChar* name) noexcept {
    return Join(SharedKind::Word, name, false);
}

Handle CreateSharedWord(const WChar* name, const void* /*attributes*/) noexcept {
    return Join(SharedKind::Word, name, true);
}

uint32_t* MapSharedWord(Handle word) noexcept {
    if (!IsValid(word)) {
        Leave(kErrorInvalidHandle);
        return nullptr;
    }
    auto* object = static_cast<SharedObject*>(word);
    AddSharedUser(object);
    return &object->page->word;
}

void UnmapSharedWord(uint32_t* view) noexcept {
    SharedObject* object = view != nullptr ? FindShared(view) : nullptr;
    if (object != nullptr) DropShared(object);
}

void CloseSharedWord(Handle word) noexcept {
    if (IsValid(word)) DropShared(static_cast<SharedObject*>(word));
}

}  // namespace platform
