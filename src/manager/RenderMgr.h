// The window side of a channel: takes decoded pictures from the worker, runs them through the chain into a buffer of
// the renderer, and presents them on its render thread. A coordinator over mailbox, schedule, renderer slot, chain and
// settings.
//
// Locks, in their order: m_windowLock, m_lock, then those of mailbox, slot and sinks. m_lock is held for a few
// assignments, never during a conversion, a drawing, a put or a call of the client, so a callback may call any setter.
// m_windowLock serialises changes of windows.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "audio/AudioOut.h"
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
#include "present/RawDelivery.h"

namespace corvane {

// Reports the changes of a window to a listener as long as this object lives.
class WindowSubscription {
public:
    WindowSubscription() = default;
    // `watch` may be null. May raise std::bad_alloc.
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
               RendererMakers makers = BuiltRenderers(), SoundSystem& sound = SoundSystem::Sdl());
    ~CRenderMgr();    // calls End
    CRenderMgr(const CRenderMgr&) = delete;
    CRenderMgr& operator=(const CRenderMgr&) = delete;
    // Ends sound, and joins the render thread, which destroys the renderers. Nothing is presented afterwards.
    void End();

    // ---- From the worker ----

    // Reports the frame, makes its picture for the renderer and wakes the render thread. With `wait` it first waits, at
    // most 500 ms, until the render thread has taken the last picture. Then, and without `wait`, this picture replaces
    // one that was not taken. The outcome of the picture is counted.
    void PresentFrame(const FramePtr& frame, const SharedPicture& decoded, bool wait);
    // Any thread, at a stop: ends the wait of PresentFrame, and raw data until the next Stop, which a start calls.
    void Interrupt();
    // After Interrupt: waits for the client filters and the raw callback that run; not on a thread of the library.
    void AwaitCalls();
    // A frame of sound, which is played; `dropWhenFull` as AudioOut::Enqueue has it. With `show`, and in another second
    // of wall-clock time than the last frame, the state becomes AudioOnly.
    void InputAudio(const FramePtr& frame, bool dropWhenFull, bool show);
    void ShowTimeOnly(const FramePtr& frame);
    void SendDecoderKind(uint32_t kind);

    // ---- From any thread ----

    void Stop(bool waiting);
    void ResetToStopped();
    void RequestRedraw();

    // 0 or null: no window. May raise std::bad_alloc, and nothing is changed then. The first form opens the watch,
    // which connects to the window system if the process had no connection; the second waits for nothing but locks.
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
    // The old logo stays where the new one cannot be loaded. A null surface removes the logo.
    Status SetLogoFile(const char* path);
    Status SetLogoBitmap(struct _cairo_surface* surface);
    // The pixels that the window shows, X bytes 0. Failed where none can be read. Waits for the window system, at most
    // a second.
    Status GrabWindow(Raster& out) const;
    // The logo of a stopped channel: 0, and `out` is set; 1 in any other state; -1 without a logo.
    int32_t GetLogoPicture(BitmapPtr& out) const;
    // `client`: the size of the inside of the window, or `otherwise` without a window. `area`: `client` less the
    // margins.
    struct PresentRects {
        WindowWatch::Size client;
        Rect area;
    };
    PresentRects GetPresentRects(WindowWatch::Size otherwise) const;
    // The current settings.
    PresentSettingsPtr Settings() const;
    RenderState State() const;
    bool HasWindow() const;
    AudioOut& Sound() { return m_audio; }
    // Off: silent at once, and raw sound gives up its turn.
    void EnableSound(bool on);
    // The counters of the whole channel, also for its queue and its worker.
    ChannelCounters& Counters() { return m_counters; }
    RawClient& Raw() { return m_raw.Client(); }

    Status InsertFilter(QMRX::Filter::IFilter* filter);
    void RemoveFilter(QMRX::Filter::IFilter* filter);    // waits for a running call of the filter
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

    // What the render thread does between two takings of m_lock.
    struct Turn {
        PassSchedule::Due due;
        PresentSettingsPtr settings;
        bool inCalls = false;    // the turn has entered m_renderCalls
        uint32_t side = 0;
        bool spare = false;    // result: a sink has memory to be freed later
        // In state Playing.
        bool fresh = false;    // no pass has shown m_kept
        std::optional<Pass> pass{};
        // In the other states.
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

    // Constant after construction, or bring their own locks.
    Clock& m_clock;
    ChannelCounters m_counters;
    ClientFilterCalls m_filters;
    PictureMailbox m_mailbox;

    RawDelivery m_raw{m_filters};
    AudioOut m_audio;    // calls m_raw

    // Only on the worker.
    PictureRun m_run;

    mutable Mutex m_lock;
    Condition m_due;    // wakes the render thread
    PresentSettingsPtr m_settings GUARDED_BY(m_lock);
    PassSchedule m_schedule GUARDED_BY(m_lock);
    GateCount m_renderCalls GUARDED_BY(m_lock);    // passes that may call the client
    FramePtr m_frame GUARDED_BY(m_lock);           // the frame shown last, or null
    PictureSize m_frameSize GUARDED_BY(m_lock);
    BitmapPtr m_logo GUARDED_BY(m_lock);

    RendererSlot m_slot;

    WindowSinks m_sinks;    // cleared when the render thread ends
    // Only on the render thread.
    StatePicture m_statePicture;
    ShownTally m_tally{m_counters};
    FinishedPicture m_kept;    // the picture shown last, for redraws

    // The windows that m_settings names. m_windowLock is taken before m_lock, and never by the event thread.
    Mutex m_windowLock;
    WindowSubscription m_window GUARDED_BY(m_windowLock);
    WindowSubscription m_overviewWindow GUARDED_BY(m_windowLock);
    WindowSubscription m_zoomWindow GUARDED_BY(m_windowLock);

    Thread m_thread;    // last, since it uses everything above
};

}    // namespace corvane
