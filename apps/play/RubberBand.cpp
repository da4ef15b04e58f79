#include "RubberBand.h"

namespace {

constexpr uint32_t kThick = 2;    // pixels

}    // namespace

void RubberBand::Show(const Window& window, uint32_t parent, const Box& box) {
    if (m_parent != parent) {
        Hide(window);
        for (uint32_t& edge : m_edges)
            edge = window.MakeChild(parent, m_color);
        m_parent = parent;
    }
    if (m_shown && box == m_box)
        return;
    m_box = box;
    const int32_t right = box.x + static_cast<int32_t>(box.width - kThick);
    const int32_t bottom = box.y + static_cast<int32_t>(box.height - kThick);
    const Box places[] = {{box.x, box.y, box.width, kThick},
                          {box.x, bottom, box.width, kThick},
                          {box.x, box.y, kThick, box.height},
                          {right, box.y, kThick, box.height}};
    for (int i = 0; i < 4; ++i) {
        window.PlaceChild(m_edges[i], places[i]);
        if (!m_shown)
            window.ShowChild(m_edges[i], true);
    }
    m_shown = true;
}

void RubberBand::Hide(const Window& window) {
    for (const uint32_t edge : m_edges)
        if (m_shown)
            window.ShowChild(edge, false);
    m_shown = false;
}
