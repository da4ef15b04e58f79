// Refuses to join a thread that waits for the caller. Without this check a library thread that asks for its own end, or
// for the end of a thread that waits for it (directly or over any number of owners), would never return.
#pragma once

namespace corvane {

// Lives as long as the wait for a channel's threads. A caller that ends several channels makes all guards first, and
// keeps them until the last channel has ended: a refusal then comes before anything has changed.
class JoinGuard {
public:
    // `target`: the owner of the threads that are to be joined. A thread of the client is refused only inside a
    // callback of `target` and in the code of a plug-in, where every thread is refused.
    explicit JoinGuard(const void* target) noexcept;
    ~JoinGuard();
    JoinGuard(const JoinGuard&) = delete;
    JoinGuard& operator=(const JoinGuard&) = delete;

    bool Allowed() const { return m_allowed; }

private:
    static bool Reaches(const void* target, const void* waiter) noexcept;

    const void* const m_waiter;
    const void* const m_target;
    bool m_allowed = true;
    bool m_listed = false;
    // Guarded by the lock of the list.
    JoinGuard* m_next = nullptr;
    JoinGuard* m_nextReached = nullptr;    // list of the owners that the current walk has reached
    bool m_reached = false;
};

}    // namespace corvane
