#include "render/SurfaceSet.h"

namespace corvane {

namespace {

constexpr int64_t kRoomBeside = 320;    // pixels
constexpr int64_t kRoomBelow = 240;

}    // namespace

Rect SurfaceSet::SpareRect(const PresentSettings& settings, WindowWatch::Size size) {
    const int64_t width = size.width;
    const int64_t height = size.height;
    if (settings.OverviewAside() == nullptr)
        return {0, 0, width, height};
    if (width < height)
        return {0, height, width, height + kRoomBelow};
    return {width, 0, width + kRoomBeside, height};
}

std::unique_ptr<SurfaceSet> SurfaceSet::Make(std::shared_ptr<MonitorView> view, WindowWatch::Size size,
                                             const Rect& spare) {
    std::unique_ptr<SurfaceSet> set(new SurfaceSet(std::move(view), size, spare));
    set->m_composite =
        set->m_view->Device().CreateComposite(static_cast<uint32_t>(spare.right), static_cast<uint32_t>(spare.bottom));
    return set->m_composite != nullptr ? std::move(set) : nullptr;
}

bool SurfaceSet::Resize(WindowWatch::Size size, const Rect& spare) {
    if (!m_composite->Resize(static_cast<uint32_t>(spare.right), static_cast<uint32_t>(spare.bottom)))
        return false;
    FreeText();
    m_size = size;
    m_spare = spare;
    return true;
}

bool SurfaceSet::EnsureText() {
    if (m_text != nullptr)
        return true;
    BlitDevice& device = m_view->Device();
    m_textSystem = device.CreateTextSystem(m_size.width, m_size.height);
    if (m_textSystem != nullptr)
        m_text = device.CreateText(m_size.width, m_size.height + 1);
    if (m_text == nullptr) {
        FreeText();
        return false;
    }
    (void)m_text->Fill({0, 0, m_size.width, int64_t{m_size.height} + 1}, 0);
    return true;
}

void SurfaceSet::FreeText() {
    m_text.reset();
    m_textSystem.reset();
}

}    // namespace corvane
