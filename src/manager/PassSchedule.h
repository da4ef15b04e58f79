// When the render thread has what to do: events in, what is due out. It has no lock, no clock and no thread; the
// manager calls it under its lock.
//
//   state       left by                                  render thread
//   Stopped     a picture, Stop(waiting), audio          logo, else background and text
//   Waiting     a picture, reset, audio                  background and text, every 500 ms
//   Playing     Stop(waiting), reset, audio              presents once for each wake-up
//   AudioOnly   a picture, Stop(waiting), reset          background and text; notifies an off-screen renderer instead
//   TimeOnly    a picture, Stop(waiting), reset          background and text
//   Idle        a picture, Stop(waiting), reset          nothing
#pragma once

#include <cstdint>
#include <optional>

#include "present/Pass.h"

namespace corvane {

enum class RenderState : uint32_t { Idle = 0, AudioOnly = 1, Stopped = 2, Waiting = 3, TimeOnly = 4, Playing = 5 };

class PassSchedule {
public:
    static constexpr int64_t kTick =
        500'000'000;    // ns: the step of the waiting picture, and of looks at spare memory
    static constexpr int64_t kNever = INT64_MAX;

    // ---- Events ----

    void OnPosted();                    // a picture lies in the mailbox
    void OnState(RenderState state);    // by any other way than a picture
    void OnRedraw();                    // something about the window changed: margins and text too
    void OnSinkReady();                 // what a sink could not take can be drawn now; margins and text need nothing
    void OnSinkRoom() { m_room = true; }
    void OnGivenUp() { m_tidy = true; }    // a renderer, or a window
    void OnInformation();                  // size and state must be reported
    void OnEnd() { m_end = true; }

    // ---- The worker ----

    // Whether size and state must be reported with this frame.
    bool TakeUnsent();

    // ---- The render thread ----

    struct Due {
        bool end = false;
        bool tidy = false;    // renderers and windows that were given up
        bool room = false;    // sinks may send more
        bool draw = false;    // a pass, or the picture of the state
        RenderState state = RenderState::Idle;
    };
    bool IsDue(int64_t now) const;
    int64_t WakeAt() const { return m_tickAt; }    // kNever: only an event wakes
    Due Take(int64_t now);
    // Memory is left that goes back after a while: a look is due in a tick.
    void SetSpare(bool spare, int64_t now);

    // A pass begins, with all that has happened until now: what it is asked for. No value where it has nothing to show,
    // since the picture that was posted is not there any more, and none is to be drawn again. `fresh`: it has a picture
    // that no pass has shown. `always`: the next pass redraws. `reports`: what
    // the pass presents is seen; `hasText`: there is a text callback.
    std::optional<PassFlags> BeginPass(bool fresh, bool always, bool reports, bool hasText);
    // What the pass could not do counts for the next one.
    void EndPass(const Pass& pass);

    RenderState State() const { return m_state; }
    uint32_t TakeWaitCounter();    // from 0 to 9 and again, from 0 with each wait

private:
    bool m_posted = false;
    bool m_again = true;    // what is shown must be drawn again, or for the first time
    bool m_tidy = false;
    bool m_room = false;
    bool m_end = false;
    RenderState m_state = RenderState::Stopped;
    uint32_t m_waitCounter = 0;
    int64_t m_tickAt = kNever;
    bool m_redraw = false;
    bool m_information = false;    // no pass has reported it
    bool m_unsent = false;         // nor has a stream-info code
    bool m_textFresh = false;      // nor has a text
};

}    // namespace corvane
