// The default renderer: lends the worker a video surface of the display adapter, lets the adapter scale and convert it
// into a composite, lays text and overview over it, and copies the composite to the screen while the beam is elsewhere.
// The adapter stands behind platform/blitter/Blitter.h.
//
//   pass      the window                                     what happens                               outcome
//   Nothing   unknown yet; or presenting is off              nothing                                    NothingToDrawOn
//             destroyed, or beyond the limits                its surfaces go                            NothingToDrawOn
//   TextOnly  none, or not viewable                          text is called on surfaces in memory       NothingToDrawOn
//   Aside     not viewable, but its overview has a window    the same, and the overview is drawn        Put
//   Skip      still read by the server                       nothing: a new pass follows                Busy
//   Draw      can be drawn on                                composed in Latch, copied in Present       Put
//   Failed    no device, no surfaces, or the server is gone  see below                                  Failed
//
// A pass that fails drops its surfaces; the next picture starts afresh. Where nothing can start afresh (the screen is
// lost, or there is no device) the failure is the manager's, which puts the plain renderer in this one's place.
//
// The window's overview may be a window of its own: it is drawn in the composite's room beside the picture. Zoomed or
// not, an overview shows the whole picture, over text; overviewMargin does not apply. Margins around the picture are
// black. Text lies over the picture, black in it is transparent.
#pragma once

#include <memory>

#include "present/IVideoRenderer.h"
#include "present/OnScreenText.h"
#include "render/MonitorView.h"
#include "render/SurfaceSet.h"
#include "render/VideoSurface.h"

namespace corvane {

class CDDrawRenderer final : public IVideoRenderer {
public:
    // Looks for the device of `info`'s window; where there is none GetBuffer fails. May raise std::bad_alloc.
    explicit CDDrawRenderer(const RenderInfo& info, Blitter& blitter = Blitter::Processor());
    ~CDDrawRenderer() override;

    RendererType GetType() const override { return RendererType::DirectDraw; }
    // Takes NV12 as long as the device has such surfaces, YV12 for everything else.
    int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride, uint32_t* format) override;
    // On a device that reads the memory of others.
    bool TakePicture(const DecodedFrame& picture) override;
    void Commit() override {}    // the surface stays locked
    void Prepare(const RenderInfo& info) override;
    void Latch(const RenderInfo& info) override;
    Outcome Present(const FramePtr* frame, const RenderInfo* info) override;

private:
    enum class Pass { Nothing, TextOnly, Aside, Skip, Draw, Failed };

    std::shared_ptr<MonitorView> ViewForVideo();
    bool EnsureVideo(const std::shared_ptr<MonitorView>& view, uint32_t width, uint32_t height, uint32_t fourCC);
    std::shared_ptr<MonitorView> View() const;
    bool FollowWindow(const WindowWatchPtr& window);
    bool EnsureSet(const RenderInfo& info, WindowWatch::Size size);
    Pass Begin(const RenderInfo& info);
    void Compose(const RenderInfo& info);
    void ComposePicture(const RenderInfo& info);
    void ComposeOverview(const RenderInfo& info, const Rect& whole);
    bool RefreshText(const MediaFrameImpl& frame, const RenderInfo& info);
    void CallText(const MediaFrameImpl& frame, const RenderInfo& info);
    void LayText();
    Outcome Show(const RenderInfo& info);
    Outcome Fail(BlitResult result);

    Blitter& m_blitter;

    mutable Mutex m_lock;                                      // a leaf
    std::shared_ptr<MonitorView> m_view GUARDED_BY(m_lock);    // changed on the render thread only
    bool m_dropVideo GUARDED_BY(m_lock) = false;               // what is in m_video is of a device that is given up

    // Under the manager's picture lock.
    std::unique_ptr<VideoSurface> m_video;
    bool m_nv12Allowed = true;

    // Only on the render thread; a pass runs from Prepare to Present.
    Pass m_pass = Pass::Nothing;
    BlitResult m_result = BlitResult::Ok;    // why the pass failed
    std::unique_ptr<SurfaceSet> m_set;
    WindowWatch::Size m_client;
    WindowWatch::Size m_picture;    // of the latched picture; 0x0: there is none
    Rect m_overviewPlace;           // on the composite; empty: no overview
    Rect m_overviewInside;          // the part of it that lies on the window
    bool m_force = false;           // text must be drawn; stays until a pass could do so
    bool m_textKnown = false;       // m_lastText is that of the text in m_set
    TextTimes m_lastText;
};

}    // namespace corvane
