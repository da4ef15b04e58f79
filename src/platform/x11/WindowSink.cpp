#include "platform/x11/WindowSink.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <vector>

#include "base/Limits.h"
#include "base/Log.h"
#include "platform/x11/PixelPack.h"
#include "platform/x11/SinkState.h"

namespace corvane {

namespace {

// ns that all bands of one call take at most; shorter than a frame.
constexpr int64_t kRoomLimit = 10'000'000;
// ns without a change of size after which memory beyond the image is freed.
constexpr int64_t kSpareLimit = 1'000'000'000;

class ServerSink final : public WindowSink {
public:
    ServerSink(WindowWatchPtr watch, const void* owner, Clock& clock)
        : m_watch(std::move(watch)),
          m_owner(owner),
          m_clock(clock),
          m_watchState(StateOf(m_watch)),
          m_connection(ConnectionOf(m_watch)) {
        if (m_watchState == nullptr || m_connection == nullptr)
            return;
        m_state = std::make_shared<SinkState>(m_watchState);
        m_connection->Join(m_state);
    }

    // The event thread frees what the server keeps. The server has its own mapping of memory that it still reads.
    ~ServerSink() override {
        if (m_state == nullptr)
            return;
        m_state->Leave();
        m_connection->Poke();
    }

    State Prepare() override;
    bool Fresh() const override { return m_fresh; }
    WindowWatch::Size Size() const override { return m_size; }
    bool Put(std::span<const Rect> parts) override;
    bool Resume() override { return !m_unsent.empty() && SendBands() && std::exchange(m_wanted, false); }
    bool Trim() override;
    bool Copy(Raster& out) override;

protected:
    const PictureView& Image() const override { return m_image; }

private:
    State Absent();
    void DropImage();
    void HideImage();
    bool MakeImage();
    bool MakeShared(size_t size);
    bool SendBands();

    bool DrawsPrivately() const { return m_transport == Transport::Bands || m_facts.layout != PixelLayout::Bgrx32; }
    // Of the shared memory: the server needs rows of whole 32 bit units, and the kernels are fastest on 64 bytes.
    uint32_t RowPixels() const { return (m_imageSize.width + 31) & ~31u; }
    size_t SharedBytes() const { return size_t{RowPixels()} * BytesPerPixel(m_facts.layout) * m_imageSize.height; }
    size_t PrivateBytes() const { return size_t{4} * RowPixels() * m_imageSize.height; }

    // Constant after construction.
    const WindowWatchPtr m_watch;
    const void* const m_owner;
    Clock& m_clock;
    const std::shared_ptr<WatchState> m_watchState;    // null: the watch has no window that can be drawn on
    const std::shared_ptr<Connection> m_connection;    // as long as the watch lives
    std::shared_ptr<SinkState> m_state;                // null where one of the two above is

    // Only on the render thread.
    WindowFacts m_facts;    // as of the last Prepare
    Transport m_transport = Transport::Descriptor;
    bool m_transportKnown = false;
    SharedMemory m_shared;
    WindowWatch::Size m_size;
    WindowWatch::Size m_imageSize;
    int64_t m_resizedAt = 0;    // ns of the clock
    bool m_ready = false;
    bool m_fresh = false;
    bool m_complained = false;
    std::vector<Rect> m_parts;
    std::vector<Rect> m_unsent;    // of the last put, where the image is sent in bands
    bool m_wanted = false;         // a Prepare was refused because of these
    std::vector<uint8_t> m_band;

    AlignedBuffer m_private;
    PictureView m_image;    // of m_shared or m_private; changed under m_imageLock

