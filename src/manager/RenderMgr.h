// The window side of a channel: takes decoded pictures from the worker, carries them into the renderer's buffer, and
// presents them on its render thread. A thin coordinator over the renderer slot, the chain and the display settings.
//
//   state       left by                                  render thread
//   Stopped     PresentFrame, Stop(waiting), audio       logo, else background and text
//   Waiting     PresentFrame, ResetToStopped, audio      background and text, every 500 ms
//   Playing     Stop(waiting), ResetToStopped, audio     presents once for each wake-up
//   AudioOnly   PresentFrame, Stop(waiting)              background and text; notifies an off-screen renderer instead
//   TimeOnly    PresentFrame, Stop(waiting)              background and text
//   Idle        PresentFrame, Stop(waiting)              sleeps
//
// Locks, in their order: m_windowLock, then m_pictureLock, m_lock, the renderer slot's. m_pictureLock is held
// exclusively by the worker while it fills the lent buffer, client filters included, and shared by the render thread
// while it latches: no setter takes it, so a filter may call any of them. m_windowLock makes changes of windows follow
// one another; the thread that tells of a window's changes never takes it. No lock is held across any other client
// callback, nor while the window system is asked for anything.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "base/CallGate.h"
#include "base/Mutex.h"
#include "base/Status.h"
#include "base/Thread.h"
#include "corvane/decoder.h"
#include "filters/FilterChain.h"
#include "filters/RotateFilter.h"
#include "frame/ChannelCounters.h"
#include "frame/MediaFrameImpl.h"
#include "manager/RendererSlot.h"
#include "manager/ShownTally.h"
#include "manager/StatePicture.h"
#include "manager/StreamInfo.h"
#include "platform/Clock.h"
#include "present/RenderInfo.h"

namespace corvane {

enum class RenderState : uint32_t { Idle = 0, AudioOnly = 1, Stopped = 2, Waiting = 3, TimeOnly = 4, Playing = 5 };

// A window in use: its changes are told to the listener as long as this lives.
class WindowUse {
public:
    WindowUse() = default;
    // Of null windows nothing is told. May raise std::bad_alloc.
    WindowUse(WindowWatchPtr watch, WindowWatch::Listener* listener) : m_watch(std::move(watch)), m_listener(listener) {
        if (m_watch != nullptr)
            m_watch->AddListener(m_listener);
    }
    ~WindowUse() {
        if (m_watch != nullptr)
            m_watch->RemoveListener(m_listener);
    }
    WindowUse(const WindowUse&) = delete;
    WindowUse& operator=(WindowUse&& other) noexcept {
        std::swap(m_watch, other.m_watch);
        std::swap(m_listener, other.m_listener);
        return *this;
    }
    const WindowWatchPtr& Watch() const { return m_watch; }

private:
    WindowWatchPtr m_watch;
    WindowWatch::Listener* m_listener = nullptr;
};

class CRenderMgr final : private WindowWatch::Listener {
public:
    // Starts the render thread, which works for `owner` (the channel's handle). Raises std::bad_alloc and
    // std::system_error; nothing is left then.
    CRenderMgr(const void* owner, uintptr_t window, uint32_t flags, Clock& clock = Clock::System(),
               const RendererMakers& makers = RendererMakers::Built());
    ~CRenderMgr();    // ends
    CRenderMgr(const CRenderMgr&) = delete;
    CRenderMgr& operator=(const CRenderMgr&) = delete;
    // Joins the render thread, which destroys the renderers. Nothing is presented after it.
    void End();

    // ---- From the worker ----

    // Reports the frame, carries its picture to the renderer and wakes the render thread. A busy manager is waited for,
    // at most 500 ms and only with `wait`; the picture is lost otherwise. What becomes of the picture is counted.
    void PresentFrame(const FramePtr& frame, const DecodedFrame& decoded, bool wait);
    // Sound enters here (`mix`: it is to be heard). With `show` and a new second of wall-clock time the state becomes
    // AudioOnly.
    void InputAudio(const FramePtr& frame, bool mix, bool show);
    void ShowTimeOnly(const FramePtr& frame);
    void SendDecoderKind(uint32_t kind);

