#include "base/PictureLayout.h"

#include "base/Limits.h"

namespace corvane {

namespace {

// Row bytes by the tables of corvane.h, before the limits.
uint64_t AlignedRowBytes(uint32_t format, uint64_t width) {
    switch (format) {
    case PF_I420:
    case PF_YV12:
        return (width + 63) & ~uint64_t{63};
    case PF_NV12:
        return (width + 31) & ~uint64_t{31};
    case PF_YUY2:
    case PF_UYVY:
        return (2 * width + 31) & ~uint64_t{31};
    case PF_RGB555:
    case PF_RGB565:
    case PF_BGR555:
    case PF_BGR565:
        return ((16 * width + 31) >> 3) & ~uint64_t{3};
    case PF_BGR24:
    case PF_BGR24_FLIP:
    case PF_RGB24:
        return ((24 * width + 31) >> 3) & ~uint64_t{3};
    case PF_BGRA32:
    case PF_RGBA32:
    case PF_BGRA32_FLIP:
        return 4 * width;
    default:
        return 0;
    }
}

bool IsPlanar(uint32_t format) {
    return format == PF_I420 || format == PF_YV12 || format == PF_NV12;
}

}    // namespace

PictureView LayOut(uint8_t* memory, uint32_t stride, PictureSize size, uint32_t format) {
    const auto row = static_cast<ptrdiff_t>(stride);
    PictureView view{.plane = {memory}, .stride = {row}, .size = size, .format = PixelFormat(format)};
    uint8_t* const chroma = memory + size_t{stride} * size.height;
    uint8_t* const second = chroma + size_t{stride} * size.height / 4;
    switch (format) {
    case PF_NV12:
        view.plane[1] = chroma;
        view.stride[1] = row;
        return view;
    case PF_I420:
    case PF_YV12:
        view.plane[1] = format == PF_I420 ? chroma : second;
        view.plane[2] = format == PF_I420 ? second : chroma;
        view.stride[1] = view.stride[2] = row / 2;
        return view;
    default:
        return IsBottomUp(format) ? view.Reversed() : view;
    }
}

uint32_t RowBytes(uint32_t format, uint32_t width) {
    return width > limits::kMaxPictureSide ? 0 : static_cast<uint32_t>(AlignedRowBytes(format, width));
}

uint64_t PictureBytes(uint32_t format, uint32_t width, uint32_t height) {
    if (height > limits::kMaxPictureSide || uint64_t{width} * height > limits::kMaxPicturePixels)
        return 0;
    const uint64_t plane = uint64_t{RowBytes(format, width)} * height;
    return IsPlanar(format) ? plane * 3 / 2 : plane;
}

}    // namespace corvane
