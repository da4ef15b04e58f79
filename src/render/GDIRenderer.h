// The plain window renderer, and the last of the fall-back chain: scales the finished picture into the window's image
// and puts it on the window. It keeps no window of its own; every pass takes it from the present settings.
//
//   way        picture goes to                 margins and text                       then
//   direct     the window's image              overlay, only the bands are copied     puts picture, bands, overview
//   compose    overlay                         overlay, over the picture              overlay copied to the window
//   bordered   overlay, at its native size     overlay, around the picture            overlay scaled to the window
//
// The overlay is a picture in memory, made when one of these needs it. In the direct way the moving picture never
// touches the bands and text never the picture, so nothing flickers.
#pragma once

#include <vector>

#include "base/AlignedBuffer.h"
#include "platform/Clock.h"
#include "platform/raster/Raster.h"
#include "present/IVideoRenderer.h"
#include "present/Layout.h"
#include "present/OnScreenText.h"
#include "present/WindowSinks.h"

namespace corvane {

class CGDIRenderer final : public IVideoRenderer {
public:
    explicit CGDIRenderer(Clock& clock = Clock::System()) : m_clock(clock) {}

    RendererType GetType() const override { return RendererType::Gdi; }
    // Whatever format is asked for, it takes 24 bit bottom-up.
    int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride, uint32_t* format) override;
    void Commit() override {}
    void Prepare(const RenderInfo& info) override;
    void Latch(const RenderInfo& info) override;
    Outcome Present(const FramePtr* frame, const RenderInfo* info) override;

private:
    enum class Way { Direct, Compose, Bordered };
    // What a pass may do, as Prepare found the window.
    enum class Pass {
        Nothing,     // no window, or none that can be drawn on
        TextOnly,    // the window is not viewable
        Skip,        // the server still reads the last picture; a new pass follows when it is done
        Draw
    };

    PackedPicture Picture() const;
    void FollowPlaces(const RenderInfo& info);
    bool EnsureOverlay(const RenderInfo& info);
    bool DrawPicture(const RenderInfo& info);
    bool DrawOverview(const RenderInfo& info);
    bool Refresh(const MediaFrameImpl& frame, const RenderInfo& info);
    bool RefreshIsDue(const MediaFrameImpl& frame, const RenderInfo& info, int64_t wall) const;
    void CallText(const MediaFrameImpl& frame, const RenderInfo& info);
    Outcome Finish(const RenderInfo& info, bool refreshed);
    bool PutDirect(const RenderInfo& info, bool refreshed);

    Clock& m_clock;

    // The lent buffer: under the manager's picture lock, written by the worker, read by the render thread in Latch.
    AlignedBuffer m_memory;
    uint32_t m_stride = 0;
    uint32_t m_width = 0;
    uint32_t m_height = 0;

    // Only on the render thread; a pass runs from Prepare to Present.
    Pass m_pass = Pass::Nothing;
    Way m_way = Way::Direct;
    WindowSink* m_sink = nullptr;
    WindowSink* m_overviewSink = nullptr;    // of an overview window that can be drawn on now
    WindowWatch::Size m_client;
    WindowWatch::Size m_picture;    // of the latched picture
    Rect m_canvas;                  // with bands and text, as of the last latch: of the window, or of the overlay
    Rect m_inside;                  // the picture's place on it
    bool m_failed = false;          // no memory for the pass
    bool m_force = false;           // bands and text must be drawn; stays until a pass could do so
    Raster m_overlay;
    Raster m_overview;      // the whole picture, small, until it is laid over the rest
    Rect m_overviewRect;    // its place on the target, or on the overview window; empty: there is none
    TextTimes m_lastText;
};

}    // namespace corvane
