// A frame, as around the rectangle that a mouse drags: four thin windows, since only the library draws on its windows.
#pragma once

#include "Window.h"

class RubberBand {
public:
    explicit RubberBand(uint32_t color) : m_color(color) {}    // 0xRRGGBB

    // In `window` or a window inside it.
    void Show(const Window& window, uint32_t parent, const Box& box);
    void Hide(const Window& window);

private:
    const uint32_t m_color;
    uint32_t m_edges[4] = {};
    Box m_box;
    uint32_t m_parent = 0;    // whose edges they are; 0: not made yet
    bool m_shown = false;
};
