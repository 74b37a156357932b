// A page of memory that processes share by name, gone with its last user; it carries the named
// mutexes and the shared words. For the files of platform/ only.
#pragma once

#include <pthread.h>
#include <atomic>
#include <cstdint>

#include "platform/Errors.h"
#include "platform/HeapObject.h"
#include "platform/Text.h"

namespace platform {

// What the processes share.
struct SharedPage {
    pthread_mutex_t mutex;
    uint32_t word;
};

// This process's one mapping of a page. A robust mutex whose page is unmapped by one user while
// a thread owns it through another would stay locked for ever, so all users in a process share
// the mapping.
struct SharedObject : HeapObject {
    SharedObject* next = nullptr;
    uint32_t users = 0;
    int descriptor = -1;
    SharedPage* page = nullptr;
    // The thread of this process that owns the mutex, as ThisThread() tells it, and how often.
    std::atomic<const void*> owner{nullptr};
    uint32_t depth = 0;
    char file[192];
};

enum class SharedKind : char { Mutex = 'm', Word = 'w' };

// Something that tells the calling thread from the other threads of the process.
const void* ThisThread() noexcept;

// Joins the page of that name, or makes it, all zero but for a ready mutex, when nobody has it;
// without `create` that is kErrorFileNotFound. Each successful call is matched by DropShared.
Error JoinShared(SharedKind kind, const WChar* name, bool create, SharedObject** object) noexcept;
// One more user of a page that the caller has joined.
void AddSharedUser(SharedObject* object) noexcept;
// The last user's drop releases a mutex that the calling thread still owns and unmaps the page.
// A page whose mutex another thread owns stays mapped until it is joined and dropped again.
void DropShared(SharedObject* object) noexcept;
// The object whose word is at `word`, or null.
SharedObject* FindShared(const uint32_t* word) noexcept;

}  // namespace platform
