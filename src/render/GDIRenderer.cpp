#include "render/GDIRenderer.h"

#include <algorithm>

#include "base/Limits.h"
#include "filters/FilterChain.h"

namespace corvane {

namespace {

constexpr uint32_t kBorderRoom = 100;    // pixels of the overlay beyond the picture, so that borders need no new one

constexpr Rect Whole(WindowWatch::Size size) {
    return {0, 0, size.width, size.height};
}

}    // namespace

int32_t CGDIRenderer::GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride, uint32_t* format) {
    if (!m_memory || m_width != width || m_height != height) {
        const uint64_t size = PictureBytes(PF_BGR24_FLIP, width, height);
        AlignedBuffer memory;
        if (size == 0 || !memory.Allocate(size))
            return -1;    // the picture of before stays whole
        m_memory = std::move(memory);
        m_stride = RowBytes(PF_BGR24_FLIP, width);
        m_width = width;
        m_height = height;
    }
    *buffer = m_memory.Data();
    *stride = m_stride;
    *format = PF_BGR24_FLIP;
    return 0;
}

PackedPicture CGDIRenderer::Picture() const {
    const auto step = static_cast<ptrdiff_t>(m_stride);
    return {m_memory.Data() + step * (m_height - 1), -step, m_width, m_height, 3};
}

// ---- A pass: prepare without a lock, draw the picture under the picture lock, text and putting without one ----

void CGDIRenderer::Prepare(const RenderInfo& info) {
    m_force |= info.forceRedraw;
    m_pass = Pass::Nothing;
    m_overviewSink = nullptr;
    m_sink = info.presentEnabled && info.sinks != nullptr ? info.sinks->Main(info.window) : nullptr;
    if (m_sink == nullptr)
        return;
    switch (m_sink->Prepare()) {
    case WindowSink::State::Ready:
        m_pass = Pass::Draw;
        m_force |= m_sink->Fresh();
        break;
    case WindowSink::State::Hidden:
        m_pass = Pass::TextOnly;
        break;
    case WindowSink::State::Busy:
        m_pass = Pass::Skip;
        break;
    case WindowSink::State::TooLarge:
    case WindowSink::State::Absent:
        break;
    }
    m_client = m_sink->Size();
    const bool window = info.area.overviewEnabled != 0 && info.area.overviewIsWindow != 0;
    WindowSink* const overview = info.sinks->Overview(window ? info.overviewWindow : nullptr);
    if (overview != nullptr && overview->Prepare() == WindowSink::State::Ready)
        m_overviewSink = overview;
}

void CGDIRenderer::Latch(const RenderInfo& info) {
    m_force |= info.forceRedraw;
    m_picture = {m_width, m_height};
    m_failed = false;
    m_overviewRect = {};
    if (!m_memory || !info.presentEnabled || (m_pass != Pass::Draw && m_pass != Pass::TextOnly))
        return;
    m_way = UsesBorder(info)                               ? Way::Bordered
            : (info.flags & CORVANE_FLAG_GDI_COMPOSE) != 0 ? Way::Compose
                                                           : Way::Direct;
    FollowPlaces(info);
    if (m_way != Way::Direct && !EnsureOverlay(info)) {
        m_failed = true;
        return;
    }
    if (m_pass == Pass::Draw)
        m_failed = !DrawPicture(info) || !DrawOverview(info);
    else if (info.area.overviewIsWindow != 0)
        m_failed = !DrawOverview(info);    // that window may be in view
}

// Where the picture's place has changed, what was picture may be band now, and is drawn over once, text policy or not.
void CGDIRenderer::FollowPlaces(const RenderInfo& info) {
    Rect canvas = Whole(m_client);
    Rect inside = PictureRect(info, m_client);
    if (m_way == Way::Bordered) {
        inside = Whole(m_picture).Moved(info.border.left, info.border.top);
        canvas = {0, 0, inside.right + info.border.right, inside.bottom + info.border.bottom};
    }
    m_force |= canvas != m_canvas || inside != m_inside;
    m_canvas = canvas;
    m_inside = inside;
}

