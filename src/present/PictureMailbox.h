// The one place where pictures pass from the worker to the render thread. It holds one picture; posting never waits,
// and a newer picture takes the place of one that nobody took.
//
// Before it makes a picture the worker may wait until the one before was taken. Nobody waits while the render thread is
// inside a client's call, which takes as long as the client likes, nor after Interrupt, until the next Post.
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

    // Waits until the mailbox is empty, at most `limit` ns. False where a picture still lies here.
    bool AwaitTaken(int64_t limit);

    // Exchanges what lies here for `picture`. True when it took the place of a picture that nobody took; the caller
    // destroys that, with no lock held.
    [[nodiscard]] bool Post(FinishedPicture& picture);

    // Takes out a picture that holds a lent buffer, where there is one: its renderer needs it.
    std::optional<FinishedPicture> TakeBack();

    // ---- The render thread ----

    // Moves the picture into `kept`; false where there is none, and `kept` is unchanged then. A buffer that `kept` held
    // is free before the mailbox is empty, so that a worker that finds no picture to take back finds a free buffer.
    // What else was in `kept` is in `before`.
    [[nodiscard]] bool Take(FinishedPicture& kept, FinishedPicture& before);

    // Around each call into the client.
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
        PictureMailbox* const m_mailbox;    // null: nobody waits
    };

    // ---- Any thread ----

    // Ends a wait in AwaitTaken, and lets nobody wait before the next Post.
    void Interrupt();

private:
    void SetInClientCall(bool inside);
    bool AwaitedLocked() const REQUIRES(m_mutex) { return m_full && !m_interrupted && !m_inClientCall; }

    mutable Mutex m_mutex;
    Condition m_changed;
    FinishedPicture m_picture GUARDED_BY(m_mutex);
    bool m_full GUARDED_BY(m_mutex) = false;
    bool m_interrupted GUARDED_BY(m_mutex) = false;
    // Both sequentially consistent: who begins a call sees the worker that waits, or that worker sees the call.
    std::atomic<bool> m_inClientCall{false};
    std::atomic<bool> m_awaited{false};    // the worker is in AwaitTaken
};

}    // namespace corvane
