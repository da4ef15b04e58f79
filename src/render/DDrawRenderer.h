// The default renderer: lends the worker a video surface of the display adapter, lets the adapter scale and convert it
// into a composite, lays text and overview over it, and copies the composite to the screen while the beam is elsewhere.
// The adapter is a Blitter (platform/blitter/Blitter.h).
//
//   scope     the window                                     what happens                               outcome
//   Nothing   unknown yet; or presenting is off              nothing                                    NothingToDrawOn
//             destroyed, or beyond the limits                its surfaces go                            NothingToDrawOn
//   TextOnly  none, or not viewable                          text is called on surfaces in memory       NothingToDrawOn
//   Aside     not viewable, but its overview has a window    the same, and the overview is drawn        Put
//   Busy      still read by the server                       nothing: a new pass follows                Busy
//   Draw      can be drawn on                                composed, and copied to the screen       Put
//   Failed    no device, no surfaces, or the server is gone  see below                                  Failed
//
// A pass that fails drops its surfaces; the next picture gets new ones. Where the screen is lost or there is no device,
// the pass ends as Failed, and the manager replaces this renderer by the plain one.
//
// An overview in a window of its own is drawn in the composite's room beside the picture. An overview always shows the
// whole picture, and lies over text; overviewMargin does not apply. Margins around the picture are black. Text lies
// over the picture, black in it is transparent.
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
    // Finds the device of the settings' window; Lend fails where there is none. Blitter and clock outlive the renderer.
    // May raise std::bad_alloc.
    explicit CDDrawRenderer(const PresentSettings& settings, Blitter& blitter = Blitter::Processor(),
                            Clock& clock = Clock::System());
    ~CDDrawRenderer() override;

    const RendererTraits& Traits() const override;
    // PF_NV12 while the device has such surfaces, else PF_YV12.
    uint32_t FormatFor(uint32_t preferred) const override;
    bool HasFreeBuffer() const override { return m_buffers.HasFree(); }
    LentBuffer Lend(PictureSize size, uint32_t preferredFormat) override;
    bool TakesReference(const ConstPictureView& picture) override;
    Outcome Present(const FinishedPicture& picture, Pass& pass) override;

private:
    enum class Scope { Nothing, TextOnly, Aside, Busy, Draw, Failed };

    // The view that new surfaces are made for. Surfaces of an older era are not used any more.
    struct Stage {
        std::shared_ptr<MonitorView> view;    // null: there is no device
        uint64_t era = 0;
    };
    struct VideoSlot : BufferSlot {
        std::unique_ptr<VideoSurface> surface;
        uint64_t era = 0;
    };
    // The state of one pass.
    struct Work {
        Pass& pass;
        const PresentSettings& settings;
        const FinishedPicture& finished;
        Scope scope = Scope::Nothing;
        BlitResult result = BlitResult::Ok;    // why the pass failed
        WindowWatch::Size client{};
        BlitSurface* video = nullptr;    // null: there is no picture
        WindowWatch::Size picture{};     // 0x0 likewise
        Rect overviewPlace{};            // on the composite; empty: no overview
        Rect overviewInside{};           // the part of it that lies on the window
    };

    Stage WorkersStage() const;
    void ChangeStage(std::shared_ptr<MonitorView> view, bool newEra);
    bool FitSlot(VideoSlot& slot, const Stage& stage, PictureSize size, uint32_t fourCC);
    bool FollowWindow(const WindowWatchPtr& window);
    bool EnsureSet(const PresentSettings& settings, WindowWatch::Size size);
    Scope Begin(Work& work);
    Scope BeginComposite(Work& work, bool viewable);
    std::unique_ptr<BlitSurface> FindVideo(Work& work);
    void Compose(Work& work);
    void ComposePicture(Work& work);
    void ComposeOverview(Work& work);
    bool RefreshText(Work& work);
    void CallText(Work& work);
    void LayText(const Work& work);
    Outcome Show(Work& work);
    Outcome Fail(BlitResult result);

    Blitter& m_blitter;
    Clock& m_clock;

    Stage m_stage;                              // only on the render thread
    mutable Mutex m_lock;                       // a leaf
    Stage m_workersStage GUARDED_BY(m_lock);    // the same, for the worker

    // Only on the worker.
    BufferPair<VideoSlot> m_buffers;
    bool m_nv12Allowed = true;

    // Only on the render thread, from one pass to the next.
    std::unique_ptr<SurfaceSet> m_set;
    bool m_textKnown = false;    // m_lastText belongs to the text in m_set
    TextTimes m_lastText;
};

}    // namespace corvane