    // ---- From any thread ----

    void Stop(bool waiting);
    void ResetToStopped();
    void RequestRedraw();

    // 0 or null gives the window up. May raise std::bad_alloc, and nothing is changed then. The first form opens the
    // watch, which connects to the window system where nothing did before; the second takes no longer than its locks.
    void SetWindow(uintptr_t window) { SetWindow(WindowWatch::Open(window, WindowWatch::Purpose::Draw)); }
    void SetWindow(WindowWatchPtr window);
    void SetStreamInfo(CorvaneStreamInfoCallback callback, void* context);    // before the channel starts
    void SetOsd(CorvaneOsdCallback callback, void* context);
    void SetBackground(uint32_t color) { SetInfo(&RenderInfo::background, color); }
    void SetPresentEnabled(bool enabled) { SetInfo(&RenderInfo::presentEnabled, enabled); }
    void SetFullWindow(bool on) { SetInfo(&RenderInfo::fullWindow, on); }
    void SetNoBorder(bool on) { SetInfo(&RenderInfo::noBorder, on); }
    void SetMargin(uint32_t Edges::*edge, uint32_t pixels);
    void SetBorder(const Edges& border);
    void SetOsdPolicy(uint32_t policy) { SetInfo(&RenderInfo::osdPolicy, policy); }
    Status SetDisplayArea(const DisplayArea& area, uint32_t mask);
    DisplayArea GetDisplayArea() const;
    // The number of the monitor that shows the window; 0 without one.
    uint32_t GetAdapterIndex() const;
    // The old logo stays where the new one cannot be loaded; a null surface is no logo.
    Status SetLogoFile(const char* path);
    Status SetLogoBitmap(struct _cairo_surface* surface);
    // What the window shows, X bytes 0. Failed where nothing can be read. Blocks for the window system, at most a
    // second.
    Status GrabWindow(Raster& out) const;
    // What the window shows while the channel is stopped: 0 with the logo; 1 in any other state; -1 without a logo.
    int32_t GetLogoPicture(BitmapPtr& out) const;
    // The inside of the window, `otherwise` where there is none, and that without the margins.
    struct PresentRects {
        WindowWatch::Size client;
        Rect area;
    };
    PresentRects GetPresentRects(WindowWatch::Size otherwise) const;
    // A copy of what renderers read.
    RenderInfo GetRenderInfo() const { return Plan().info; }
    RenderState State() const;
    bool HasWindow() const;
    // Of the whole channel: what comes before the manager counts here too.
    ChannelCounters& Counters() { return m_counters; }

    Status InsertFilter(QMRX::Filter::IFilter* filter);
    void RemoveFilter(QMRX::Filter::IFilter* filter);    // waits for a running call of it
    void SetDeinterlace(bool on);
    void SetResizeType(uint32_t type);
    Status EnableRotateFilter(double angle);
    Status SetRotateOption(double angle);
    void DisableRotateFilter();

    // `format`: a pixel format. Waits for a running call of the callback that it replaces.
    void RegisterRawDataCallback(CorvanePictureCallback callback, void* context, uint32_t format);
    void SetRawDataCallbackSize(uint32_t width, uint32_t height);
    void SetAfterDisplay(CorvaneAfterDisplayCallback callback, void* context);    // waits likewise

private:
    // What one picture needs of the settings, read under m_lock at once.
    struct PicturePlan {
        RenderInfo info;
        std::shared_ptr<const ChainSettings> chain;
        std::optional<double> angle;
        uint32_t rawMaxWidth;
        uint32_t rawMaxHeight;
    };
    class RendererTarget;

    PicturePlan Plan() const;
    void ReportFrame(const MediaFrameImpl& frame, PictureSize size);
    PictureSize TargetSize(const PicturePlan& plan, RendererType type, PictureSize size) const;
    RotateFilter* Rotation(const std::optional<double>& angle);
    void Store(const FramePtr& frame, PictureSize size);    // wakes nobody yet
    void SendFallbackEvent();

