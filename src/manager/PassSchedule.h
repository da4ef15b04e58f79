// The state of a render thread: events come in, and it says what is due and when. It has no lock, no clock and no
// thread; the manager calls it under its lock.
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
        500'000'000;    // ns between two pictures of Waiting, and between two looks at spare memory
    static constexpr int64_t kNever = INT64_MAX;

    // ---- Events ----

    void OnPosted();                    // a picture lies in the mailbox
    void OnState(RenderState state);    // any change of state but that of a picture
    void OnRedraw();                    // the window changed: margins and text must be drawn too
    void OnSinkReady();    // a picture that a sink was too busy for can be drawn; margins and text are as they were
    void OnSinkRoom() { m_room = true; }
    void OnGivenUp() { m_tidy = true; }    // a renderer or a window was given up
    void OnInformation();                  // size and state must be reported
    void OnEnd() { m_end = true; }

    // ---- The worker ----

    // Whether size and state must be reported with this frame. Clears the demand.
    bool TakeUnsent();

    // ---- The render thread ----

    struct Due {
        bool end = false;
        bool tidy = false;      // destroy renderers and sinks that were given up
        bool room = false;      // sinks have room to send more
        bool draw = false;      // a pass, or the picture of the state
        bool forget = false;    // the state changed since the last turn: a picture from before is not drawn again
        RenderState state = RenderState::Idle;
    };
    bool IsDue(int64_t now) const;
    int64_t WakeAt() const { return m_tickAt; }    // kNever: only an event wakes the render thread
    Due Take(int64_t now);
    // `spare`: there is memory to be freed later, so a look is due in a tick.
    void SetSpare(bool spare, int64_t now);

    // Begins a pass, which takes all events so far, and returns what it is asked for. No value where there is nothing
    // to show, and then its requests count for the next pass. `fresh`: the pass has a picture that no pass has shown.
    // `kept`: it has a picture, fresh or not. `always`: the next pass redraws. `reports`: presenting is on; `hasText`:
    // there is a text callback.
    std::optional<PassFlags> BeginPass(bool fresh, bool kept, bool always, bool reports, bool hasText);
    // What the pass could not do is asked of the next one.
    void EndPass(const Pass& pass);

    RenderState State() const { return m_state; }
    uint32_t TakeWaitCounter();    // 0 to 9 and again, from 0 in each Waiting

private:
    bool m_posted = false;
    bool m_again = true;    // the picture must be drawn again, or for the first time
    bool m_forget = false;
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
