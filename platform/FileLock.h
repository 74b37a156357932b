// SPDX-License-Identifier: MIT
// The lock of one file: who holds it may change the file, and nobody else does.
#pragma once

#include <cstdint>

#include "platform/HeapObject.h"
#include "platform/PageFile.h"
#include "platform/Resources.h"

namespace platform {

// One opening's part in the lock of its file. The lock is the file's: it excludes the threads and
// openings of this process, other processes and other users alike, whatever each calls the file.
// It belongs to the thread that took it, nests on that thread, and falls to the next one who waits
// when the thread or its process ends without a release.
//
// A file opened for reading only takes part within this process alone: who may not write a file
// cannot keep others from it.
class FileLock : public HeapObject {
  public:
    // `file` stays the caller's and outlives the lock. `mutex`, a named mutex that goes with the
    // file where the system has them (else null), is taken with the lock and stays the caller's.
    FileLock(PageFile* file, Handle mutex);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Finds those who share the file; comes before all else, once. False when there is no memory.
    bool Join();

    enum class Result {
        Granted,
        OwnerDied,  // granted; the one who had it before ended without a release
        TimedOut,
        OwnWait,  // the calling thread has it through another opening and would wait for itself
        Failed,
    };
    // Waits up to `milliseconds`. `waiting`, unless null, is called once when the wait begins.
    Result Acquire(uint32_t milliseconds, void (*waiting)());
    // False when the calling thread does not have the lock through this opening.
    bool Release();
    // Gives the lock up, however often and by whichever thread it was taken.
    void ReleaseAll();

    // Has any thread, has the calling thread the lock through this opening? The first answer holds
    // as long as nobody releases it.
    bool IsHeld() const;
    bool IsMine() const;
    // How often the holder has taken it.
    uint32_t Depth() const;
    // Another number each time that somebody begins to take the lock, nested calls left out: who
    // waits for other processes counts as its holder already.
    uint64_t Turn() const;

    // What the holder does before another opening of his thread, told OwnWait, looks at the file.
    void BeforeLook(void (*settle)(void* what), void* what);
    void SettleForLook() const;

  private:
    struct Slot;  // what the openings of one file in this process share
    friend struct HeldLocks;

    Result AcquireSlot(uint32_t milliseconds, bool* nested, void (**waiting)());
    Result AcquireFile(uint32_t milliseconds, void (*waiting)());
    void FreeSlot();
    void LeaveSlot();

    PageFile* file_;
    Handle mutex_;
    void (*settle_)(void* what) = nullptr;
    void* settled_ = nullptr;
    Slot* slot_ = nullptr;  // set by Join, before other threads come
};

}  // namespace platform
