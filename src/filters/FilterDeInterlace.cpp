#include "filters/FilterDeInterlace.h"

#include "base/PictureLayout.h"
#include "filters/FilterPicture.h"
#include "kernels/Deinterlace.h"
#include "kernels/PlaneCopy.h"

namespace QMRX::Filter {

namespace kernels = corvane::kernels;

namespace {

constexpr uint32_t kCenterWeight = 128;

int32_t Weave(const Picture& from, const Picture& to, uint32_t width, uint32_t height) {
    for (int plane = 0; plane < 3; ++plane) {
        const uint32_t planeWidth = plane == 0 ? width : width / 2;
        const uint32_t rows = plane == 0 ? height : height / 2;
        const uint32_t fieldRows = rows / 2;
        const uint8_t* const source = from.plane[plane];
        uint8_t* const destination = to.plane[plane];
        if (kernels::WeavePlane(source, from.stride[plane], destination, to.stride[plane], planeWidth, fieldRows) != 0)
            return -1;
        // An odd last row belongs to no field: it is copied.
        const auto last = 2 * static_cast<ptrdiff_t>(fieldRows);
        if (rows % 2 != 0 && kernels::PlaneCopy(source + last * from.stride[plane], from.stride[plane],
                                                destination + last * to.stride[plane], to.stride[plane], planeWidth, 1,
                                                kernels::kCopyStreamingStores) != 0)
            return -1;
    }
    return 0;
}

int32_t Smooth(const Picture& from, const Picture& to, uint32_t width, uint32_t height) {
    for (int plane = 0; plane < 3; ++plane) {
        const uint32_t shift = plane == 0 ? 0 : 1;
        if (kernels::SmoothPlane(from.plane[plane], from.stride[plane], to.plane[plane], to.stride[plane],
                                 width >> shift, height >> shift, kCenterWeight) != 0)
            return -1;
    }
    return 0;
}

}    // namespace

void FilterDeInterlace::SetWeave(bool on) {
    m_weave = on;
    if (!on)
        m_woven.Free();
}

void FilterDeInterlace::SetSmooth(bool on) {
    m_smooth = on;
    if (!on)
        m_woven.Free();
}

int32_t FilterDeInterlace::Process(FilterArgs* args) {
    if (args == nullptr || args->source == nullptr || args->destination == nullptr || (!m_weave && !m_smooth))
        return -1;
    if (!m_smooth)
        return Weave(*args->source, *args->destination, args->width, args->height);
    if (!m_weave)
        return Smooth(*args->source, *args->destination, args->width, args->height);

    const uint64_t bytes = corvane::PictureBytes(PF_I420, args->width, args->height);
    if (!m_woven || m_wovenSize != corvane::PictureSize{args->width, args->height}) {
        if (bytes == 0 || !m_woven.Allocate(bytes))
            return static_cast<int32_t>(Status_OutOfMemory);
        m_wovenSize = {args->width, args->height};
    }
    const Picture woven = corvane::RecordOf(
        corvane::LayOut(m_woven.Data(), corvane::RowBytes(PF_I420, args->width), m_wovenSize, PF_I420));
    const int32_t result = Weave(*args->source, woven, args->width, args->height);
    return result == 0 ? Smooth(woven, *args->destination, args->width, args->height) : result;
}

}    // namespace QMRX::Filter
