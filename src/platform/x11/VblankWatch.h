// The scan lines of the monitors. Private to x11/.
//
// When a beam is asked for, the watch reads the modes of all monitors (RandR) and asks the server for a vertical blank
// of each (Present). It repeats this look once a second while beams are asked for, less often where none is known. A
// beam is known from the second look on. It stays unknown with a compositor, since there a put reaches the monitor
// later.
#pragma once

#include <xcb/present.h>
#include <xcb/randr.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/Mutex.h"
#include "platform/x11/Beam.h"
#include "platform/x11/Connection.h"

namespace corvane {

class VblankWatch final : public EventClient, public std::enable_shared_from_this<VblankWatch> {
public:
    // The beam of the monitor at `place` of the screen `root`; no value while it is unknown. Any thread. Where *stale
    // is set the caller must call Poke of the connection.
    std::optional<Beam> Of(xcb_window_t root, const Rect& place, bool* stale);

    void OnModesChanged();    // the next call of Of causes a look

    void OnJoin(Connection& connection) override;
    void OnEvent(Connection& connection, const xcb_generic_event_t& event) override;
    void OnTurn(Connection& connection) override;
    void OnLost() noexcept override;

private:
    struct Screen {
        xcb_window_t root = 0;
        xcb_atom_t compositor = 0;    // the selection that the compositor of the screen owns
        bool composited = true;       // true until the owner of the selection is known
    };
    struct Crtc {
        xcb_randr_crtc_t id = 0;
        xcb_window_t root = 0;
        Rect place;
        xcb_window_t probe = 0;    // an unmapped window on the monitor, which has the vertical blanks of the monitor
        BeamMeasure measure;
    };
    struct Told {
        xcb_window_t root;
        Rect place;
        Beam beam;
    };

    void Look(Connection& connection);
    void OnResources(Connection& connection, xcb_window_t root,
                     const xcb_randr_get_screen_resources_current_reply_t& resources);
    void OnCrtc(Connection& connection, xcb_window_t root, xcb_randr_crtc_t id,
                const xcb_randr_get_crtc_info_reply_t& info, const std::vector<xcb_randr_mode_info_t>& modes);
    void AskBlank(Connection& connection, Crtc& crtc);
    void DropProbe(Connection& connection, Crtc& crtc);
    void Publish();

    std::atomic<bool> m_wanted{false};    // a look is due: set by Of, cleared by the event thread

    mutable Mutex m_lock;    // a leaf
    std::vector<Told> m_told GUARDED_BY(m_lock);
    int64_t m_looked GUARDED_BY(m_lock) = 0;    // monotonic ns of the last look
    uint32_t m_looks GUARDED_BY(m_lock) = 0;

    // Only on the event thread.
    std::vector<Screen> m_screens;
    std::vector<Crtc> m_crtcs;
};

}    // namespace corvane
