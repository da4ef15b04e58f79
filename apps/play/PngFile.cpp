#include "PngFile.h"

#include <cairo.h>

#include "OsdText.h"

bool WritePng(const std::string& path, Canvas& canvas, const std::vector<Label>& labels) {
    cairo_surface_t* const surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(canvas.pixels.data()), CAIRO_FORMAT_RGB24, static_cast<int>(canvas.width),
        static_cast<int>(canvas.height), static_cast<int>(canvas.width * sizeof(uint32_t)));
    cairo_t* const cairo = cairo_create(surface);
    for (const Label& label : labels)
        DrawEdgedText(cairo, label.text.c_str(), label.x, label.y, label.size);
    const bool drawn = cairo_status(cairo) == CAIRO_STATUS_SUCCESS;
    cairo_destroy(cairo);
    cairo_surface_flush(surface);
    const bool written = drawn && cairo_surface_write_to_png(surface, path.c_str()) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(surface);
    return written;
}
