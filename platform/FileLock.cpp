// SPDX-License-Identifier: MIT
#include "platform/FileLock.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <thread>

#include "platform/Clock.h"
#include "platform/LockWaitLimit.h"
#include "platform/ThreadAnnotations.h"

namespace platform {

namespace {

using Guarded = MutexGuard<Mutex>;

// Both outlive every thread and static object of the process.
Mutex& Guard() {
    static Mutex* guard = new Mutex;
    return *guard;
}
std::condition_variable& Freed() {
    static auto* freed = new std::condition_variable;
    return *freed;
}

}  // namespace

// The end of a thread gives up what it still has.
struct HeldLocks {
    uint32_t count = 0;
    ~HeldLocks();
};

// One who waits, on his own stack: first come, first served.
struct SlotWaiter {
    SlotWaiter* next = nullptr;
};

struct FileLock::Slot : HeapObject {
    static Slot* s_slots ZRFS_GUARDED_BY(Guard());

    FileIdentity identity ZRFS_GUARDED_BY(Guard());
    Slot* next ZRFS_GUARDED_BY(Guard()) = nullptr;
    uint32_t users ZRFS_GUARDED_BY(Guard()) = 0;
    // Changed under the guard; IsHeld, which every operation asks, looks without it.
    std::atomic<FileLock*> holder{nullptr};
    std::atomic<uint64_t> turn{0};
    HeldLocks* owner ZRFS_GUARDED_BY(Guard()) = nullptr;  // the thread that has it
    uint32_t depth ZRFS_GUARDED_BY(Guard()) = 0;
    bool ownerDied ZRFS_GUARDED_BY(Guard()) = false;
    SlotWaiter* waiters ZRFS_GUARDED_BY(Guard()) = nullptr;

    void Join(SlotWaiter* waiter) ZRFS_REQUIRES(Guard()) {
        SlotWaiter** link = &waiters;
        while (*link != nullptr) link = &(*link)->next;
        *link = waiter;
    }
    void Leave(const SlotWaiter* waiter) ZRFS_REQUIRES(Guard()) {
        SlotWaiter** link = &waiters;
        while (*link != waiter) link = &(*link)->next;
        *link = waiter->next;
    }
};

namespace {

using Clock = std::chrono::steady_clock;

thread_local HeldLocks t_held;

uint32_t LeftUntil(Clock::time_point end) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left > 0 ? static_cast<uint32_t>(left) : 0;
}

// Short waits first: most locks are held for the time of a few writes.
void Pause(uint32_t attempt) {
    if (attempt < 8) {
        std::this_thread::yield();
        return;
    }
    const uint32_t step = attempt - 8 < 5 ? attempt - 8 : 5;
    std::this_thread::sleep_for(std::chrono::microseconds(50u << step));
}

}  // namespace

FileLock::Slot* FileLock::Slot::s_slots = nullptr;

