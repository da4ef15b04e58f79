#include "render/GDIRenderer.h"

#include <algorithm>

#include "base/Limits.h"

namespace corvane {

namespace {

constexpr uint32_t kBorderRoom = 100;    // pixels of the overlay beyond the picture, so that borders need no new one

constexpr Rect Whole(WindowWatch::Size size) {
    return {0, 0, size.width, size.height};
}

}    // namespace

const RendererTraits& CGDIRenderer::Traits() const {
    static constexpr RendererTraits traits{.name = "GDI",
                                           .needsWindow = true,
                                           .takesReferences = false,
                                           .scalesItself = false,
                                           .followsOnFailure = nullptr};
    return traits;
}

Outcome CGDIRenderer::Present(const FinishedPicture& picture, Pass& pass) {
    const BufferSlot* const buffer = picture.Buffer();
    if (!pass.settings.presentEnabled || buffer == nullptr)
        return Outcome::NotDue;
    Work work{.pass = pass,
              .settings = pass.settings,
              .frame = picture.frame,
              .picture = buffer->view,
              .force = pass.flags.redraw};
    Begin(work);
    if (work.scope == Scope::Nothing)
        return Outcome::NothingToDrawOn;    // no failure: the window may be replaced
    if (work.scope == Scope::Busy)
        return Outcome::Busy;
    bool refreshed = false;
    if (!Draw(work) || !Refresh(work, refreshed))
        return Outcome::Failed;
    Outcome outcome = Outcome::NothingToDrawOn;
    if (work.overviewSink != nullptr && !work.overview.Empty() && work.overviewSink->Put({&work.overview, 1}))
        outcome = Outcome::Put;
    if (work.scope == Scope::Draw) {
        const Outcome finished = Finish(work, refreshed);
        if (finished == Outcome::Failed)
            return finished;
        if (finished == Outcome::Put)
            outcome = finished;
    }
    pass.redrawn = true;    // a window that comes into view again is drawn anew
    return outcome;
}

void CGDIRenderer::Begin(Work& work) const {
    const PresentSettings& settings = work.settings;
    work.sink = work.pass.sinks.Of(settings.window);
    if (work.sink == nullptr)
        return;
    switch (work.sink->Prepare()) {
    case WindowSink::State::Ready:
        work.scope = Scope::Draw;
        work.force |= work.sink->Fresh();
        break;
    case WindowSink::State::Hidden:
        work.scope = Scope::TextOnly;
        break;
    case WindowSink::State::Busy:
        work.scope = Scope::Busy;
        break;
    case WindowSink::State::TooLarge:
    case WindowSink::State::Absent:
        break;
    }
    work.client = work.sink->Size();
    WindowSink* const overview = work.pass.sinks.Of(settings.OverviewAside());
    if (overview != nullptr && overview->Prepare() == WindowSink::State::Ready)
        work.overviewSink = overview;
    work.way = UsesBorder(settings)                               ? Way::Bordered
               : (settings.flags & CORVANE_FLAG_GDI_COMPOSE) != 0 ? Way::Compose
                                                                  : Way::Direct;
}

// False where there is no memory.
bool CGDIRenderer::Draw(Work& work) {
    FollowPlaces(work);
    if (work.way != Way::Direct && !EnsureOverlay(work))
        return false;
    if (work.scope == Scope::Draw)
        return DrawPicture(work) && DrawOverview(work);
    return work.settings.OverviewAside() == nullptr || DrawOverview(work);    // that window may be in view
}

// Where the place of the picture has changed, former pixels of the picture may belong to a band. Bands are drawn once
// then, whatever the text policy.
void CGDIRenderer::FollowPlaces(Work& work) {
    Rect canvas = Whole(work.client);
    Rect inside = PictureRect(work.settings, work.client);
    if (work.way == Way::Bordered) {
        inside = work.picture.Bounds().Moved(work.settings.border.left, work.settings.border.top);
        canvas = {0, 0, inside.right + work.settings.border.right, inside.bottom + work.settings.border.bottom};
    }
    work.force |= canvas != m_canvas || inside != m_inside;
    m_canvas = canvas;
    m_inside = inside;
}

bool CGDIRenderer::DrawPicture(const Work& work) {
    const PresentSettings& settings = work.settings;
    const Rect all = work.picture.Bounds();
    if (work.way == Way::Bordered)
        return Stretch(m_overlay.View(), all.Moved(settings.border.left, settings.border.top), work.picture, all);
    Rect source = all;
    if (settings.area.zoomEnabled != 0)
        source = ZoomSource(settings, work.picture.size.width, work.picture.size.height).value_or(all);
    const Rect destination = PictureRect(settings, work.client);
    if (work.way == Way::Compose)
        return Stretch(m_overlay.View(), destination, work.picture, source);
    const WindowSink::Writing writing = work.sink->Write();
    return Stretch(writing.Image(), destination, work.picture, source);
}

bool CGDIRenderer::DrawOverview(Work& work) {
    const DisplayArea& area = work.settings.area;
    const bool aside = work.settings.OverviewAside() != nullptr;
    const bool nowhere =
        aside ? work.overviewSink == nullptr : area.overviewIsWindow != 0 && work.settings.overviewWindow == nullptr;
    if (area.overviewEnabled == 0 || nowhere) {
        m_overview.Free();
        return true;
    }
    const auto place = OverviewRect(work.settings, aside ? work.overviewSink->Size() : work.client);
    if (!place)
        return true;
    if (aside) {
        work.overview = *place;
        const WindowSink::Writing writing = work.overviewSink->Write();
        return Stretch(writing.Image(), *place, work.picture, work.picture.Bounds());
    }
    // The overview lies over text, which is not drawn yet: it is kept aside, cut to its visible part.
    const Rect seen = place->Intersected(work.way == Way::Direct ? Whole(work.client) : m_overlay.View().Bounds());
    if (seen.Empty())
        return true;
    if (!m_overview.Reuse(static_cast<uint32_t>(seen.Width()), static_cast<uint32_t>(seen.Height())))
        return false;
    work.overview = seen;
    return Stretch(m_overview.View(), place->Moved(-seen.left, -seen.top), work.picture, work.picture.Bounds());
}

// ---- Margins and text ----

// False where there is no memory. A new overlay has neither bands nor text.
bool CGDIRenderer::EnsureOverlay(Work& work) {
    const Edges& border = work.settings.border;
    int64_t width = std::max<int64_t>(int64_t{work.picture.size.width} + kBorderRoom, work.client.width);
    int64_t height = std::max<int64_t>(int64_t{work.picture.size.height} + kBorderRoom, work.client.height);
    if (UsesBorder(work.settings)) {
        width = std::max(width, int64_t{work.picture.size.width} + border.left + border.right);
        height = std::max(height, int64_t{work.picture.size.height} + border.top + border.bottom);
    }
    if (m_overlay.View().size.width == width && m_overlay.View().size.height == height)
        return true;
    m_lastText = {};
    work.force = true;
    if (width > limits::kMaxPictureSide || height > limits::kMaxPictureSide) {
        m_overlay.Free();
        return false;
    }
    return m_overlay.Reuse(static_cast<uint32_t>(width), static_cast<uint32_t>(height));
}

bool CGDIRenderer::RefreshIsDue(const Work& work, int64_t wall) const {
    if (work.force || (work.settings.flags & CORVANE_FLAG_GDI_COMPOSE) != 0)
        return true;
    if (work.way == Way::Bordered)
        return wall != m_lastText.wall || work.frame->Header().timeSeconds != m_lastText.timeSeconds;
    return TextDue(work.settings.osdPolicy, m_lastText, wall, *work.frame);
}

// Draws bands and text into the overlay when they are due, and sets `refreshed` then. False: no memory.
bool CGDIRenderer::Refresh(Work& work, bool& refreshed) {
    const bool bordered = work.way == Way::Bordered;
    if (!bordered && work.settings.fullWindow)
        return true;
    const Bands bands = bordered ? BandRects(work.settings, true, work.picture.size.width, work.picture.size.height)
                                 : BandRects(work.settings, false, work.client.width, work.client.height);
    if (!work.settings.osd && std::ranges::all_of(bands, &Rect::Empty))
        return true;
    if (!EnsureOverlay(work))
        return false;
    const int64_t wall = m_clock.Wall();
    if (!RefreshIsDue(work, wall))
        return true;
    m_lastText.wall = wall;
    m_lastText.timeSeconds = work.frame->Header().timeSeconds;
    for (const Rect& band : bands)
        Fill(m_overlay.View(), band, work.settings.background);
    if (work.frame->Header().timeSeconds != 0) {
        m_lastText.presentSeconds = work.frame->PresentTime().seconds;
        m_lastText.baseSeconds = work.frame->BaseTime().seconds;
        CallText(work);
    }
    refreshed = true;
    return true;
}

void CGDIRenderer::CallText(Work& work) {
    OsdRecord record(work.frame.get(), int64_t{work.frame->Header().timeSeconds}, false);
    if (work.way == Way::Bordered) {
        record.info.width = work.picture.size.width + work.settings.border.left + work.settings.border.right;
        record.info.height = work.picture.size.height + work.settings.border.top + work.settings.border.bottom;
        record.info.flags = CORVANE_OSD_BORDER;
    } else {
        record.info.width = work.client.width;
        record.info.height = work.client.height;
    }
    record.CallIn(work.pass, m_overlay.View());
}

// ---- To the window ----

Outcome CGDIRenderer::Finish(const Work& work, bool refreshed) {
    if (work.way == Way::Direct)
        return PutDirect(work, refreshed) ? Outcome::Put : Outcome::NothingToDrawOn;
    if (work.overviewSink == nullptr && !work.overview.Empty())
        Blit(m_overlay.View(), work.overview.left, work.overview.top, m_overview.View(), m_overview.View().Bounds());
    const Rect client = Whole(work.client);
    {
        const WindowSink::Writing writing = work.sink->Write();
        if (work.way == Way::Compose) {
            Blit(writing.Image(), 0, 0, m_overlay.View(), client);
        } else {
            const Edges& border = work.settings.border;
            const Rect source{0, 0, int64_t{work.picture.size.width} + border.left + border.right,
                              int64_t{work.picture.size.height} + border.top + border.bottom};
            if (!Stretch(writing.Image(), client, m_overlay.View(), source))
                return Outcome::Failed;
        }
    }
    return work.sink->Put({&client, 1}) ? Outcome::Put : Outcome::NothingToDrawOn;
}

bool CGDIRenderer::PutDirect(const Work& work, bool refreshed) {
    const bool overview = work.overviewSink == nullptr && !work.overview.Empty();
    Rect parts[2] = {refreshed ? Whole(work.client) : PictureRect(work.settings, work.client)};
    size_t count = 1;
    {
        const WindowSink::Writing writing = work.sink->Write();
        if (refreshed) {
            for (const Rect& band : BandRects(work.settings, false, work.client.width, work.client.height))
                Blit(writing.Image(), band.left, band.top, m_overlay.View(), band);
        }
        if (overview) {
            Blit(writing.Image(), work.overview.left, work.overview.top, m_overview.View(), m_overview.View().Bounds());
            if (!parts[0].Contains(work.overview))
                parts[count++] = work.overview;
        }
    }
    return work.sink->Put({parts, count});
}

}    // namespace corvane
