// What clients set of presenting: an immutable value. The manager puts a new one in the place of the old one; the
// worker and the render thread each read one for as long as a picture takes.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/ColourSignal.h"
#include "base/PictureSize.h"
#include "corvane/corvane.h"
#include "filters/FilterChain.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

// Any of these selects plain window rendering.
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

    CorvaneOsdCallback osd = nullptr;
    void* osdContext = nullptr;
    uint32_t osdPolicy = 3;
    CorvaneStreamInfoCallback streamInfo = nullptr;
    void* streamInfoContext = nullptr;
    CorvaneAfterDisplayCallback afterDisplay = nullptr;
    void* afterDisplayContext = nullptr;

    // The window beside the channel's own that the whole picture is drawn on; null where there is none. The channel's
    // own window as its overview is one image: the whole picture is drawn over the selected part.
    WindowWatchPtr OverviewAside() const {
        return area.overviewEnabled != 0 && area.overviewIsWindow != 0 && overviewWindow != window ? overviewWindow
                                                                                                   : nullptr;
    }

    ChainSettings chain;
    std::optional<double> angle;      // degrees; set while rotation is on
    PictureSize rawMost;              // of pictures for a callback; none where either side is 0
    bool signalledColours = false;    // RGB is made by what the stream signals; else samples are full-range BT.601
};
using PresentSettingsPtr = std::shared_ptr<const PresentSettings>;

// By what RGB is made of samples whose stream signals `signal`; without a value as ever.
inline std::optional<ColourSignal> EffectiveColours(const PresentSettings& settings, const ColourSignal& signal) {
    return settings.signalledColours ? std::optional(signal) : std::nullopt;
}

// The value of osdPolicy that makes every present refresh.
inline constexpr uint32_t kOsdAlways = 0x80000000u;

}    // namespace corvane
