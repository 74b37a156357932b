// SPDX-License-Identifier: MIT
// Which lock guards what, in a form that clang's thread-safety analysis checks
// (scripts/thread-analysis), and locks that it knows. Other compilers see plain ones. It does not
// look into constructors and destructors.
#pragma once

#include <mutex>

#if defined(__clang__)
#define ZRFS_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZRFS_THREAD_ATTRIBUTE(x)
#endif

// On a class: it is a lock, or holds one for as long as the object lives.
#define ZRFS_CAPABILITY(name) ZRFS_THREAD_ATTRIBUTE(capability(name))
#define ZRFS_SCOPED_CAPABILITY ZRFS_THREAD_ATTRIBUTE(scoped_lockable)
// On a variable: only who has the lock reads or writes it.
#define ZRFS_GUARDED_BY(lock) ZRFS_THREAD_ATTRIBUTE(guarded_by(lock))
// On a function: the caller has the lock; has it not; gets it; gives it up.
#define ZRFS_REQUIRES(...) ZRFS_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZRFS_EXCLUDES(...) ZRFS_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ZRFS_ACQUIRE(...) ZRFS_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZRFS_TRY_ACQUIRE(...) ZRFS_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define ZRFS_RELEASE(...) ZRFS_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
// On a function: take it from here on that the caller has the lock.
#define ZRFS_ASSERT_CAPABILITY(...) ZRFS_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
// On a function: its body is not looked into; its callers still are.
#define ZRFS_NO_ANALYSIS ZRFS_THREAD_ATTRIBUTE(no_thread_safety_analysis)

namespace platform {

template <class StdMutex>
class ZRFS_CAPABILITY("mutex") BasicMutex {
  public:
    void lock() ZRFS_ACQUIRE() { mutex_.lock(); }
    bool try_lock() ZRFS_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
    void unlock() ZRFS_RELEASE() { mutex_.unlock(); }

    // These two do nothing but tell the analysis what it cannot see. Where they stand, the reader
    // is to find why it is so.
    //
    // The caller has the lock.
    void AssertHeld() const ZRFS_ASSERT_CAPABILITY(this) {}
    // Nobody but the caller knows, yet or any more, of the object that the lock is in.
    void AssertAlone() const ZRFS_ASSERT_CAPABILITY(this) {}

    // For a condition variable.
    StdMutex& Native() { return mutex_; }

  private:
    StdMutex mutex_;
};

using Mutex = BasicMutex<std::mutex>;

// std::lock_guard.
template <class AnyMutex>
class ZRFS_SCOPED_CAPABILITY MutexGuard {
  public:
    explicit MutexGuard(AnyMutex& mutex) ZRFS_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexGuard() ZRFS_RELEASE() { mutex_.unlock(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

  private:
    AnyMutex& mutex_;
};

// The same, to be waited with on a condition variable or left for a while.
class ZRFS_SCOPED_CAPABILITY MutexWait {
  public:
    explicit MutexWait(Mutex& mutex) ZRFS_ACQUIRE(mutex) : native(mutex.Native()) {}
    ~MutexWait() ZRFS_RELEASE() {}
    MutexWait(const MutexWait&) = delete;
    MutexWait& operator=(const MutexWait&) = delete;

    void Unlock() ZRFS_RELEASE() { native.unlock(); }
    void Lock() ZRFS_ACQUIRE() { native.lock(); }

    std::unique_lock<std::mutex> native;
};

}  // namespace platform