    void OnWindowChange() noexcept override { RequestRedraw(); }
    void OnSinkReady() noexcept override;
    void OnSinkRoom() noexcept override;
    void SetLogo(BitmapPtr logo);

    void RenderLoop();
    void TidyUp();
    void PresentPass(uint64_t& seen);    // `seen`: the generation that it shows
    struct Pass {
        RendererPtr renderer;
        RenderInfo info;
        uint64_t redraws = 0;    // m_redraws, as of the preparation
        bool fresh = false;      // a picture that no pass has taken before
        FramePtr frame;          // null: nothing to present
    };
    bool LatchPicture(Pass& pass, uint64_t& seen, bool last);
    void DrawState();
    void AwaitLatch();
    void WakeLocked() REQUIRES(m_lock);
    template <typename Change>
    void ChangeChain(Change change);
    template <typename T>
    void SetInfo(T RenderInfo::*field, T value) {
        MutexLock lock(m_lock);
        m_info.*field = value;
    }

    // Constant after construction, or with locks of their own.
    Clock& m_clock;
    ChannelCounters m_counters;
    CallGate m_renderCalls;    // picture and after-display callbacks
    CallGate m_filterCalls;

    // Held exclusively by the worker from the lending of a buffer to its commit.
    SharedMutex m_pictureLock;
    FramePtr m_committed GUARDED_BY(m_pictureLock);    // the frame of the picture committed last

    // Only on the worker.
    FilterChain m_chain;
    std::unique_ptr<RotateFilter> m_rotate;
    double m_rotateAngle = 0;

    // Settings and state.
    mutable Mutex m_lock;
    Condition m_frameReady;
    RenderInfo m_info GUARDED_BY(m_lock);
    std::shared_ptr<const ChainSettings> m_chainSettings GUARDED_BY(m_lock);
    std::optional<double> m_angle GUARDED_BY(m_lock);    // degrees; set while rotation is on
    uint32_t m_rawMaxWidth GUARDED_BY(m_lock) = 0;
    uint32_t m_rawMaxHeight GUARDED_BY(m_lock) = 0;
    RenderState m_state GUARDED_BY(m_lock) = RenderState::Stopped;
    FramePtr m_frame GUARDED_BY(m_lock);    // last frame shown, or null
    PictureSize m_frameSize GUARDED_BY(m_lock);
    bool m_infoUnsent GUARDED_BY(m_lock) = false;    // infoDirty, as far as the stream-info codes go
    uint32_t m_waitCounter GUARDED_BY(m_lock) = 0;
    uint64_t m_generation GUARDED_BY(m_lock) = 0;    // raised by each wake-up
    uint64_t m_redraws GUARDED_BY(m_lock) = 0;       // raised when something about the window changed
    bool m_tidyUp GUARDED_BY(m_lock) = false;        // a renderer or window that was given up waits for its end
    bool m_sinkRoom GUARDED_BY(m_lock) = false;      // a sink may send more
    bool m_unlatched GUARDED_BY(m_lock) = false;     // a committed picture that the render thread did not take yet
    bool m_untaken GUARDED_BY(m_lock) = false;       // a committed picture that no pass has had, for the counters
    bool m_presenting GUARDED_BY(m_lock) = false;
    Condition m_latched;    // a picture was taken, or its present goes on
    BitmapPtr m_logo GUARDED_BY(m_lock);
    bool m_ending GUARDED_BY(m_lock) = false;

    RendererSlot m_slot;

    WindowSinks m_sinks;    // empty once the render thread has ended
    // Only on the render thread.
    StatePicture m_statePicture;
    ShownTally m_tally{m_counters};
    bool m_textFresh = false;    // no text was drawn since infoDirty

    // The windows that m_info names. m_windowLock is taken before m_lock, and never by who tells of their changes.
    Mutex m_windowLock;
    WindowUse m_window GUARDED_BY(m_windowLock);
    WindowUse m_overviewWindow GUARDED_BY(m_windowLock);
    WindowUse m_zoomWindow GUARDED_BY(m_windowLock);

    Thread m_thread;    // last: it runs on everything above
};

}    // namespace corvane
