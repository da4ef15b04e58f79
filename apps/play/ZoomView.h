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

    // All three take places as shares of the part that is shown, and return whether anything changed.
    // Shows the dragged rectangle, in any direction, widened to the picture's proportions; at most 32 times enlarged.
    bool To(double x1, double y1, double x2, double y2);
    // Enlarges by `factor`; the point at (x, y) stays in its place as far as the edges of the picture allow.
    bool At(double x, double y, double factor);

    // The view before the last To, or the whole picture.
    bool Back();
    bool Reset();

private:
    void Show(double left, double top, double side);

    Part m_shown;
    std::vector<Part> m_before;
};
