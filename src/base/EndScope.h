// Who may wait for the end of whose threads. A library thread that asks to join itself, or a thread that (over any
// number of steps) waits for it, is refused instead of hanging for ever.
#pragma once

namespace corvane {

// Lives as long as the wait for a channel's threads. A caller that ends several channels makes all scopes first, and keeps
// them until the last channel has ended. It can then be refused only before it has changed anything.
class EndScope {
public:
    // `target`: the owner of the threads to be joined. Threads of the client are always allowed.
    explicit EndScope(const void* target) noexcept;
    ~EndScope();
    EndScope(const EndScope&) = delete;
    EndScope& operator=(const EndScope&) = delete;

    bool Allowed() const { return m_allowed; }

private:
    static bool Reaches(const void* target, const void* waiter) noexcept;

    const void* const m_waiter;
    const void* const m_target;
    bool m_allowed = true;
    bool m_listed = false;
    // Guarded by the lock of the list.
    EndScope* m_next = nullptr;
    EndScope* m_nextReached = nullptr;    // of the walk in progress
    bool m_reached = false;
};

}    // namespace corvane
