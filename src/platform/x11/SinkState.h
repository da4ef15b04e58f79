// The part of a sink that the event thread uses: what the server keeps for the sink, and which requests are open.
// Private to x11/.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "base/Mutex.h"
#include "base/Rectangle.h"
#include "platform/x11/SharedMemory.h"
#include "platform/x11/WatchState.h"

namespace corvane {

class SinkState final : public EventClient {
public:
    explicit SinkState(std::shared_ptr<WatchState> watch) : m_watch(std::move(watch)) {}

    // ---- The render thread, after the watch was seen alive ----

    // What the server has answered so far.
    struct Answers {
        bool busy;       // the server still reads the last put; listeners are called when it has finished
        bool refused;    // reported once: the server could not attach the memory that it got last
    };
    Answers TakeAnswers();
    void Attach(xcb_connection_t* xcb, SharedMemory& memory);
    void Detach(xcb_connection_t* xcb);    // the attached memory, if any; not while busy
    // The graphics context; the first call makes it.
    xcb_gcontext_t Context(xcb_connection_t* xcb);
    // Puts these parts (at least one) of the attached image, which has `rowPixels` x `rows`, at the same place of the
    // window.
    void Put(xcb_connection_t* xcb, const WindowFacts& facts, uint16_t rowPixels, uint16_t rows,
             std::span<const Rect> parts);
    // The image was not sent as a whole: listeners are called when there is room for more.
    void AwaitRoom(Connection& connection);

    // ---- The event thread ----

    void OnJoin(Connection&) override {}
    void OnEvent(Connection& connection, const xcb_generic_event_t& event) override;
    void OnRoom() override;
    void OnLeave(Connection& connection) override;
    void OnLost() noexcept override;

private:
    void DetachLocked(xcb_connection_t* xcb) REQUIRES(m_lock);
    xcb_gcontext_t ContextLocked(xcb_connection_t* xcb) REQUIRES(m_lock);

    const std::shared_ptr<WatchState> m_watch;

    // Held while a request is buffered and noted, so that its answer is not handled before the note. Puts are sent
    // without it.
    Mutex m_lock;
    uint32_t m_segment GUARDED_BY(m_lock) = 0;    // id, the same for the life of the sink; 0 before the first
    bool m_attached GUARDED_BY(m_lock) = false;
    unsigned m_attachSequence GUARDED_BY(m_lock) = 0;
    bool m_refused GUARDED_BY(m_lock) = false;
    xcb_gcontext_t m_context GUARDED_BY(m_lock) = 0;
    bool m_busy GUARDED_BY(m_lock) = false;
    unsigned m_putSequence GUARDED_BY(m_lock) = 0;    // of the request for the last part
    bool m_waitedFor GUARDED_BY(m_lock) = false;      // a Prepare was refused as busy
    bool m_awaitsRoom GUARDED_BY(m_lock) = false;
};

}    // namespace corvane
