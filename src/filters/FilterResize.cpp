#include "filters/FilterResize.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstring>
#include <new>

#include "base/FailurePoint.h"
#include "base/PictureLayout.h"
#include "filters/FilterPicture.h"
#include "filters/NearestSamples.h"

namespace QMRX::Filter {

namespace {

constexpr uintptr_t kScalerAlignment = 16;

template <uint32_t kType, int kFlag>
class Resize final : public FilterResize::Impl {
public:
    Resize() = default;
    ~Resize() override { sws_freeContext(m_context); }
    Resize(const Resize&) = delete;
    Resize& operator=(const Resize&) = delete;

    int32_t ScaleI420(const FilterArgs& args, uint32_t width, uint32_t height) override {
        return Scale(args, width, height, AV_PIX_FMT_YUV420P);
    }
    int32_t ScaleNV12(const FilterArgs& args, uint32_t width, uint32_t height) override {
        return Scale(args, width, height, AV_PIX_FMT_NV12);
    }
    uint32_t GetType() const override { return kType; }

private:
    int32_t Scale(const FilterArgs& args, uint32_t width, uint32_t height, AVPixelFormat format) {
        if (corvane::failure::MustFail(corvane::failure::Site::PlatformCall))
            return -1;
        const auto sourceHeight = static_cast<int>(args.height);
        m_context =
            sws_getCachedContext(m_context, static_cast<int>(args.width), sourceHeight, format, static_cast<int>(width),
                                 static_cast<int>(height), format, kFlag, nullptr, nullptr, nullptr);
        if (m_context == nullptr)
            return -1;
        // The scaler reads four pointers of each side.
        const Picture& from = *args.source;
        const Picture& to = *args.destination;
        const uint8_t* const source[4] = {from.plane[0], from.plane[1], from.plane[2], nullptr};
        const int sourceStride[4] = {from.stride[0], from.stride[1], from.stride[2], 0};
        uint8_t* const target[4] = {to.plane[0], to.plane[1], to.plane[2], nullptr};
        const int targetStride[4] = {to.stride[0], to.stride[1], to.stride[2], 0};
        return sws_scale(m_context, source, sourceStride, 0, sourceHeight, target, targetStride) < 0 ? -1 : 0;
    }

    SwsContext* m_context = nullptr;
};

// By tables, or by the scaler itself where there are none.
class ResizeNearest final : public FilterResize::Impl {
public:
    int32_t ScaleI420(const FilterArgs& args, uint32_t width, uint32_t height) override {
        return Pick(args, width, height) ? 0 : m_scaler.ScaleI420(args, width, height);
    }
    int32_t ScaleNV12(const FilterArgs& args, uint32_t width, uint32_t height) override {
        return Pick(args, width, height) ? 0 : m_scaler.ScaleNV12(args, width, height);
    }
    uint32_t GetType() const override { return m_scaler.GetType(); }

private:
    bool Pick(const FilterArgs& args, uint32_t width, uint32_t height) {
        if (corvane::failure::MustFail(corvane::failure::Site::PlatformCall) ||
            !m_samples.Make(args.width, args.height, width, height, args.source->format))
            return false;
        m_samples.Scale(*args.source, *args.destination);
        return true;
    }

