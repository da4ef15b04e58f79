// The place where pictures pass from the worker to the render thread. It holds one picture. Posting never waits; a
// newer picture replaces one that was not taken.
//
// Before the worker makes a picture it may wait until the picture before was taken. It does not wait while the render
// thread is inside a client's call, which may take any time, nor between Interrupt and the next Post.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "base/Mutex.h"
#include "platform/Clock.h"
#include "present/FinishedPicture.h"

namespace corvane {

class PictureMailbox {
public:
    // ---- The worker ----

    // Waits until the mailbox is empty, at most `limit` ns. False where it still holds a picture.
    bool AwaitTaken(int64_t limit);

    // Exchanges the contents for `picture`. True where that replaced a picture that was not taken; the caller destroys
    // it, with no lock held.
    [[nodiscard]] bool Post(FinishedPicture& picture);

    // Takes out a picture that holds a lent buffer, where there is one: its renderer needs it.
    std::optional<FinishedPicture> TakeBack();

    // ---- The render thread ----

    // Moves the picture into `kept`; false where there is none, and `kept` is unchanged then. A buffer that `kept` held
    // is free before the mailbox is empty, so that a worker that finds no picture to take back finds a free buffer. The
    // rest of `kept` is in `before`.
    [[nodiscard]] bool Take(FinishedPicture& kept, FinishedPicture& before);

    // Lives during each call into the client.
    class ClientCall {
    public:
        explicit ClientCall(PictureMailbox* mailbox) : m_mailbox(mailbox) { Set(true); }
        ~ClientCall() { Set(false); }
        ClientCall(const ClientCall&) = delete;
        ClientCall& operator=(const ClientCall&) = delete;

    private:
        void Set(bool inside) {
            if (m_mailbox != nullptr)
                m_mailbox->SetInClientCall(inside);
        }
        PictureMailbox* const m_mailbox;    // null: no worker waits
    };

    // ---- Any thread ----

    // Ends a wait in AwaitTaken, and prevents waits until the next Post.
    void Interrupt();

private:
    void SetInClientCall(bool inside);
    bool AwaitedLocked() const REQUIRES(m_mutex) { return m_full && !m_interrupted && !m_inClientCall; }

    mutable Mutex m_mutex;
    Condition m_changed;
    FinishedPicture m_picture GUARDED_BY(m_mutex);
    bool m_full GUARDED_BY(m_mutex) = false;
    bool m_interrupted GUARDED_BY(m_mutex) = false;
    // Both are sequentially consistent: either the thread that begins a call sees the waiting worker, or the worker
    // sees the call.
    std::atomic<bool> m_inClientCall{false};
    std::atomic<bool> m_awaited{false};    // the worker is in AwaitTaken
};

}    // namespace corvane
