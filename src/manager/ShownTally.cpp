#include "manager/ShownTally.h"

namespace corvane {

void ShownTally::Begin(int64_t arrivedAt) {
    if (m_open)
        m_counters.Add(m_otherwise);
    m_counters.Add(Counter::PicturesTaken);
    m_open = true;
    m_arrivedAt = arrivedAt;
    m_otherwise = Counter::PicturesNotPutNowhere;
}

void ShownTally::Note(Outcome outcome, const PresentSettings& settings, int64_t now) {
    if (!m_open)
        return;
    const auto notPut = [&](Counter counter, uint32_t cause) {
        m_otherwise = counter;
        m_counters.NoteCause(cause);
    };
    switch (outcome) {
    case Outcome::Put:
    case Outcome::HandedOver:
        m_open = false;
        m_counters.Add(outcome == Outcome::Put ? Counter::PicturesPut : Counter::PicturesHandedOver);
        if (m_arrivedAt != 0)
            m_counters.NoteAge(now - m_arrivedAt);
        return;
    case Outcome::Busy:
        return notPut(Counter::PicturesNotPutBusy, CORVANE_CAUSE_BUSY);
    case Outcome::NothingToDrawOn:
        return notPut(Counter::PicturesNotPutNowhere,
                      settings.window == nullptr ? CORVANE_CAUSE_NO_WINDOW : CORVANE_CAUSE_HIDDEN);
    case Outcome::NotDue:
        return notPut(Counter::PicturesNotPutOff, CORVANE_CAUSE_OFF);
    case Outcome::Failed:
        return notPut(Counter::PicturesNotPutNowhere, CORVANE_CAUSE_RENDERER_FAILED);
    }
}

}    // namespace corvane
