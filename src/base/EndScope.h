// Who may wait for the end of whose threads. A library thread that asks to join itself, or a thread that (over any
// number of steps) waits for it, is refused instead of hanging for ever.
#pragma once

namespace corvane {

// Stands on the stack around every join of a channel's threads.
class EndScope {
public:
    // `target`: the owner of the threads to be joined. Threads of the client are always allowed.
    explicit EndScope(const void* target) noexcept;
    ~EndScope();
    EndScope(const EndScope&) = delete;
    EndScope& operator=(const EndScope&) = delete;

    bool Allowed() const { return m_allowed; }

private:
    const void* m_waiter;
    const void* m_target;
    EndScope* m_next = nullptr;
    bool m_allowed = true;
    bool m_listed = false;
};

}    // namespace corvane