    std::atomic<bool> m_put{false};    // this image was put
};

WindowSink::State ServerSink::Absent() {
    DropImage();
    return State::Absent;
}

void ServerSink::DropImage() {
    if (m_imageSize == WindowWatch::Size())
        return;
    m_state->Detach(m_connection->Xcb());
    HideImage();    // first, so that no copy reads freed memory
    m_shared.Free();
    m_private.Free();
    m_imageSize = {};
    m_fresh = false;
    m_unsent.clear();
}

WindowSink::State ServerSink::Prepare() {
    m_ready = false;
    m_size = {};
    if (m_state == nullptr)
        return State::Absent;
    m_facts = m_watchState->Facts();
    if (m_facts.life != WindowWatch::Life::Alive)
        return Absent();
    if (m_facts.layout == PixelLayout::Unsupported) {
        if (!std::exchange(m_complained, true))
            log::Line(3, "src/WindowSink", __LINE__, "[%p] window visual not supported", m_owner);
        return Absent();
    }
    if (!m_facts.viewable) {
        m_size = m_facts.size;
        m_unsent.clear();    // everything is put again when the window becomes viewable
        return State::Hidden;
    }
    const SinkState::Answers answers = m_state->TakeAnswers();
    if (answers.busy)
        return State::Busy;
    if (!std::exchange(m_transportKnown, true))
        m_transport = m_connection->Server().transport;
    if (answers.refused) {
        m_transport = m_transport == Transport::Descriptor ? Transport::Segment : Transport::Bands;
        DropImage();
    }
    m_wanted = !SendBands();    // these are of the last image, where the window has another size by now
    if (m_wanted)
        return State::Busy;
    if (!limits::FitsPicture(m_facts.size.width, m_facts.size.height)) {
        DropImage();
        return State::TooLarge;
    }
    if (m_imageSize != m_facts.size && !MakeImage())
        return Absent();
    (void)Trim();
    m_size = m_facts.size;
    m_ready = true;
    return State::Ready;
}

// Makes the image in the memory of the last one, where that is large enough.
bool ServerSink::MakeImage() {
    const WindowWatch::Size size = m_facts.size;
    // More than needed, since a window that is resized may grow further.
    const size_t spare = m_imageSize != WindowWatch::Size() ? 8 : SIZE_MAX;    // one part in so many is added
    m_resizedAt = m_clock.Now();
    HideImage();
    m_imageSize = size;
    const size_t shared = SharedBytes();
    while (m_transport != Transport::Bands && m_shared.Size() < shared && !MakeShared(shared + shared / spare))
        m_transport = m_transport == Transport::Descriptor ? Transport::Segment : Transport::Bands;
    const size_t drawn = PrivateBytes();
    if (DrawsPrivately() && m_private.Size() < drawn && !m_private.Allocate(drawn + drawn / spare))
        return false;
    MutexLock lock(m_imageLock);
    m_image = {.plane = {DrawsPrivately() ? m_private.Data() : m_shared.Data()},
               .stride = {ptrdiff_t{4} * RowPixels()},
               .size = {size.width, size.height},
               .format = PF_BGRA32};
    m_fresh = true;
    return true;
}

void ServerSink::HideImage() {
    MutexLock lock(m_imageLock);
    m_image = {};
    m_put = false;
}

bool ServerSink::MakeShared(size_t size) {
    m_state->Detach(m_connection->Xcb());
    if (!m_shared.Make(m_transport, size))
        return false;
    m_state->Attach(m_connection->Xcb(), m_shared);
    m_connection->Poke();
    return true;
}

bool ServerSink::Trim() {
    const bool shares = m_imageSize != WindowWatch::Size() && m_shared.Size() > SharedBytes();
    const bool draws = m_imageSize != WindowWatch::Size() && m_private.Size() > PrivateBytes();
    if (!shares && !draws)
        return false;
    if (m_clock.Now() - m_resizedAt < kSpareLimit)
        return true;
    if (shares)
        m_shared.Trim(SharedBytes());
    AlignedBuffer smaller;
    if (draws && smaller.Allocate(PrivateBytes())) {
        MutexLock lock(m_imageLock);
        std::memcpy(smaller.Data(), m_private.Data(), PrivateBytes());
        m_private = std::move(smaller);
        m_image.plane[0] = m_private.Data();
    }
    return false;
}

bool ServerSink::Put(std::span<const Rect> parts) {
    if (!std::exchange(m_ready, false))
        return false;
    m_parts.clear();
    for (const Rect& part : parts) {
        const Rect inside = part.Intersected(m_image.Bounds());
        if (!inside.Empty())
            m_parts.push_back(inside);
    }
    xcb_connection_t* xcb = m_connection->Xcb();
    if (m_parts.empty() || xcb_connection_has_error(xcb) != 0)
        return false;
    m_fresh = false;
    m_put = true;
    // Bands are flushed as they are sent. Another flush could wait for that of the event thread, which waits where
    // bands have filled the socket and the server hangs.
    if (m_transport == Transport::Bands) {
        m_unsent = m_parts;
        (void)SendBands();
        return true;
    }
    const uint32_t bytes = BytesPerPixel(m_facts.layout);
    for (const Rect& part : m_parts) {
        for (int64_t y = part.top; DrawsPrivately() && y < part.bottom; ++y)
            PackRow(m_facts.layout, m_image.At(part.left, y), m_shared.Data() + (y * RowPixels() + part.left) * bytes,
                    static_cast<uint32_t>(part.Width()));
    }
    m_state->Put(xcb, m_facts, static_cast<uint16_t>(RowPixels()), static_cast<uint16_t>(m_imageSize.height), m_parts);
    // The sending may have read events into xcb's queue, but not the completion of this put.
    if (!m_connection->Socket().Flush())
        m_connection->Poke();
    return true;
}

// Sends the rest of the last put, band by band. False when the server takes no more for now, or the time is over;
// listeners are called when there is room.
bool ServerSink::SendBands() {
    if (m_unsent.empty())
        return true;
    // By the system's clock, since the server does not go by a channel's.
    const int64_t deadline = Clock::System().Now() + kRoomLimit;
    xcb_connection_t* xcb = m_connection->Xcb();
    const uint32_t bytes = BytesPerPixel(m_facts.layout);
    const size_t bandBytes = m_connection->Server().bandBytes;
    const auto most = static_cast<int64_t>(bandBytes / bytes - 1);    // pixels of a row
    bool sent = true;
    for (bool first = true; sent && !m_unsent.empty() && (first || Clock::System().Now() <= deadline); first = false) {
        Rect& part = m_unsent.back();
        if (part.Width() > most) {
            const Rect left{part.left, part.top, part.left + most, part.bottom};
            part.left += most;
            m_unsent.push_back(left);
            continue;
        }
        const size_t rowBytes = (static_cast<size_t>(part.Width()) * bytes + 3) & ~size_t{3};
        const auto rows = static_cast<int64_t>(bandBytes / rowBytes);
        const Rect band{part.left, part.top, part.right, std::min(part.top + rows, part.bottom)};
        m_band.resize(std::max(m_band.size(), rowBytes * static_cast<size_t>(band.Height())));
        for (int64_t y = band.top; y < band.bottom; ++y)
            PackRow(m_facts.layout, m_image.At(band.left, y),
                    m_band.data() + rowBytes * static_cast<size_t>(y - band.top), static_cast<uint32_t>(band.Width()));
        sent = m_connection->Socket().SendWithRoom(deadline, [&] {
            xcb_put_image(xcb, XCB_IMAGE_FORMAT_Z_PIXMAP, m_watchState->Window(), m_state->Context(xcb),
                          static_cast<uint16_t>(band.Width()), static_cast<uint16_t>(band.Height()),
                          static_cast<int16_t>(band.left), static_cast<int16_t>(band.top), 0, m_facts.depth,
                          static_cast<uint32_t>(rowBytes * static_cast<size_t>(band.Height())), m_band.data());
        });
        if (sent && band.bottom == part.bottom)
            m_unsent.pop_back();
        else if (sent)
            part.top = band.bottom;
    }
    if (!m_unsent.empty())
        m_state->AwaitRoom(*m_connection);
    m_connection->Poke();    // the sending may have read events into xcb's queue
    return m_unsent.empty();
}

bool ServerSink::Copy(Raster& out) {
    MutexLock lock(m_imageLock);
    if (!m_put || !out.Resize(m_image.size.width, m_image.size.height))
        return false;
    const PictureView& to = out.View();
    for (uint32_t y = 0; y < m_image.size.height; ++y)
        std::memcpy(to.Row(y), m_image.Row(y), size_t{4} * m_image.size.width);
    return true;
}

}    // namespace

std::unique_ptr<WindowSink> WindowSink::Make(WindowWatchPtr watch, const void* owner, Clock& clock) {
    return std::make_unique<ServerSink>(std::move(watch), owner, clock);
}

}    // namespace corvane
