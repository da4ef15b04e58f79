#include "OsdText.h"

#include <cairo.h>

#include <cstdio>

#include "corvane/corvane.h"

namespace {

constexpr double kTextSize = 16;    // pixels
constexpr double kLeft = 8;
constexpr double kBaseline = 20;
constexpr uint32_t kNoPicture = CORVANE_OSD_WAITING | CORVANE_OSD_STOPPED | CORVANE_OSD_TIME_ONLY;

void MakeText(const OsdInfo& info, char* text, size_t size) {
    const size_t length = info.time != nullptr ? strftime(text, size, "%Y-%m-%d %H:%M:%S", info.time) : 0;
    if ((info.flags & CORVANE_OSD_WAITING) != 0)
        std::snprintf(text + length, size - length, "  waiting for pictures %u", info.counter);
    else if ((info.flags & CORVANE_OSD_STOPPED) != 0)
        std::snprintf(text, size, "stopped");
}

void SelectFont(cairo_t* cairo, double size) {
    cairo_select_font_face(cairo, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cairo, size);
}

}    // namespace

void DrawOsdText(const OsdInfo& info) {
    char text[80] = {};
    MakeText(info, text, sizeof(text));
    cairo_t* const cairo = info.deviceContext;
    SelectFont(cairo, kTextSize);
    double x = kLeft;
    double y = kBaseline;
    if ((info.flags & kNoPicture) != 0) {
        cairo_text_extents_t extents;
        cairo_text_extents(cairo, text, &extents);
        x = (info.width - extents.width) / 2;
        y = info.height / 2.0;
    }
    DrawEdgedText(cairo, text, x, y, kTextSize);
}

void DrawEdgedText(_cairo* cairo, const char* text, double x, double y, double size) {
    SelectFont(cairo, size);
    cairo_move_to(cairo, x, y);
    cairo_text_path(cairo, text);
    cairo_set_source_rgb(cairo, 0, 0, 0);
    cairo_set_line_width(cairo, size / 5);
    cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
    cairo_stroke_preserve(cairo);
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_fill(cairo);
}