    NearestSamples m_samples;
    Resize<0, SWS_POINT> m_scaler;
};

using ResizeLinear = Resize<1, SWS_BILINEAR>;
using ResizeCubic = Resize<2, SWS_BICUBIC>;
using ResizeLanczos = Resize<3, SWS_LANCZOS>;

FilterResize::Impl* MakeImpl(uint32_t type) {
    switch (type) {
    case 0:
        return new (std::nothrow) ResizeNearest;
    case 1:
        return new (std::nothrow) ResizeLinear;
    case 2:
        return new (std::nothrow) ResizeCubic;
    case 3:
        return new (std::nothrow) ResizeLanczos;
    default:
        return nullptr;
    }
}

// Whether the scaler can use the picture. It writes whole vectors, beyond the end of rows that are not aligned; and an
// odd height has (height + 1) / 2 chroma rows for it, but height / 2 in pictures of this library.
bool FitsScaler(const Picture& picture, uint32_t height) {
    if (height % 2 != 0)
        return false;
    for (int i = 0; i < 3; ++i) {
        if ((reinterpret_cast<uintptr_t>(picture.plane[i]) | static_cast<uintptr_t>(picture.stride[i])) %
            kScalerAlignment)
            return false;
    }
    return true;
}

// Makes `copy` a picture of that size with its height rounded up to even.
bool MakeCopy(corvane::AlignedBuffer& memory, uint32_t width, uint32_t height, uint32_t format, Picture& copy) {
    const uint32_t rows = height + height % 2;
    const uint64_t size = corvane::PictureBytes(PF_I420, width, rows);
    if (size == 0 || (memory.Size() != size && !memory.Allocate(size)))
        return false;
    copy = corvane::RecordOf(corvane::LayOut(memory.Data(), corvane::RowBytes(PF_I420, width), {width, rows}, format));
    return true;
}

// Copies the luma rows and the height / 2 chroma rows.
void CopyPlanes(const Picture& from, const Picture& to, uint32_t width, uint32_t height) {
    const size_t chromaRow = (size_t{width} + 1) / 2 * (from.format == PF_NV12 ? 2 : 1);
    for (int i = 0; i < 3 && from.plane[i] != nullptr; ++i) {
        const auto fits = static_cast<size_t>(std::min(from.stride[i], to.stride[i]));
        const size_t rowBytes = std::min(i == 0 ? size_t{width} : chromaRow, fits);
        for (ptrdiff_t row = 0; row < static_cast<ptrdiff_t>(i == 0 ? height : height / 2); ++row)
            std::memcpy(to.plane[i] + row * to.stride[i], from.plane[i] + row * from.stride[i], rowBytes);
    }
}

// Adds the chroma row that an odd height lacks: a copy of the last one, or no colour where there is none.
void RepeatLastChromaRow(const Picture& picture, uint32_t height) {
    for (int i = 1; i < 3 && picture.plane[i] != nullptr; ++i) {
        const auto size = static_cast<size_t>(picture.stride[i]);
        uint8_t* const missing = picture.plane[i] + size * (height / 2);
        if (height > 1)
            std::memcpy(missing, missing - size, size);
        else
            std::memset(missing, 128, size);
    }
}

}    // namespace

FilterResize::FilterResize() : m_impl(std::make_unique<ResizeNearest>()) {}

FilterResize::~FilterResize() = default;

void FilterResize::SetSize(uint32_t width, uint32_t height) {
    m_width = width;
    m_height = height;
}

void FilterResize::SetType(uint32_t type) {
    if (m_impl->GetType() == type)
        return;
    if (Impl* impl = MakeImpl(type))
        m_impl.reset(impl);
}

void FilterResize::FreeScratch() {
    m_source.Free();
    m_target.Free();
}

int32_t FilterResize::Process(FilterArgs* args) {
    const uint32_t format = args->source->format;
    if (format != PF_I420 && format != PF_NV12)
        return -1;
    if (corvane::PictureBytes(PF_I420, args->width, args->height) == 0 ||
        corvane::PictureBytes(PF_I420, m_width, m_height) == 0)
        return -1;

    Picture source = *args->source;
    if (FitsScaler(source, args->height)) {
        m_source.Free();
    } else {
        if (!MakeCopy(m_source, args->width, args->height, format, source))
            return -1;
        CopyPlanes(*args->source, source, args->width, args->height);
        if (args->height % 2 != 0)
            RepeatLastChromaRow(source, args->height);
    }
    Picture target = *args->destination;
    const bool targetFits = FitsScaler(target, m_height);
    if (targetFits)
        m_target.Free();
    else if (!MakeCopy(m_target, m_width, m_height, format, target))
        return -1;

    const FilterArgs scaled{&source, &target, args->width, args->height};
    const int32_t result =
        format == PF_I420 ? m_impl->ScaleI420(scaled, m_width, m_height) : m_impl->ScaleNV12(scaled, m_width, m_height);
    if (result < 0)
        return -1;
    if (!targetFits)
        CopyPlanes(target, *args->destination, m_width, m_height);
    return 0;
}

}    // namespace QMRX::Filter
