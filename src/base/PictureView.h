// Pixels in memory: planes, strides, size, format and colours. This is the only description of a picture inside the
// library. The records of decoder.h and filter.h are converted where those interfaces begin.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>

#include "base/ColourSignal.h"
#include "base/PictureSize.h"
#include "base/Rectangle.h"
#include "corvane/corvane.h"

namespace corvane {

// Bytes of a pixel; in planar formats of a luma sample. 0: an unknown format.
constexpr uint32_t PixelBytes(uint32_t format) {
    switch (format) {
    case PF_I420:
    case PF_YV12:
    case PF_NV12:
        return 1;
    case PF_YUY2:
    case PF_UYVY:
    case PF_RGB555:
    case PF_RGB565:
    case PF_BGR555:
    case PF_BGR565:
        return 2;
    case PF_BGR24:
    case PF_BGR24_FLIP:
    case PF_RGB24:
        return 3;
    case PF_BGRA32:
    case PF_BGRA32_FLIP:
    case PF_RGBA32:
        return 4;
    default:
        return 0;
    }
}

// Whether the bottom row is first in memory.
constexpr bool IsBottomUp(uint32_t format) {
    return format == PF_BGR24_FLIP || format == PF_BGRA32_FLIP;
}

// The format without the order of rows and planes in memory, as a view has it.
constexpr uint32_t PixelFormat(uint32_t format) {
    switch (format) {
    case PF_YV12:
        return PF_I420;
    case PF_BGR24_FLIP:
        return PF_BGR24;
    case PF_BGRA32_FLIP:
        return PF_BGRA32;
    default:
        return format;
    }
}

// One plane: rows of pixels of `pixelBytes` bytes. It owns nothing.
template <typename Byte>
struct BasicPlaneView {
    Byte* data = nullptr;    // the top row
    ptrdiff_t stride = 0;    // bytes, as that of a picture
    PictureSize size;        // pixels
    uint32_t pixelBytes = 1;

    // NOLINTNEXTLINE(google-explicit-constructor): as a pointer converts to one to const
    operator BasicPlaneView<const Byte>() const requires(!std::is_const_v<Byte>) {
        return {data, stride, size, pixelBytes};
    }
};

// A picture. It owns nothing. The order of rows and planes in memory is no part of the format: a picture whose bottom
// row is first in memory has a negative stride, and a picture in PF_YV12 is one in PF_I420 whose V plane comes first.
template <typename Byte>
struct BasicPictureView {
    Byte* plane[3] = {};         // the top rows: of Y, U, V; of Y and U V pairs; or of whole pixels
    ptrdiff_t stride[3] = {};    // bytes from a row to the one below
    PictureSize size;
    uint32_t format = 0;    // PF_*, but none of PF_YV12, PF_BGR24_FLIP, PF_BGRA32_FLIP
    // What Y, U and V mean. Without a value: full-range BT.601, and the analogue matrix where 16 bit RGB is made.
    std::optional<ColourSignal> colours{};

    // NOLINTNEXTLINE(google-explicit-constructor)
    operator BasicPictureView<const Byte>() const requires(!std::is_const_v<Byte>) {
        return {{plane[0], plane[1], plane[2]}, {stride[0], stride[1], stride[2]}, size, format, colours};
    }

    explicit operator bool() const { return plane[0] != nullptr; }
    bool TwoPlanes() const { return format == PF_NV12; }    // of Y and of U V pairs
    bool ThreePlanes() const { return format == PF_I420; }
    int PlaneCount() const { return ThreePlanes() ? 3 : TwoPlanes() ? 2 : 1; }
    // Whether none of the planes that the format has is null.
    bool Complete() const {
        return std::all_of(plane, plane + PlaneCount(), [](const Byte* one) { return one != nullptr; });
    }
    uint32_t PixelBytes() const { return corvane::PixelBytes(format); }
    Rect Bounds() const { return {0, 0, size.width, size.height}; }

    // Of the first plane.
    Byte* Row(int64_t y) const { return plane[0] + static_cast<ptrdiff_t>(y) * stride[0]; }
    Byte* At(int64_t x, int64_t y) const { return Row(y) + x * PixelBytes(); }
    // The first byte in memory.
    Byte* Memory() const { return stride[0] < 0 ? Row(int64_t{size.height} - 1) : plane[0]; }

    // Chroma planes of odd sizes are rounded down. A pixel of U V pairs has 2 bytes.
    BasicPlaneView<Byte> Plane(int index) const {
        if (index == 0)
            return {plane[0], stride[0], size, PixelBytes()};
        return {plane[index], stride[index], {size.width / 2, size.height / 2}, TwoPlanes() ? 2u : 1u};
    }

    // `part` lies inside Bounds. Its left edge is even where two pixels of a row share chroma, its top edge where two
    // rows do.
    BasicPictureView Part(const Rect& part) const {
        BasicPictureView view = *this;
        view.size = {static_cast<uint32_t>(part.Width()), static_cast<uint32_t>(part.Height())};
        view.plane[0] = At(part.left, part.top);
        for (int i = 1; i < PlaneCount(); ++i)
            view.plane[i] +=
                static_cast<ptrdiff_t>(part.top / 2) * stride[i] + (TwoPlanes() ? part.left : part.left / 2);
        return view;
    }
    // The same memory, with the bottom row as the top row. Only where there is one plane.
    BasicPictureView Reversed() const {
        BasicPictureView view = *this;
        view.plane[0] = Row(int64_t{size.height} - 1);
        view.stride[0] = -stride[0];
        return view;
    }
};

using PlaneView = BasicPlaneView<uint8_t>;
using ConstPlaneView = BasicPlaneView<const uint8_t>;
using PictureView = BasicPictureView<uint8_t>;
using ConstPictureView = BasicPictureView<const uint8_t>;

}    // namespace corvane
