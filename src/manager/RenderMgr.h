// The window side of a channel: takes decoded pictures from the worker, carries them into the renderer's buffer, and
// presents them on its render thread. A thin coordinator over the mailbox, the schedule, the renderer slot, the chain
// and the settings.
//
// Locks, in their order: m_windowLock, m_lock, then those of mailbox, slot and sinks. m_lock is held for a few
// assignments, never while anything is converted, drawn or put, nor while a client is called: so a client's callback
// may call any setter. m_windowLock makes changes of windows follow one another.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "base/CallGate.h"
#include "base/Mutex.h"
#include "base/Status.h"
#include "base/Thread.h"
#include "frame/ChannelCounters.h"
#include "frame/MediaFrameImpl.h"
#include "manager/PassSchedule.h"
#include "manager/RendererSlot.h"
#include "manager/ShownTally.h"
#include "manager/StatePicture.h"
#include "manager/StreamInfo.h"
#include "platform/Clock.h"
#include "present/PictureMailbox.h"
#include "present/PictureRun.h"
#include "present/PresentSettings.h"

namespace corvane {

// A window in use: the listener gets its changes as long as this object lives.
class WindowSubscription {
public:
    WindowSubscription() = default;
    // A null window has no changes. May raise std::bad_alloc.
    WindowSubscription(WindowWatchPtr watch, WindowWatch::Listener* listener)
        : m_watch(std::move(watch)), m_listener(listener) {
        if (m_watch != nullptr)
            m_watch->AddListener(m_listener);
    }
    ~WindowSubscription() {
        if (m_watch != nullptr)
            m_watch->RemoveListener(m_listener);
    }
    WindowSubscription(const WindowSubscription&) = delete;
    WindowSubscription& operator=(WindowSubscription&& other) noexcept {
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
               RendererMakers makers = BuiltRenderers());
    ~CRenderMgr();    // ends
    CRenderMgr(const CRenderMgr&) = delete;
    CRenderMgr& operator=(const CRenderMgr&) = delete;
    // Joins the render thread, which destroys the renderers. Nothing is presented after it.
    void End();

    // ---- From the worker ----

    // Reports the frame, makes its picture for the renderer and wakes the render thread. With `wait` it waits before
    // that until the render thread has taken the picture before, at most 500 ms; then, and without `wait`, this picture
    // takes the place of one that was not taken. What becomes of the picture is counted.
    void PresentFrame(const FramePtr& frame, const SharedPicture& decoded, bool wait);
    // Any thread: ends that wait.
    void WakeWorker() { m_mailbox.Interrupt(); }
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
    void SetBackground(uint32_t color) { SetField(&PresentSettings::background, color); }
    void SetPresentEnabled(bool enabled) { SetField(&PresentSettings::presentEnabled, enabled); }
    void SetFullWindow(bool on) { SetField(&PresentSettings::fullWindow, on); }
    void SetNoBorder(bool on) { SetField(&PresentSettings::noBorder, on); }
    void SetMargin(uint32_t Edges::*edge, uint32_t pixels);
    void SetBorder(const Edges& border);
    void SetOsdPolicy(uint32_t policy) { SetField(&PresentSettings::osdPolicy, policy); }
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
    // `client`: the inside of the window, or `otherwise` without a window. `area`: `client` less the margins.
    struct PresentRects {
        WindowWatch::Size client;
        Rect area;
    };
    PresentRects GetPresentRects(WindowWatch::Size otherwise) const;
    // The current settings.
    PresentSettingsPtr Settings() const;
    RenderState State() const;
    bool HasWindow() const;
    // Of the whole channel: queue and worker count here too.
    ChannelCounters& Counters() { return m_counters; }

    Status InsertFilter(QMRX::Filter::IFilter* filter);
    void RemoveFilter(QMRX::Filter::IFilter* filter);    // waits for a running call of it
    void SetDeinterlace(bool on);
    void SetResizeType(uint32_t type);
    void SetSignalledColours(bool on) { SetField(&PresentSettings::signalledColours, on); }
    Status EnableRotateFilter(double angle);
    Status SetRotateOption(double angle);
    void DisableRotateFilter();

