#include "filters/FilterPixelFormatChange.h"

#include "filters/FilterPicture.h"
#include "kernels/PackedYuv.h"
#include "kernels/PlaneCopy.h"
#include "kernels/SemiPlanar.h"
#include "kernels/YCbCrToRGB.h"
#include "kernels/YUVToRGB16.h"

namespace QMRX::Filter {

namespace kernels = corvane::kernels;
using corvane::ConstPictureView;
using corvane::PictureSize;
using corvane::PictureView;

namespace {

// The kernels read three planes or two, so that two need no picture in between.
int32_t ToRgb(const ConstPictureView& from, const PictureView& to) {
    switch (to.format) {
    case PF_RGB555:
    case PF_RGB565:
    case PF_BGR555:
    case PF_BGR565:
        return kernels::YUVToRGB16(from, to);
    default:
        return kernels::YCbCrToRGB(from, to);
    }
}

int32_t CopyPlane(const ConstPictureView& from, const PictureView& to, int plane, uint32_t width, uint32_t height) {
    return kernels::PlaneCopy(from.plane[plane], from.stride[plane], to.plane[plane], to.stride[plane], width, height,
                              kernels::kCopyStreamingStores);
}

int32_t FromI420(const ConstPictureView& from, const PictureView& to) {
    switch (to.format) {
    case PF_I420:
        for (int plane = 0; plane < 3; ++plane) {
            const uint32_t shift = plane == 0 ? 0 : 1;
            if (CopyPlane(from, to, plane, to.size.width >> shift, to.size.height >> shift) != 0)
                return -1;
        }
        return 0;
    case PF_NV12:
        return kernels::I420ToNV12(from, to);
    case PF_YUY2:
        return kernels::PlanarToYUY2(from, to);
    case PF_UYVY:
        return kernels::PlanarToUYVY(from, to);
    default:
        return ToRgb(from, to);
    }
}

int32_t FromNV12(const ConstPictureView& from, const PictureView& to) {
    switch (to.format) {
    case PF_NV12:
        return CopyPlane(from, to, 0, to.size.width, to.size.height) == 0
                   ? CopyPlane(from, to, 1, to.size.width, to.size.height / 2)
                   : -1;
    case PF_I420:
        return kernels::NV12ToI420(from, to);
    case PF_YUY2:
        return kernels::NV12ToYUY2(from, to);
    case PF_UYVY:
        return kernels::NV12ToUYVY(from, to);
    default:
        return ToRgb(from, to);
    }
}

}    // namespace

int32_t FilterPixelFormatChange::Process(FilterArgs* args) {
    if (args == nullptr || args->source == nullptr || args->destination == nullptr)
        return -1;
    const PictureSize size{args->width, args->height};
    PictureView from = corvane::ViewOf(*args->source, size);
    const PictureView to = corvane::ViewOf(*args->destination, size);
    from.colours = m_colours;
    switch (args->source->format) {
    case PF_I420:
        return FromI420(from, to) == 0 ? 0 : -1;
    case PF_NV12:
        return FromNV12(from, to) == 0 ? 0 : -1;
    default:
        return -1;
    }
}

}    // namespace QMRX::Filter
