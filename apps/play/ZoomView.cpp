#include "ZoomView.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kSmallestSide = 1.0 / 32;

}    // namespace

// Moved into the picture where it would stick out.
void ZoomView::Show(double left, double top, double side) {
    m_shown.left = std::clamp(left, 0.0, 1 - side);
    m_shown.top = std::clamp(top, 0.0, 1 - side);
    m_shown.right = m_shown.left + side;
    m_shown.bottom = m_shown.top + side;
}

bool ZoomView::To(double x1, double y1, double x2, double y2) {
    const double now = m_shown.right - m_shown.left;
    const double side = std::clamp(now * std::max(std::abs(x2 - x1), std::abs(y2 - y1)), kSmallestSide, 1.0);
    if (side >= now)
        return false;
    m_before.push_back(m_shown);
    Show(m_shown.left + now * (x1 + x2) / 2 - side / 2, m_shown.top + now * (y1 + y2) / 2 - side / 2, side);
    return true;
}

bool ZoomView::At(double x, double y, double factor) {
    const double now = m_shown.right - m_shown.left;
    const double side = std::clamp(now / factor, kSmallestSide, 1.0);
    if (side == now)
        return false;
    Show(m_shown.left + x * (now - side), m_shown.top + y * (now - side), side);
    return true;
}

bool ZoomView::Back() {
    if (m_before.empty())
        return Reset();
    m_shown = m_before.back();
    m_before.pop_back();
    return true;
}

bool ZoomView::Reset() {
    const bool changes = !Whole();
    m_before.clear();
    m_shown = {};
    return changes;
}
