// Which part of a picture is shown, in shares of its sides. Both sides are always the same share, so that zooming never
// changes the proportions. Knows no window and no channel.
#pragma once

#include <vector>

class ZoomView {
public:
    struct Part {
        double left = 0, top = 0, right = 1, bottom = 1;
    };

    const Part& Shown() const { return m_shown; }
    bool Whole() const { return Factor() <= 1; }
    double Factor() const { return 1 / (m_shown.right - m_shown.left); }

    // All three take places as shares of what is shown now, and tell whether anything changed.
    // Shows what was dragged, in any direction, widened to the picture's proportions; no further than 32 times.
    bool To(double x1, double y1, double x2, double y2);
    // `factor` times as large; what lies at (x, y) stays there as far as the picture reaches.
    bool At(double x, double y, double factor);

    // The view before the last To, or the whole picture.
    bool Back();
    bool Reset();

private:
    void Show(double left, double top, double side);

    Part m_shown;
    std::vector<Part> m_before;
};