bool CGDIRenderer::DrawPicture(const RenderInfo& info) {
    const PackedPicture picture = Picture();
    const Rect all = Whole(m_picture);
    if (m_way == Way::Bordered)
        return Stretch(m_overlay.View(), all.Moved(info.border.left, info.border.top), picture, all);
    Rect source = all;
    if (info.area.zoomEnabled != 0)
        source = ZoomSource(info, m_picture.width, m_picture.height).value_or(all);
    const Rect destination = PictureRect(info, m_client);
    if (m_way == Way::Compose)
        return Stretch(m_overlay.View(), destination, picture, source);
    const WindowSink::Writing writing = m_sink->Write();
    return Stretch(writing.Image(), destination, picture, source);
}

bool CGDIRenderer::DrawOverview(const RenderInfo& info) {
    const bool window = info.area.overviewIsWindow != 0;
    if (info.area.overviewEnabled == 0 || (window && m_overviewSink == nullptr)) {
        m_overview.Free();
        return true;
    }
    const auto place = OverviewRect(info, window ? m_overviewSink->Size() : WindowWatch::Size{});
    if (!place)
        return true;
    m_overviewRect = *place;
    if (window) {
        const WindowSink::Writing writing = m_overviewSink->Write();
        return Stretch(writing.Image(), *place, Picture(), Whole(m_picture));
    }
    // It goes on top of text that is not drawn yet: kept aside, cut to what can show.
    const Rect seen = place->Intersected(m_way == Way::Direct ? Whole(m_client) : m_overlay.View().Bounds());
    if (seen.Empty()) {
        m_overviewRect = {};
        return true;
    }
    const auto width = static_cast<uint32_t>(seen.Width());
    const auto height = static_cast<uint32_t>(seen.Height());
    if (!m_overview.Reuse(width, height))
        return false;
    m_overviewRect = seen;
    return Stretch(m_overview.View(), place->Moved(-seen.left, -seen.top), Picture(), Whole(m_picture));
}

Outcome CGDIRenderer::Present(const FramePtr* frame, const RenderInfo* info) {
    if (!info->presentEnabled || m_picture.width == 0)
        return Outcome::NotDue;
    if (m_failed)
        return Outcome::Failed;
    if (m_pass == Pass::Nothing)
        return Outcome::NothingToDrawOn;    // no failure: the window may be replaced
    if (m_pass == Pass::Skip)
        return Outcome::Busy;
    Outcome outcome = Outcome::NothingToDrawOn;
    bool refreshed = false;
    if (m_way == Way::Bordered || !info->fullWindow)
        refreshed = Refresh(**frame, *info);
    if (info->area.overviewIsWindow != 0 && m_overviewSink != nullptr && !m_overviewRect.Empty() &&
        m_overviewSink->Put({&m_overviewRect, 1}))
        outcome = Outcome::Put;
    if (m_pass == Pass::Draw) {
        const Outcome finished = m_failed ? Outcome::Failed : Finish(*info, refreshed);
        if (finished == Outcome::Failed)
            return finished;
        if (finished == Outcome::Put)
            outcome = finished;
    }
    m_force = false;    // what comes into view again is drawn anew
    return outcome;
}

// ---- Margins and text ----

