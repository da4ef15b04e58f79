#include "platform/x11/SinkState.h"

#include <xcb/shm.h>

#include <utility>

namespace corvane {

SinkState::Answers SinkState::TakeAnswers() {
    MutexLock lock(m_lock);
    m_waitedFor |= m_busy;
    return {m_busy, !m_busy && std::exchange(m_refused, false)};
}

void SinkState::Attach(xcb_connection_t* xcb, SharedMemory& memory) {
    MutexLock lock(m_lock);
    DetachLocked(xcb);
    if (m_segment == 0)
        m_segment = xcb_generate_id(xcb);
    m_attachSequence = memory.Attach(xcb, m_segment);
    m_attached = true;
    m_refused = false;
}

void SinkState::Detach(xcb_connection_t* xcb) {
    MutexLock lock(m_lock);
    DetachLocked(xcb);
}

void SinkState::DetachLocked(xcb_connection_t* xcb) {
    if (std::exchange(m_attached, false))
        xcb_shm_detach(xcb, m_segment);
}

xcb_gcontext_t SinkState::Context(xcb_connection_t* xcb) {
    MutexLock lock(m_lock);
    return ContextLocked(xcb);
}

xcb_gcontext_t SinkState::ContextLocked(xcb_connection_t* xcb) {
    if (m_context == 0) {
        m_context = xcb_generate_id(xcb);
        const uint32_t noExposures = 0;
        xcb_create_gc(xcb, m_context, m_watch->Window(), XCB_GC_GRAPHICS_EXPOSURES, &noExposures);
    }
    return m_context;
}

void SinkState::Put(xcb_connection_t* xcb, const WindowFacts& facts, uint16_t rowPixels, uint16_t rows,
                    std::span<const Rect> parts) {
    MutexLock lock(m_lock);
    const xcb_gcontext_t context = ContextLocked(xcb);
    for (size_t i = 0; i < parts.size(); ++i) {
        const Rect& part = parts[i];
        const auto left = static_cast<uint16_t>(part.left);
        const auto top = static_cast<uint16_t>(part.top);
        const bool last = i + 1 == parts.size();
        m_putSequence = xcb_shm_put_image(xcb, m_watch->Window(), context, rowPixels, rows, left, top,
                                          static_cast<uint16_t>(part.Width()), static_cast<uint16_t>(part.Height()),
                                          static_cast<int16_t>(left), static_cast<int16_t>(top), facts.depth,
                                          XCB_IMAGE_FORMAT_Z_PIXMAP, last, m_segment, 0)
                            .sequence;
    }
    m_busy = true;
    m_waitedFor = false;
}

void SinkState::AwaitRoom(Connection& connection) {
    {
        MutexLock lock(m_lock);
        m_awaitsRoom = true;
    }
    connection.Socket().AwaitRoom();
}

void SinkState::OnRoom() {
    MutexLock lock(m_lock);
    if (std::exchange(m_awaitsRoom, false))
        m_watch->TellSinkRoom();
}

// A put ends with its completion, or with an error of its last part: the window was destroyed, or the memory is not
// attached.
void SinkState::OnEvent(Connection& connection, const xcb_generic_event_t& event) {
    const uint8_t code = event.response_type & 0x7F;
    MutexLock lock(m_lock);
    bool done = false;
    bool refused = false;
    if (code == 0) {
        done = m_busy && event.full_sequence == m_putSequence;
        refused = m_attached && event.full_sequence == m_attachSequence;
    } else if (connection.Server().shmCompletion != 0 && code == connection.Server().shmCompletion) {
        done = m_busy && reinterpret_cast<const xcb_shm_completion_event_t&>(event).shmseg == m_segment;
    }
    if (refused) {
        m_attached = false;
        m_refused = true;
    }
    if (done)
        m_busy = false;
    if (refused || (done && std::exchange(m_waitedFor, false)))
        m_watch->TellSinkReady();
}

void SinkState::OnLeave(Connection& connection) {
    MutexLock lock(m_lock);
    DetachLocked(connection.Xcb());
    if (m_context != 0)
        xcb_free_gc(connection.Xcb(), std::exchange(m_context, 0));
}

void SinkState::OnLost() noexcept {
    MutexLock lock(m_lock);
    m_busy = false;
}

}    // namespace corvane
