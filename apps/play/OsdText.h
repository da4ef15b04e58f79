// The player's text in its windows and pictures.
#pragma once

struct OsdInfo;
struct _cairo;

constexpr int kTextMargin = 28;    // pixels above the picture, with room for one line

// Date and time in the top margin. While there is no picture: in the middle of the window, with the reason.
void DrawOsdText(const OsdInfo& info);

// Light text with a dark edge, readable on every background; its baseline at (x, y), `size` in pixels.
void DrawEdgedText(_cairo* cairo, const char* text, double x, double y, double size);
