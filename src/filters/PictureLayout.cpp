#include "base/Limits.h"
#include "filters/FilterChain.h"

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

void FillPicture(QMRX::Filter::Picture& picture, uint8_t* buffer, uint32_t stride, uint32_t height, uint32_t format) {
    const auto row = static_cast<int32_t>(stride);
    const size_t lumaSize = size_t{stride} * height;
    picture = {{buffer, nullptr, nullptr}, {row, 0, 0}, height, format};
    if (!IsPlanar(format))
        return;
    uint8_t* const chroma = buffer + lumaSize;
    if (format == PF_NV12) {
        picture.plane[1] = chroma;
        picture.stride[1] = row;
        return;
    }
    uint8_t* const second = chroma + lumaSize / 4;
    picture.plane[1] = format == PF_I420 ? chroma : second;
    picture.plane[2] = format == PF_I420 ? second : chroma;
    picture.stride[1] = picture.stride[2] = row / 2;
    picture.format = PF_I420;
}

PictureView LayOut(uint8_t* buffer, uint32_t stride, PictureSize size, uint32_t format) {
    QMRX::Filter::Picture picture;
    FillPicture(picture, buffer, stride, size.height, format);
    PictureView view{.size = size, .format = picture.format};
    for (int i = 0; i < 3; ++i) {
        view.plane[i] = picture.plane[i];
        view.stride[i] = picture.stride[i];
    }
    if (format == PF_BGR24_FLIP || format == PF_BGRA32_FLIP) {
        view.plane[0] += view.stride[0] * (static_cast<ptrdiff_t>(size.height) - 1);
        view.stride[0] = -view.stride[0];
        view.format = format == PF_BGR24_FLIP ? uint32_t{PF_BGR24} : uint32_t{PF_BGRA32};
    }
    return view;
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
