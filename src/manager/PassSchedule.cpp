#include "manager/PassSchedule.h"

#include <utility>

namespace corvane {

void PassSchedule::OnPosted() {
    m_redraw |= m_state != RenderState::Playing;    // the picture of the state covers margins and text
    m_state = RenderState::Playing;
    m_posted = true;
}

void PassSchedule::OnState(RenderState state) {
    if (state == RenderState::Waiting && m_state != state)
        m_waitCounter = 0;
    m_state = state;
    m_again = true;
    m_forget = true;
}

void PassSchedule::OnRedraw() {
    m_redraw |= m_state == RenderState::Playing;
    m_again = true;
}

void PassSchedule::OnSinkReady() {
    m_again = true;
}

void PassSchedule::OnInformation() {
    m_information = true;
    m_unsent = true;
}

bool PassSchedule::TakeUnsent() {
    return std::exchange(m_unsent, false);
}

bool PassSchedule::IsDue(int64_t now) const {
    return m_posted || m_again || m_tidy || m_room || m_end || now >= m_tickAt;
}

PassSchedule::Due PassSchedule::Take(int64_t now) {
    const bool tick = now >= m_tickAt;
    const bool waiting = m_state == RenderState::Waiting;
    const bool playing = m_state == RenderState::Playing;
    const bool draw = m_posted || m_again;
    Due due{.end = m_end, .tidy = m_tidy, .room = m_room, .draw = draw, .forget = m_forget, .state = m_state};
    due.draw |= !playing && (m_tidy || (tick && waiting));
    if (draw || m_tidy || tick)
        m_tickAt = waiting ? now + kTick : kNever;
    m_tidy = m_room = m_forget = false;
    if (!playing)
        m_posted = m_again = false;    // while Playing, BeginPass clears them
    return due;
}

void PassSchedule::SetSpare(bool spare, int64_t now) {
    if (spare && m_tickAt == kNever)
        m_tickAt = now + kTick;
}

std::optional<PassFlags> PassSchedule::BeginPass(bool fresh, bool kept, bool always, bool reports, bool hasText) {
    m_posted = false;
    const bool again = std::exchange(m_again, false);
    if (!fresh && !(again && kept))
        return std::nullopt;
    PassFlags flags{.redraw = std::exchange(m_redraw, always), .fresh = m_information, .textFresh = false};
    if (!m_unsent && reports)
        m_textFresh |= std::exchange(m_information, false);
    m_textFresh &= hasText;
    flags.textFresh = m_textFresh;
    return flags;
}

void PassSchedule::EndPass(const Pass& pass) {
    m_redraw |= pass.flags.redraw && !pass.redrawn;
    m_textFresh &= !pass.textTold;
}

uint32_t PassSchedule::TakeWaitCounter() {
    return std::exchange(m_waitCounter, (m_waitCounter + 1) % 10);
}

}    // namespace corvane
