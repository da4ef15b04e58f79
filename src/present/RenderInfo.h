// What every renderer reads on a present. A plain value: the manager keeps one under its lock and hands out copies.
#pragma once

#include <cstdint>

#include "corvane/corvane.h"
#include "platform/window/WindowWatch.h"

namespace corvane {

class WindowSinks;

// Any of these selects plain window rendering.
inline constexpr uint32_t kGdiFlags = CORVANE_FLAG_GDI | CORVANE_FLAG_GDI_STRETCH | CORVANE_FLAG_GDI_LEGACY;

struct Edges {
    uint32_t left = 0;    // pixels
    uint32_t right = 0;
    uint32_t top = 0;
    uint32_t bottom = 0;
};

struct RenderInfo {
    WindowWatchPtr window;    // null where the client gave none
    uint32_t flags = 0;
    uint32_t background = 0;    // 0x00BBGGRR
    CorvaneAfterDisplayCallback afterDisplay = nullptr;
    void* afterDisplayContext = nullptr;
    bool forceRedraw = false;    // margins and text are drawn even if nothing changed
    DisplayArea area{};
    WindowWatchPtr overviewWindow;    // of area.overview and area.zoom, where those are windows
    WindowWatchPtr zoomWindow;
    CorvaneOsdCallback osd = nullptr;
    void* osdContext = nullptr;
    uint32_t osdPolicy = 3;
    bool noBorder = false;
    bool fullWindow = false;
    Edges margin;
    bool hasBorder = false;
    Edges border;
    bool infoDirty = false;    // size and state must be reported: what a picture callback is told
    CorvaneStreamInfoCallback streamInfo = nullptr;
    void* streamInfoContext = nullptr;
    bool presentEnabled = true;
    // Of the manager, for the render thread only.
    WindowSinks* sinks = nullptr;
    bool* textFresh = nullptr;    // the next text is told what infoDirty says; see TakeTextFresh
};

// The value of osdPolicy that makes every present refresh.
inline constexpr uint32_t kOsdAlways = 0x80000000u;

}    // namespace corvane
