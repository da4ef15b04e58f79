// The library's locks: thin types over the standard ones that carry Clang's thread-safety annotations, and a fair
// reader-writer lock.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#if defined(__clang__)
#define CORVANE_ANNOTATE(x) __attribute__((x))
#else
#define CORVANE_ANNOTATE(x)
#endif
#define CAPABILITY(name) CORVANE_ANNOTATE(capability(name))
#define SCOPED_CAPABILITY CORVANE_ANNOTATE(scoped_lockable)
#define GUARDED_BY(m) CORVANE_ANNOTATE(guarded_by(m))
#define REQUIRES(...) CORVANE_ANNOTATE(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) CORVANE_ANNOTATE(requires_shared_capability(__VA_ARGS__))
#define EXCLUDES(...) CORVANE_ANNOTATE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) CORVANE_ANNOTATE(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) CORVANE_ANNOTATE(acquire_shared_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) CORVANE_ANNOTATE(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) CORVANE_ANNOTATE(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) CORVANE_ANNOTATE(release_shared_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS CORVANE_ANNOTATE(no_thread_safety_analysis)

namespace corvane {

class CAPABILITY("mutex") Mutex {
public:
    void lock() ACQUIRE() { m_mutex.lock(); }
    void unlock() RELEASE() { m_mutex.unlock(); }

private:
    friend class MutexLock;
    std::mutex m_mutex;
};

// Holds a Mutex for a scope; may be dropped and taken again inside it.
class SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : m_lock(mutex.m_mutex) {}
    ~MutexLock() RELEASE() = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void Unlock() RELEASE() { m_lock.unlock(); }
    void Lock() ACQUIRE() { m_lock.lock(); }

private:
    friend class Condition;
    std::unique_lock<std::mutex> m_lock;
};

// A condition on a Mutex. Waits with a deadline run on the monotonic clock.
class Condition {
public:
    void NotifyOne() noexcept { m_condition.notify_one(); }
    void NotifyAll() noexcept { m_condition.notify_all(); }

    template <typename Predicate>
    void Wait(MutexLock& lock, Predicate predicate) NO_THREAD_SAFETY_ANALYSIS {
        m_condition.wait(lock.m_lock, predicate);
    }

    // One wait that may end early; false when `deadline` has passed.
    bool WaitOnce(MutexLock& lock, std::chrono::steady_clock::time_point deadline) NO_THREAD_SAFETY_ANALYSIS {
        return m_condition.wait_until(lock.m_lock, deadline) == std::cv_status::no_timeout;
    }
    void WaitOnce(MutexLock& lock) NO_THREAD_SAFETY_ANALYSIS { m_condition.wait(lock.m_lock); }

private:
    std::condition_variable m_condition;
};

// Reader-writer lock that starves nobody: threads that come after a waiting writer get their turn after it. Not
// recursive, in no mode.
class CAPABILITY("shared_mutex") SharedMutex {
public:
    void lock() ACQUIRE() { LockUntil(std::chrono::steady_clock::time_point::max()); }
    bool try_lock() TRY_ACQUIRE(true);
    // False when `deadline` passed first.
    bool try_lock_until(std::chrono::steady_clock::time_point deadline) TRY_ACQUIRE(true) {
        return LockUntil(deadline);
    }
    void unlock() RELEASE();

    void lock_shared() ACQUIRE_SHARED();
    void unlock_shared() RELEASE_SHARED();

private:
    bool LockUntil(std::chrono::steady_clock::time_point deadline);

    Mutex m_mutex;          // guards the counts only, never held while a thread waits for the lock
    Condition m_changed;    // a waiting thread may get the lock
    uint64_t m_readers GUARDED_BY(m_mutex) = 0;    // readers that hold the lock
    uint64_t m_waitingWriters GUARDED_BY(m_mutex) = 0;
    uint64_t m_readersToAdmit GUARDED_BY(m_mutex) = 0;    // readers that waited when a writer last left
    uint64_t m_waitingReaders GUARDED_BY(m_mutex) = 0;
    bool m_writer GUARDED_BY(m_mutex) = false;
};

class SCOPED_CAPABILITY SharedLock {
public:
    explicit SharedLock(SharedMutex& mutex) ACQUIRE_SHARED(mutex) : m_mutex(mutex) { m_mutex.lock_shared(); }
    ~SharedLock() RELEASE() { m_mutex.unlock_shared(); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

private:
    SharedMutex& m_mutex;
};

class SCOPED_CAPABILITY ExclusiveLock {
public:
    explicit ExclusiveLock(SharedMutex& mutex) ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~ExclusiveLock() RELEASE() { m_mutex.unlock(); }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;

private:
    SharedMutex& m_mutex;
};

// Takes a SharedMutex exclusively within a time; a time of 0 does not block. Ask it whether it holds the lock.
class TryExclusiveLock {
public:
    TryExclusiveLock(SharedMutex& mutex, std::chrono::nanoseconds limit) NO_THREAD_SAFETY_ANALYSIS
        : m_mutex(mutex),
          m_held(mutex.try_lock() ||
                 (limit.count() > 0 && mutex.try_lock_until(std::chrono::steady_clock::now() + limit))) {}
    ~TryExclusiveLock() NO_THREAD_SAFETY_ANALYSIS {
        if (m_held)
            m_mutex.unlock();
    }
    TryExclusiveLock(const TryExclusiveLock&) = delete;
    TryExclusiveLock& operator=(const TryExclusiveLock&) = delete;

    explicit operator bool() const { return m_held; }

private:
    SharedMutex& m_mutex;
    const bool m_held;
};

}    // namespace corvane
