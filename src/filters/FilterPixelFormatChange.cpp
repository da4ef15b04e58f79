#include "filters/FilterPixelFormatChange.h"

#include "corvane/corvane.h"
#include "kernels/PackedYuv.h"
#include "kernels/PlaneCopy.h"
#include "kernels/SemiPlanar.h"
#include "kernels/YCbCrToRGB.h"
#include "kernels/YUVToRGB16.h"

namespace QMRX::Filter {

namespace kernels = corvane::kernels;

namespace {

using Colours = std::optional<corvane::ColourSignal>;

kernels::Source420 SourceOf(const Picture& picture) {
    return {picture.plane[0],  picture.plane[1],  picture.format == PF_I420 ? picture.plane[2] : nullptr,
            picture.stride[0], picture.stride[1], picture.stride[2]};
}

int32_t ToRgb(const FilterArgs& args, const Colours& colours, kernels::RgbLayout layout, bool bottomUp) {
    uint8_t* first = args.destination->plane[0];
    ptrdiff_t step = args.destination->stride[0];
    if (bottomUp && first != nullptr && args.height > 0) {
        first += (static_cast<ptrdiff_t>(args.height) - 1) * step;
        step = -step;
    }
    layout.matrix = colours ? kernels::MatrixBeside(*colours) : nullptr;
    return kernels::YCbCrToRGB(SourceOf(*args.source), first, step, args.width, args.height, layout);
}

int32_t ToRgb16(const FilterArgs& args, const Colours& colours, kernels::Rgb16Layout layout) {
    layout.matrix = colours ? &kernels::MatrixOf(*colours) : nullptr;
    return kernels::YUVToRGB16(SourceOf(*args.source), reinterpret_cast<uint16_t*>(args.destination->plane[0]),
                               args.destination->stride[0] / 2, args.width, args.height, layout);
}

// The destinations that both sources reach the same way. From NV12 each chroma row is taken apart while it is worked
// on, so that no picture stands in between.
int32_t ToAnyRgb(const FilterArgs& args, const Colours& colours) {
    switch (args.destination->format) {
    case PF_RGB555:
        return ToRgb16(args, colours, {.greenBits = 5, .redHigh = true});
    case PF_BGR555:
        return ToRgb16(args, colours, {.greenBits = 5, .redHigh = false});
    case PF_RGB565:
        return ToRgb16(args, colours, {.greenBits = 6, .redHigh = true});
    case PF_BGR565:
        return ToRgb16(args, colours, {.greenBits = 6, .redHigh = false});
    case PF_BGR24:
        return ToRgb(args, colours, {.bytes = 3, .redFirst = false}, false);
    case PF_BGR24_FLIP:
        return ToRgb(args, colours, {.bytes = 3, .redFirst = false}, true);
    case PF_RGB24:
        return ToRgb(args, colours, {.bytes = 3, .redFirst = true}, false);
    case PF_BGRA32:
        return ToRgb(args, colours, {.bytes = 4, .redFirst = false}, false);
    case PF_BGRA32_FLIP:
        return ToRgb(args, colours, {.bytes = 4, .redFirst = false}, true);
    case PF_RGBA32:
        return ToRgb(args, colours, {.bytes = 4, .redFirst = true}, false);
    default:
        return -1;
    }
}

int32_t CopyPlane(const Picture& from, int fromPlane, const Picture& to, int toPlane, uint32_t width, uint32_t height,
                  uint32_t mode) {
    return kernels::PlaneCopy(from.plane[fromPlane], from.stride[fromPlane], to.plane[toPlane], to.stride[toPlane],
                              width, height, mode);
}

int32_t FromI420(const FilterArgs& args, const Colours& colours) {
    const Picture& from = *args.source;
    const Picture& to = *args.destination;
    switch (to.format) {
    case PF_I420:
    case PF_YV12: {
        const int uPlane = to.format == PF_I420 ? 1 : 2;
        constexpr uint32_t kMode = kernels::kCopyStreamingStores;
        if (CopyPlane(from, 0, to, 0, args.width, args.height, kMode) != 0 ||
            CopyPlane(from, 1, to, uPlane, args.width / 2, args.height / 2, kMode) != 0)
            return -1;
        return CopyPlane(from, 2, to, 3 - uPlane, args.width / 2, args.height / 2, kMode);
    }
    case PF_NV12:
        return kernels::I420ToNV12(from.plane[0], from.stride[0], from.plane[1], from.stride[1], from.plane[2],
                                   from.stride[2], to.plane[0], to.stride[0], to.plane[1], to.stride[1], args.width,
                                   args.height);
    case PF_YUY2:
        return kernels::PlanarToYUY2(from.plane[0], from.stride[0], from.plane[1], from.stride[1], from.plane[2],
                                     from.stride[2], to.plane[0], to.stride[0], args.width, args.height);
    case PF_UYVY:
        return kernels::PlanarToUYVY(from.plane[0], from.stride[0], from.plane[1], from.stride[1], from.plane[2],
                                     from.stride[2], to.plane[0], to.stride[0], args.width, args.height);
    default:
        return from.plane[2] != nullptr ? ToAnyRgb(args, colours) : -1;
    }
}

int32_t FromNV12(const FilterArgs& args, const Colours& colours) {
    const Picture& from = *args.source;
    const Picture& to = *args.destination;
    switch (to.format) {
    case PF_NV12: {
        constexpr uint32_t kMode = kernels::kCopyStreamingStores | kernels::kCopyStreamingLoads;
        if (CopyPlane(from, 0, to, 0, args.width, args.height, kMode) != 0)
            return -1;
        return CopyPlane(from, 1, to, 1, args.width, args.height / 2, kMode);
    }
    case PF_I420:
    case PF_YV12: {
        const int uPlane = to.format == PF_I420 ? 1 : 2;
        return kernels::NV12ToI420(from.plane[0], from.stride[0], from.plane[1], from.stride[1], to.plane[0],
                                   to.stride[0], to.plane[uPlane], to.stride[uPlane], to.plane[3 - uPlane],
                                   to.stride[3 - uPlane], args.width, args.height);
    }
    case PF_YUY2:
        return kernels::NV12ToYUY2(from.plane[0], from.stride[0], from.plane[1], from.stride[1], to.plane[0],
                                   to.stride[0], args.width, args.height);
    case PF_UYVY:
        return kernels::NV12ToUYVY(from.plane[0], from.stride[0], from.plane[1], from.stride[1], to.plane[0],
                                   to.stride[0], args.width, args.height);
    default:
        return ToAnyRgb(args, colours);
    }
}

}    // namespace

int32_t FilterPixelFormatChange::Process(FilterArgs* args) {
    if (args == nullptr || args->source == nullptr || args->destination == nullptr)
        return -1;
    switch (args->source->format) {
    case PF_I420:
        return FromI420(*args, m_colours) == 0 ? 0 : -1;
    case PF_NV12:
        return FromNV12(*args, m_colours) == 0 ? 0 : -1;
    default:
        return -1;
    }
}

}    // namespace QMRX::Filter