    // A callback that the worker calls. Before the channel starts: it waits for nothing.
    void SetStreamInfo(const ClientCallback<CorvaneStreamInfoCallback>& callback) {
        SetField(&PresentSettings::streamInfo, callback);
    }
    // A callback that the render thread calls, which counts for the next pass. Waits for the end of the pass that may
    // call the one that it replaces; not on a thread of the library.
    template <typename Function>
    void SetCallback(ClientCallback<Function> PresentSettings::*which,
                     std::type_identity_t<ClientCallback<Function>> callback) {
        MutexLock lock(m_lock);
        ChangeSettings([&](PresentSettings& settings) { settings.*which = callback; });
        m_renderCalls.WaitForRunning(lock);
    }
    // The picture callback, which lives in the off-screen renderer. `format`: a pixel format. Waits likewise.
    void SetPictureCallback(ClientCallback<CorvanePictureCallback> callback, uint32_t format);
    void SetRawDataCallbackSize(uint32_t width, uint32_t height);

private:
    class RendererTarget;

    void ReportFrame(const MediaFrameImpl& frame, PictureSize size);
    PictureSize TargetSize(const PresentSettings& settings, const RendererTraits& traits, PictureSize size) const;
    void Post(FinishedPicture& picture, PictureSize size);
    void SendFallbackEvent();

    void OnWindowChange() noexcept override { RequestRedraw(); }
    void OnSinkReady() noexcept override;
    void OnSinkRoom() noexcept override;
    void SetLogo(BitmapPtr logo);
    void SetState(RenderState state, const FramePtr& frame) REQUIRES(m_lock);
    Status ChangeAngle(bool on, std::optional<double> angle);

    // The work of the render thread between two times that it takes the lock.
    struct Turn {
        PassSchedule::Due due;
        PresentSettingsPtr settings;
        bool inCalls = false;    // counted among the calls into the client
        uint32_t side = 0;
        bool spare = false;    // out: memory that goes back after a while
        // Of Playing.
        bool fresh = false;    // m_kept is a picture that no pass has shown
        std::optional<Pass> pass{};
        // Of the other states.
        FramePtr frame{};
        BitmapPtr logo{};
        uint32_t counter = 0;
    };
    void RenderLoop();
    Turn Await(const Turn& ended);
    void Do(Turn& turn);
    void TidyUp(const PresentSettings& settings);
    void PresentPass(Turn& turn);
    bool MatchPicture(RendererId id, bool fresh);
    void AfterDisplay(Pass& pass);
    void DrawState(const Turn& turn);

    // Replaces the settings by a changed copy.
    template <typename Change>
    void ChangeSettings(Change change) REQUIRES(m_lock) {
        auto next = std::make_shared<PresentSettings>(*m_settings);
        change(*next);
        m_settings = std::move(next);
    }
    template <typename T>
    void SetField(T PresentSettings::*field, const T& value) {
        MutexLock lock(m_lock);
        ChangeSettings([&](PresentSettings& settings) { settings.*field = value; });
    }

    // Constant after construction, or with locks of their own.
    Clock& m_clock;
    ChannelCounters m_counters;
    CallGate m_filterCalls;
    PictureMailbox m_mailbox;

    // Only on the worker.
    PictureRun m_run;

    mutable Mutex m_lock;
    Condition m_due;    // something is due on the render thread
    PresentSettingsPtr m_settings GUARDED_BY(m_lock);
    PassSchedule m_schedule GUARDED_BY(m_lock);
    GateCount m_renderCalls GUARDED_BY(m_lock);    // passes that may call the client
    FramePtr m_frame GUARDED_BY(m_lock);           // last frame shown, or null
    PictureSize m_frameSize GUARDED_BY(m_lock);
    BitmapPtr m_logo GUARDED_BY(m_lock);

    RendererSlot m_slot;

    WindowSinks m_sinks;    // empty once the render thread has ended
    // Only on the render thread.
    StatePicture m_statePicture;
    ShownTally m_tally{m_counters};
    FinishedPicture m_kept;    // shown last, for redraws

    // The windows that m_settings names. m_windowLock is taken before m_lock, and never by the event thread.
    Mutex m_windowLock;
    WindowSubscription m_window GUARDED_BY(m_windowLock);
    WindowSubscription m_overviewWindow GUARDED_BY(m_windowLock);
    WindowSubscription m_zoomWindow GUARDED_BY(m_windowLock);

    Thread m_thread;    // last, since it uses everything above
};

}    // namespace corvane
