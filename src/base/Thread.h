// A thread of the library: named, joined by its owner, never detached.
#pragma once

#include <functional>
#include <thread>

namespace corvane {

class Thread {
public:
    Thread() = default;
    // Starts `body`. Raises std::system_error when no thread can be made. `name` has at most 15 characters and static
    // storage. `owner` is the handle that the thread works for. The thread blocks all signals but those of its own
    // faults, so that the host's handlers run on the host's threads.
    Thread(const char* name, const void* owner, std::function<void()> body);
    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&&) noexcept = default;

    void Join() { m_thread.join(); }
    bool Running() const { return m_thread.joinable(); }

    // The handle that the calling thread works for; null on a client's thread outside all callbacks. Where it is not
    // null inside an export, the export was called from a client's callback.
    static const void* CurrentOwner() noexcept;
    // The same for library threads only: null on a client's thread, also inside a callback (see below).
    static const void* ThreadOwner() noexcept;
    // Whether the calling thread is inside a callback of `owner`.
    static bool WorksFor(const void* owner) noexcept;
    // The owner of a ScopedOwner around a call into the code of a plug-in. Locks may be held there that a wait or a
    // still would need: the decoder's, and the loader's while a library starts or ends.
    static const void* PluginCode() noexcept;
    static bool InPlugin() noexcept { return WorksFor(PluginCode()); }

    // Lives around a callback that runs on the caller's thread: until its end the thread works for `owner` too.
    class ScopedOwner {
    public:
        explicit ScopedOwner(const void* owner) noexcept;
        ~ScopedOwner();
        ScopedOwner(const ScopedOwner&) = delete;
        ScopedOwner& operator=(const ScopedOwner&) = delete;

    private:
        friend class Thread;
        const void* const m_owner;
        const ScopedOwner* const m_outer;
    };

    // Lives around a callback on a thread that another library made, like that of a sound device, and that works for a
    // channel all the same: until its end the thread counts as one of `owner`'s.
    class AdoptedThread {
    public:
        explicit AdoptedThread(const void* owner) noexcept;
        ~AdoptedThread();
        AdoptedThread(const AdoptedThread&) = delete;
        AdoptedThread& operator=(const AdoptedThread&) = delete;

    private:
        const void* const m_before;
    };

private:
    std::thread m_thread;
};

}    // namespace corvane