// False where there is no memory. A new overlay has neither bands nor text.
bool CGDIRenderer::EnsureOverlay(const RenderInfo& info) {
    int64_t width = std::max<int64_t>(int64_t{m_picture.width} + kBorderRoom, m_client.width);
    int64_t height = std::max<int64_t>(int64_t{m_picture.height} + kBorderRoom, m_client.height);
    if (UsesBorder(info)) {
        width = std::max(width, int64_t{m_picture.width} + info.border.left + info.border.right);
        height = std::max(height, int64_t{m_picture.height} + info.border.top + info.border.bottom);
    }
    if (m_overlay.View().width == width && m_overlay.View().height == height)
        return true;
    m_lastText = {};
    m_force = true;
    if (width > limits::kMaxPictureSide || height > limits::kMaxPictureSide) {
        m_overlay.Free();
        return false;
    }
    return m_overlay.Reuse(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
}

bool CGDIRenderer::RefreshIsDue(const MediaFrameImpl& frame, const RenderInfo& info, int64_t wall) const {
    if (m_force || (info.flags & CORVANE_FLAG_GDI_COMPOSE) != 0)
        return true;
    if (m_way == Way::Bordered)
        return wall != m_lastText.wall || frame.Header().timeSeconds != m_lastText.timeSeconds;
    return TextDue(info.osdPolicy, m_lastText, wall, frame);
}

// Draws bands and text into the overlay when they are due; true when it did.
bool CGDIRenderer::Refresh(const MediaFrameImpl& frame, const RenderInfo& info) {
    const bool bordered = m_way == Way::Bordered;
    const WindowWatch::Size inner = bordered ? m_picture : m_client;
    const Bands bands = BandRects(info, bordered, inner.width, inner.height);
    if (info.osd == nullptr && std::ranges::all_of(bands, &Rect::Empty))
        return false;
    if (!EnsureOverlay(info)) {
        m_failed = true;
        return false;
    }
    const int64_t wall = m_clock.Wall();
    if (!RefreshIsDue(frame, info, wall))
        return false;
    m_lastText.wall = wall;
    m_lastText.timeSeconds = frame.Header().timeSeconds;
    for (const Rect& band : bands)
        Fill(m_overlay.View(), band, info.background);
    if (frame.Header().timeSeconds != 0) {
        m_lastText.presentSeconds = frame.PresentTime().seconds;
        m_lastText.baseSeconds = frame.BaseTime().seconds;
        CallText(frame, info);
    }
    return true;
}

void CGDIRenderer::CallText(const MediaFrameImpl& frame, const RenderInfo& info) {
    OsdRecord record(&frame, int64_t{frame.Header().timeSeconds}, false);
    if (m_way == Way::Bordered) {
        record.info.width = m_picture.width + info.border.left + info.border.right;
        record.info.height = m_picture.height + info.border.top + info.border.bottom;
        record.info.flags = CORVANE_OSD_BORDER;
    } else {
        record.info.width = m_client.width;
        record.info.height = m_client.height;
    }
    if (TakeTextFresh(info))
        record.info.flags |= CORVANE_OSD_FRESH;
    record.Call(info.osd, info.osdContext, m_overlay.View());
}

// ---- To the window ----

Outcome CGDIRenderer::Finish(const RenderInfo& info, bool refreshed) {
    const bool overview = info.area.overviewIsWindow == 0 && !m_overviewRect.Empty();
    if (m_way == Way::Direct)
        return PutDirect(info, refreshed) ? Outcome::Put : Outcome::NothingToDrawOn;
    if (overview)
        Blit(m_overlay.View(), m_overviewRect.left, m_overviewRect.top, m_overview.View(), m_overview.View().Bounds());
    const Rect client = Whole(m_client);
    {
        const WindowSink::Writing writing = m_sink->Write();
        if (m_way == Way::Compose) {
            Blit(writing.Image(), 0, 0, m_overlay.View(), client);
        } else {
            const Rect source{0, 0, int64_t{m_picture.width} + info.border.left + info.border.right,
                              int64_t{m_picture.height} + info.border.top + info.border.bottom};
            if (!Stretch(writing.Image(), client, AsPicture(m_overlay.View()), source))
                return Outcome::Failed;
        }
    }
    return m_sink->Put({&client, 1}) ? Outcome::Put : Outcome::NothingToDrawOn;
}

bool CGDIRenderer::PutDirect(const RenderInfo& info, bool refreshed) {
    const bool overview = info.area.overviewIsWindow == 0 && !m_overviewRect.Empty();
    const Rect client = Whole(m_client);
    std::vector<Rect> parts{refreshed ? client : PictureRect(info, m_client)};
    {
        const WindowSink::Writing writing = m_sink->Write();
        if (refreshed) {
            for (const Rect& band : BandRects(info, false, m_client.width, m_client.height))
                Blit(writing.Image(), band.left, band.top, m_overlay.View(), band);
        }
        if (overview) {
            Blit(writing.Image(), m_overviewRect.left, m_overviewRect.top, m_overview.View(),
                 m_overview.View().Bounds());
            if (!parts.front().Contains(m_overviewRect))
                parts.push_back(m_overviewRect);
        }
    }
    return m_sink->Put(parts);
}

}    // namespace corvane
