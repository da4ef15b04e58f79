// The player's text in its windows and pictures.
#pragma once

struct OsdInfo;
struct _cairo;

constexpr int kTextMargin = 28;    // pixels above the picture, with room for one line

// Date and time in the top margin. Where there is no picture: in the middle of the window, with what it waits for.
void DrawOsdText(const OsdInfo& info);

// Light text with a dark edge, which reads on every background; its baseline at (x, y), `size` in pixels.
void DrawEdgedText(_cairo* cairo, const char* text, double x, double y, double size);
