#include "platform/raster/Surface.h"

#include <cairo.h>

#include <algorithm>
#include <cstring>

#include "base/FailurePoint.h"
#include "base/Limits.h"

namespace corvane {

namespace {

bool MustFail() {
    return failure::MustFail(failure::Site::PlatformCall);
}

Status StatusOf(cairo_status_t status) {
    if (MustFail())
        status = CAIRO_STATUS_NO_MEMORY;
    if (status == CAIRO_STATUS_SUCCESS)
        return Status::Ok;
    return status == CAIRO_STATUS_NO_MEMORY ? Status::OutOfMemory : Status::Failed;
}

// A finished surface still returns the address of its pixels; only a context on it reports that it is finished.
Status CheckAlive(cairo_surface_t* surface) {
    cairo_t* const probe = cairo_create(surface);
    const Status status = StatusOf(cairo_status(probe));
    cairo_destroy(probe);
    return status;
}

// A field of `bits` bits from bit `shift` on, scaled to 8 bits.
uint32_t Field(uint32_t pixel, uint32_t shift, uint32_t bits) {
    const uint32_t most = (1u << bits) - 1;
    return ((pixel >> shift & most) * 255 + most / 2) / most;
}

uint32_t Grey(uint32_t level) {
    return level * 0x010101u;
}

// Pixel `x` of a row as 0x00RRGGBB. Colours with alpha are premultiplied, which is their value over black.
uint32_t PixelOf(cairo_format_t format, const uint8_t* row, uint32_t x) {
    uint32_t pixel = 0;
    uint16_t word = 0;
    switch (format) {
    case CAIRO_FORMAT_A8:
        return Grey(row[x]);
    case CAIRO_FORMAT_A1:    // whole words of 32 bits, from the lowest bit on
        std::memcpy(&pixel, row + x / 32 * size_t{4}, 4);
        return Grey((pixel >> x % 32 & 1) * 255);
    case CAIRO_FORMAT_RGB16_565:
        std::memcpy(&word, row + 2 * size_t{x}, 2);
        return Field(word, 11, 5) << 16 | Field(word, 5, 6) << 8 | Field(word, 0, 5);
    case CAIRO_FORMAT_RGB30:
        std::memcpy(&pixel, row + 4 * size_t{x}, 4);
        return Field(pixel, 20, 10) << 16 | Field(pixel, 10, 10) << 8 | Field(pixel, 0, 10);
    default:
        std::memcpy(&pixel, row + 4 * size_t{x}, 4);
        return pixel & 0xFFFFFFu;
    }
}

bool Known(cairo_format_t format) {
    switch (format) {
    case CAIRO_FORMAT_ARGB32:
    case CAIRO_FORMAT_RGB24:
    case CAIRO_FORMAT_A8:
    case CAIRO_FORMAT_A1:
    case CAIRO_FORMAT_RGB16_565:
    case CAIRO_FORMAT_RGB30:
        return true;
    default:
        return false;
    }
}

// Checks the size in the first chunk of a PNG file before memory is allocated for it.
bool PngFits(std::span<const uint8_t> file) {
    constexpr uint8_t kStart[16] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    if (file.size() < 24 || !std::equal(kStart, kStart + 16, file.data()))
        return false;
    const auto bigEndian = [&](size_t at) {
        return uint32_t{file[at]} << 24 | uint32_t{file[at + 1]} << 16 | uint32_t{file[at + 2]} << 8 | file[at + 3];
    };
    return limits::FitsPicture(bigEndian(16), bigEndian(20));
}

cairo_status_t ReadSpan(void* context, unsigned char* out, unsigned int size) {
    auto& rest = *static_cast<std::span<const uint8_t>*>(context);
    if (size > rest.size())
        return CAIRO_STATUS_READ_ERROR;
    std::memcpy(out, rest.data(), size);
    rest = rest.subspan(size);
    return CAIRO_STATUS_SUCCESS;
}

}    // namespace

Status CopySurface(cairo_surface_t* surface, Raster& out) {
    if (surface == nullptr || cairo_surface_get_type(surface) != CAIRO_SURFACE_TYPE_IMAGE)
        return Status::Failed;
    CORVANE_RETURN_IF_FAILED(CheckAlive(surface));
    cairo_surface_flush(surface);
    const uint8_t* const data = cairo_image_surface_get_data(surface);
    const cairo_format_t format = cairo_image_surface_get_format(surface);
    const int width = cairo_image_surface_get_width(surface);
    const int height = cairo_image_surface_get_height(surface);
    const ptrdiff_t step = cairo_image_surface_get_stride(surface);
    if (data == nullptr || !Known(format) || width <= 0 || height <= 0 ||
        !limits::FitsPicture(static_cast<uint64_t>(width), static_cast<uint64_t>(height)))
        return Status::Failed;
    Raster copy;
    if (!copy.Resize(static_cast<uint32_t>(width), static_cast<uint32_t>(height)))
        return Status::OutOfMemory;
    const PictureView& to = copy.View();
    for (uint32_t y = 0; y < to.size.height; ++y) {
        const uint8_t* const row = data + static_cast<ptrdiff_t>(y) * step;
        auto* const pixels = reinterpret_cast<uint32_t*>(to.Row(y));
        for (uint32_t x = 0; x < to.size.width; ++x)
            pixels[x] = PixelOf(format, row, x);
    }
    out = std::move(copy);
    return Status::Ok;
}

Status ReadPng(std::span<const uint8_t> file, Raster& out) {
    if (!PngFits(file))
        return Status::Failed;
    cairo_surface_t* const surface = cairo_image_surface_create_from_png_stream(&ReadSpan, &file);
    Status status = StatusOf(cairo_surface_status(surface));
    if (Ok(status))
        status = CopySurface(surface, out);
    cairo_surface_destroy(surface);
    return status;
}

}    // namespace corvane