HeldLocks::~HeldLocks() {
    if (count == 0) return;
    // At the end of the process nobody may be left who would let the guard go.
    std::unique_lock guard(Guard(), std::try_to_lock);
    for (int i = 0; i < 100 && !guard.owns_lock(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        guard.try_lock();
    }
    if (!guard.owns_lock()) return;
    for (FileLock::Slot* slot = FileLock::Slot::s_slots; slot != nullptr; slot = slot->next) {
        if (slot->owner != this) continue;
        // A named mutex is given up by the system itself.
        if (slot->holder.load()->file_->IsWritable()) slot->holder.load()->file_->DropMark();
        slot->ownerDied = true;
        slot->owner = nullptr;
        slot->holder = nullptr;
        slot->depth = 0;
    }
    Freed().notify_all();
}

FileLock::FileLock(PageFile* file, Handle mutex) : file_(file), mutex_(mutex) {}

FileLock::~FileLock() {
    ReleaseAll();
    if (slot_ != nullptr) LeaveSlot();
}

void FileLock::LeaveSlot() {
    const Guarded guard(Guard());
    if (--slot_->users != 0) return;
    Slot** link = &Slot::s_slots;
    while (*link != slot_) link = &(*link)->next;
    *link = slot_->next;
    delete slot_;
}

bool FileLock::Join() {
    const Guarded guard(Guard());
    FileIdentity identity;
    if (file_->Identity(&identity) != kErrorSuccess) return false;
    Slot* slot = Slot::s_slots;
    while (slot != nullptr && !(slot->identity == identity)) slot = slot->next;
    if (slot == nullptr) {
        slot = new Slot;
        if (slot == nullptr) return false;
        slot->identity = identity;
        slot->next = Slot::s_slots;
        Slot::s_slots = slot;
    }
    ++slot->users;
    slot_ = slot;
    return true;
}

FileLock::Result FileLock::AcquireSlot(uint32_t milliseconds, bool* nested, void (**waiting)()) {
    MutexWait guard(Guard());
    if (slot_ == nullptr) return Result::Failed;
    *nested = slot_->owner == &t_held && slot_->holder == this;
    if (*nested) {
        ++slot_->depth;
        return Result::Granted;
    }
    if (slot_->owner == &t_held) return Result::OwnWait;
    if (slot_->owner != nullptr && *waiting != nullptr) {
        guard.Unlock();
        (*waiting)();
        *waiting = nullptr;
        guard.Lock();
    }
    SlotWaiter self;
    slot_->Join(&self);
    const auto isTurn = [&]() ZRFS_REQUIRES(Guard()) {
        return slot_->owner == nullptr && slot_->waiters == &self;
    };
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    bool free = isTurn();
    for (uint32_t left = milliseconds; !free && left != 0 && !IsLockWaitToEnd();
         left = LeftUntil(end))
        free =
            Freed().wait_for(guard.native, std::chrono::milliseconds(LockWaitStep(left)), isTurn);
    slot_->Leave(&self);
    if (!free) {
        if (slot_->waiters != nullptr) Freed().notify_all();  // the next one may be first now
        return Result::TimedOut;
    }
    slot_->owner = &t_held;
    ++slot_->turn;
    slot_->holder = this;
    slot_->depth = 1;
    ++t_held.count;
    const bool died = slot_->ownerDied;
    slot_->ownerDied = false;
    return died ? Result::OwnerDied : Result::Granted;
}

FileLock::Result FileLock::AcquireFile(uint32_t milliseconds, void (*waiting)()) {
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    Result result = Result::Granted;
    if (IsValid(mutex_)) {
        WaitResult wait = WaitForMutex(mutex_, 0);
        if (wait == WaitResult::TimedOut) {
            if (waiting != nullptr) waiting();
            waiting = nullptr;
        }
        for (uint32_t left = milliseconds;
             wait == WaitResult::TimedOut && left != 0 && !IsLockWaitToEnd(); left = LeftUntil(end))
            wait = WaitForMutex(mutex_, LockWaitStep(left));
        if (wait == WaitResult::TimedOut) return Result::TimedOut;
        if (wait == WaitResult::Failed) return Result::Failed;
        if (wait == WaitResult::Abandoned) result = Result::OwnerDied;
    }
    for (uint32_t attempt = 0; file_->IsWritable(); ++attempt) {
        bool taken = false;
        const bool failed = file_->TakeMark(&taken) != kErrorSuccess;
        if (taken) break;
        if (failed || LeftUntil(end) == 0 || IsLockWaitToEnd()) {
            file_->DropMark();  // a place in the row of those who wait
            if (IsValid(mutex_)) ReleaseNamedMutex(mutex_);
            return failed ? Result::Failed : Result::TimedOut;
        }
        if (waiting != nullptr) waiting();
        waiting = nullptr;
        Pause(attempt);
    }
    return result;
}

// The calling thread's hold is over.
void FileLock::FreeSlot() {
    const Guarded guard(Guard());
    if (slot_->owner == &t_held) --t_held.count;
    slot_->owner = nullptr;
    slot_->holder = nullptr;
    slot_->depth = 0;
    if (slot_->waiters != nullptr) Freed().notify_all();
}

FileLock::Result FileLock::Acquire(uint32_t milliseconds, void (*waiting)()) {
    milliseconds = LockWaitOf(milliseconds);
    if (milliseconds == 0) waiting = nullptr;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(milliseconds);
    bool nested = false;
    const Result slot = AcquireSlot(milliseconds, &nested, &waiting);
    if (nested || (slot != Result::Granted && slot != Result::OwnerDied)) return slot;
    const Result file = AcquireFile(LeftUntil(end), waiting);
    if (file == Result::Granted) return slot;
    if (file != Result::OwnerDied) FreeSlot();
    return file;
}

bool FileLock::Release() {
    {
        const Guarded guard(Guard());
        if (slot_ == nullptr || slot_->holder != this || slot_->owner != &t_held) return false;
        if (--slot_->depth != 0) return true;
    }
    if (file_->IsWritable()) file_->DropMark();
    if (IsValid(mutex_)) ReleaseNamedMutex(mutex_);
    FreeSlot();
    return true;
}

void FileLock::ReleaseAll() {
    {
        const Guarded guard(Guard());
        if (slot_ == nullptr || slot_->holder != this) return;
    }
    if (file_->IsWritable()) file_->DropMark();
    if (IsValid(mutex_)) ReleaseNamedMutex(mutex_);
    FreeSlot();
}

bool FileLock::IsHeld() const {
    return slot_ != nullptr && slot_->holder.load(std::memory_order_acquire) == this;
}

bool FileLock::IsMine() const {
    const Guarded guard(Guard());
    return slot_ != nullptr && slot_->holder == this && slot_->owner == &t_held;
}

uint32_t FileLock::Depth() const {
    const Guarded guard(Guard());
    return slot_ != nullptr && slot_->holder == this ? slot_->depth : 0;
}

void FileLock::BeforeLook(void (*settle)(void* what), void* what) {
    settle_ = settle;
    settled_ = what;
}

void FileLock::SettleForLook() const {
    const FileLock* holder = nullptr;
    {
        const Guarded guard(Guard());
        if (slot_ != nullptr && slot_->owner == &t_held) holder = slot_->holder;
    }
    if (holder != nullptr && holder->settle_ != nullptr) holder->settle_(holder->settled_);
}

uint64_t FileLock::Turn() const {
    return slot_ != nullptr ? slot_->turn.load() : 0;
}

}  // namespace platform
