// PNG files, written by cairo.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A picture to be drawn on and saved: pixels 0x00RRGGBB, rows from the top.
struct Canvas {
    Canvas(uint32_t canvasWidth, uint32_t canvasHeight, uint32_t color = 0)
        : width(canvasWidth), height(canvasHeight), pixels(size_t{canvasWidth} * canvasHeight, color) {}

    uint32_t width;
    uint32_t height;
    std::vector<uint32_t> pixels;
};

// White text with a dark edge, its baseline at (x, y).
struct Label {
    std::string text;
    double x, y;
    double size;    // pixels
};

// Draws the labels, writes the file. False when that cannot be done.
bool WritePng(const std::string& path, Canvas& canvas, const std::vector<Label>& labels = {});
