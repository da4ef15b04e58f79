// The settings of presenting: an immutable value. A setter of the manager replaces it by a changed copy; the worker and
// the render thread use one value for one picture.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/ClientCallback.h"
#include "base/PictureView.h"
#include "base/SharedPicture.h"
#include "corvane/corvane.h"
#include "filters/FilterChain.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

// Each of these selects the plain renderer.
inline constexpr uint32_t kGdiFlags = CORVANE_FLAG_GDI | CORVANE_FLAG_GDI_STRETCH | CORVANE_FLAG_GDI_LEGACY;

struct Edges {
    uint32_t left = 0;    // pixels
    uint32_t right = 0;
    uint32_t top = 0;
    uint32_t bottom = 0;
};

struct PresentSettings {
    WindowWatchPtr window;    // null where the client gave none
    uint32_t flags = 0;
    uint32_t background = 0;    // 0x00BBGGRR
    bool presentEnabled = true;

    DisplayArea area{};
    WindowWatchPtr overviewWindow;    // of area.overview and area.zoom, where those are windows
    WindowWatchPtr zoomWindow;
    bool noBorder = false;
    bool fullWindow = false;
    Edges margin;
    bool hasBorder = false;
    Edges border;

    uint32_t osdPolicy = CORVANE_TEXT_WALL_CLOCK | CORVANE_TEXT_FRAME;
    // Callbacks. The render thread calls all but streamInfo, which the worker calls.
    ClientCallback<CorvaneOsdCallback> osd;
    ClientCallback<CorvaneAfterDisplayCallback> afterDisplay;
    ClientCallback<CorvaneStreamInfoCallback> streamInfo;

    // The window of the overview, where it is another one than the channel's; else null. Where it is the channel's own
    // window, the whole picture is drawn over the selected part, in the same image.
    WindowWatchPtr OverviewAside() const {
        return area.overviewEnabled != 0 && area.overviewIsWindow != 0 && overviewWindow != window ? overviewWindow
                                                                                                   : nullptr;
    }

    ChainSettings chain;
    std::optional<double> angle;      // degrees; set while rotation is on
    PictureSize rawMost;              // cap on pictures for the callback; no cap where either side is 0
    bool signalledColours = false;    // option 1000; false: all samples count as full-range BT.601
};
using PresentSettingsPtr = std::shared_ptr<const PresentSettings>;

// A decoder's picture with the colours that count: those that its stream signals with option 1000, else none.
inline ConstPictureView ViewUnder(const PresentSettings& settings, const SharedPicture& picture) {
    ConstPictureView view = picture.View();
    if (!settings.signalledColours)
        view.colours.reset();
    return view;
}

}    // namespace corvane
