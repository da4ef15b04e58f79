#include "platform/x11/WindowGrab.h"

#include <algorithm>
#include <new>

#include "base/Limits.h"
#include "base/Mutex.h"
#include "platform/Clock.h"
#include "platform/x11/GrabJob.h"
#include "platform/x11/PixelPack.h"

namespace corvane {

namespace {

constexpr std::chrono::hours kLongest(1);    // so that the deadline does not overflow

void CopyRows(PixelLayout layout, const uint8_t* from, ptrdiff_t fromStep, const PictureView& to, const Rect& place) {
    for (int64_t y = place.top; y < place.bottom; ++y, from += fromStep)
        UnpackRow(layout, from, to.At(place.left, y), static_cast<uint32_t>(place.Width()));
}

// `out` gets this size and the pixels of `last`, black outside of it.
Status ShowLast(const ConstPictureView& last, WindowWatch::Size size, Raster& out) {
    if (!limits::FitsPicture(size.width, size.height))
        return Status::Failed;
    if (!out.Resize(size.width, size.height))
        return Status::OutOfMemory;
    const Rect both = last.Bounds().Intersected(out.View().Bounds());
    if (last && !both.Empty())
        CopyRows(PixelLayout::Bgrx32, last.plane[0], last.stride[0], out.View(), both);
    return Status::Ok;
}

void ShowBand(const GrabJob::Band& band, const std::vector<Rect>& visible, PixelLayout layout, const PictureView& out) {
    const uint32_t bytes = BytesPerPixel(layout);
    const ptrdiff_t step = (band.place.Width() * bytes + 3) & ~int64_t{3};
    const uint8_t* pixels = xcb_get_image_data(band.pixels.get());
    if (xcb_get_image_data_length(band.pixels.get()) < step * band.place.Height())
        return;
    for (const Rect& part : visible) {
        const Rect both = part.Intersected(band.place);
        if (!both.Empty())
            CopyRows(layout, pixels + (both.top - band.place.top) * step + (both.left - band.place.left) * bytes, step,
                     out, both);
    }
}

// Waits until the first answers about the window of a new watch.
class FirstNews final : private WindowWatch::Listener {
public:
    explicit FirstNews(WindowWatch& watch) : m_watch(watch) { m_watch.AddListener(this); }
    ~FirstNews() { m_watch.RemoveListener(this); }

    void Await(ThreadWait& wait) {
        MutexLock lock(m_mutex);
        while (m_watch.GetLife() == WindowWatch::Life::Unknown && wait.On(m_changed, lock)) {
        }
    }

private:
    void OnWindowChange() noexcept override {
        MutexLock lock(m_mutex);
        m_changed.NotifyAll();
    }

    WindowWatch& m_watch;
    Mutex m_mutex;
    Condition m_changed;
};

Status Grab(const WindowWatchPtr& watch, const ConstPictureView& last, std::chrono::milliseconds limit, Raster& out) {
    // One limit for both waits, in real time: the event thread does not go by a channel's clock.
    ThreadWait wait(std::chrono::nanoseconds(std::min<std::chrono::milliseconds>(limit, kLongest)).count());
    if (watch != nullptr && watch->GetLife() == WindowWatch::Life::Unknown)
        FirstNews(*watch).Await(wait);
    const std::shared_ptr<WatchState> state = StateOf(watch);
    const WindowFacts facts = state != nullptr ? state->Facts() : WindowFacts();
    if (facts.life != WindowWatch::Life::Alive || facts.layout == PixelLayout::Unsupported)
        return Status::Failed;
    const std::shared_ptr<Connection> connection = ConnectionOf(watch);
    const auto job = std::make_shared<GrabJob>(state->Window(), facts.layout);
    connection->Join(job);
    GrabJob::Result result;
    const bool answered = job->Wait(wait, result);
    job->Leave();
    connection->Poke();
    if (!answered)
        return Status::Failed;
    if (!result.read && !(result.hidden && last))
        return Status::Failed;
    const Status shown = ShowLast(last, result.size, out);
    if (Ok(shown))
        for (const GrabJob::Band& band : result.bands)
            ShowBand(band, result.visible, facts.layout, out.View());
    return shown;
}

}    // namespace

Status GrabWindow(const WindowWatchPtr& watch, const ConstPictureView& last, std::chrono::milliseconds limit,
                  Raster& out) {
    try {
        return Grab(watch, last, limit, out);
    } catch (const std::bad_alloc&) {
        return Status::OutOfMemory;
    }
}

}    // namespace corvane
