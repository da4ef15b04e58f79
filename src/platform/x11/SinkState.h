// The part of a sink that the event thread sees: what the server keeps for it, and what is under way. Private to x11/.
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

    // What the server has said by now.
    struct Answers {
        bool busy;       // it still reads the last put; the listeners are called when it is done
        bool refused;    // once: it could not attach the memory that it was given last
    };
    Answers TakeAnswers();
    void Attach(xcb_connection_t* xcb, SharedMemory& memory);
    void Detach(xcb_connection_t* xcb);    // the attached memory, if any; not while busy
    // The context to draw with, made when first asked for.
    xcb_gcontext_t Context(xcb_connection_t* xcb);
    // Puts these parts, at least one, of the attached image of `rowPixels` x `rows` at the same place of the window.
    void Put(xcb_connection_t* xcb, const WindowFacts& facts, uint16_t rowPixels, uint16_t rows,
             std::span<const Rect> parts);
    // The image did not go out as a whole: the listeners are told when there is room for more.
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

    // Held while requests are buffered, so that no answer overtakes the note of its request. Puts are sent without it.
    Mutex m_lock;
    uint32_t m_segment GUARDED_BY(m_lock) = 0;    // id, kept for the sink's life; 0 before the first
    bool m_attached GUARDED_BY(m_lock) = false;
    unsigned m_attachSequence GUARDED_BY(m_lock) = 0;
    bool m_refused GUARDED_BY(m_lock) = false;
    xcb_gcontext_t m_context GUARDED_BY(m_lock) = 0;
    bool m_busy GUARDED_BY(m_lock) = false;
    unsigned m_putSequence GUARDED_BY(m_lock) = 0;    // of the last part
    bool m_waitedFor GUARDED_BY(m_lock) = false;      // somebody was refused as busy
    bool m_awaitsRoom GUARDED_BY(m_lock) = false;
};

}    // namespace corvane
