// The player's text in its window.
#pragma once

struct OsdInfo;

constexpr unsigned kTextMargin = 28;    // pixels above the picture, with room for one line

// Date and time in the top margin. Where there is no picture: in the middle of the window, with what it waits for.
void DrawOsdText(const OsdInfo& info);
