// The plain window renderer, and the last of the fall-back chain: scales the finished picture into the window's image
// and puts it on the window. It keeps no window; each pass takes the window of its settings.
//
//   way        picture goes to                 margins and text                       then
//   direct     the window's image              overlay, only the bands are copied     puts picture, bands, overview
//   compose    overlay                         overlay, over the picture              overlay copied to the window
//   bordered   overlay, at its native size     overlay, around the picture            overlay scaled to the window
//
// The overlay is a picture in memory, made when it is needed. With Direct the picture is never drawn over the bands,
// nor text over the picture, so nothing flickers.
#pragma once

#include "platform/Clock.h"
#include "platform/raster/Raster.h"
#include "present/IVideoRenderer.h"
#include "present/Layout.h"
#include "present/OnScreenText.h"

namespace corvane {

class CGDIRenderer final : public IVideoRenderer {
public:
    explicit CGDIRenderer(Clock& clock = Clock::System()) : m_clock(clock) {}

    const RendererTraits& Traits() const override;
    // Always 24 bits, bottom-up.
    uint32_t FormatFor(uint32_t) const override { return PF_BGR24_FLIP; }
    bool HasFreeBuffer() const override { return m_buffers.HasFree(); }
    LentBuffer Lend(PictureSize size, uint32_t) override { return m_buffers.Lend(size, PF_BGR24_FLIP); }
    Outcome Present(const FinishedPicture& picture, Pass& pass) override;

private:
    enum class Way { Direct, Compose, Bordered };
    // The work that the state of the window allows a pass.
    enum class Scope {
        Nothing,     // no window, or none that can be drawn on
        TextOnly,    // the window is not viewable
        Busy,        // the server still reads the last picture; a new pass follows when it is done
        Draw
    };
    // The state of one pass.
    struct Work {
        Pass& pass;
        const PresentSettings& settings;
        const FramePtr& frame;
        ConstPictureView picture;
        Scope scope = Scope::Nothing;
        Way way = Way::Direct;
        bool force = false;    // bands and text must be drawn
        WindowSink* sink = nullptr;
        WindowSink* overviewSink = nullptr;    // of an overview window that can be drawn on now
        WindowWatch::Size client{};
        Rect overview{};    // its place on the target, or on the overview window; empty: there is none
    };

    void Begin(Work& work) const;
    bool Draw(Work& work);
    void FollowPlaces(Work& work);
    bool EnsureOverlay(Work& work);
    bool DrawPicture(const Work& work);
    bool DrawOverview(Work& work);
    bool Refresh(Work& work, bool& refreshed);
    bool RefreshIsDue(const Work& work, int64_t wall) const;
    void CallText(Work& work);
    Outcome Finish(const Work& work, bool refreshed);
    bool PutDirect(const Work& work, bool refreshed);

    Clock& m_clock;
    MemoryBuffers m_buffers;    // worker

    // Only on the render thread, from one pass to the next.
    Rect m_canvas;    // the area with bands and text of the last pass that drew, on the window or on the overlay
    Rect m_inside;    // the picture's place on it
    Raster m_overlay;
    Raster m_overview;    // the whole picture, small, until it is laid over the rest
    TextTimes m_lastText;
};

}    // namespace corvane
