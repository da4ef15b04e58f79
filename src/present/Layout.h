// The places of margins and borders around a picture, of the zoomed part and of the overview. Used by all renderers.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "present/PresentSettings.h"

namespace corvane {

// The inside of the window without its margins; all of it with `fullWindow`. May be empty.
Rect PictureRect(const PresentSettings& settings, WindowWatch::Size client);

// Whether the fixed border is drawn around a picture of native size.
bool UsesBorder(const PresentSettings& settings);

// The four bands, top, bottom, left, right, that surround the picture. With the border: around a picture of
// (width, height) whose left top corner is (border.left, border.top). Else: the margins of a window of (width, height).
// A band whose left is not below its right, or its top not below its bottom, is not drawn.
using Bands = std::array<Rect, 4>;
Bands BandRects(const PresentSettings& settings, bool bordered, int64_t width, int64_t height);

// The part of a source of this size that the client selected on the screen, at least one pixel; none where the
// selection lies outside the overview area, or where either is a window without a place on the screen.
std::optional<Rect> ZoomSource(const PresentSettings& settings, uint32_t sourceWidth, uint32_t sourceHeight);

// The part of a decoded picture of this size that a still of the selection shows, in even pixels, at least 2x2, inside
// the picture. None where zoom is off, where the selection does not lie inside the overview area, and for a picture of
// less than 2x2.
std::optional<Rect> ZoomCrop(const PresentSettings& settings, uint32_t width, uint32_t height);

// The place of the overview: in coordinates of the overview window, of `overviewSize`, where there is one, else of the
// main window. None where there is no place.
std::optional<Rect> OverviewRect(const PresentSettings& settings, WindowWatch::Size overviewSize);

}    // namespace corvane
