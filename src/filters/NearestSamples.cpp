#include "filters/NearestSamples.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <iterator>
#include <memory>

#include "base/PictureLayout.h"
#include "filters/FilterPicture.h"

namespace QMRX::Filter {

namespace {

struct FreeScaler {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
};

// A picture whose samples are their places along one axis, or the scaler's result of it.
struct Ramp {
    Ramp(bool across, uint32_t along, uint32_t other) : width(across ? along : other), height(across ? other : along) {}

    bool Allocate() {
        const uint32_t rows = height + height % 2;    // for the last chroma row
        if (!memory.Allocate(corvane::PictureBytes(PF_I420, width, rows)))
            return false;
        picture = corvane::RecordOf(
            corvane::LayOut(memory.Data(), corvane::RowBytes(PF_I420, width), {width, rows}, PF_I420));
        return true;
    }
    void Fill(bool across, uint32_t shift) const {
        for (int plane = 0; plane < 2; ++plane) {
            const uint32_t columns = plane == 0 ? width : (width + 1) / 2,
                           rows = plane == 0 ? height : (height + 1) / 2;
            for (uint32_t row = 0; row < rows; ++row)
                for (uint32_t column = 0; column < columns; ++column)
                    picture.plane[plane][static_cast<ptrdiff_t>(row) * picture.stride[plane] + column] =
                        static_cast<uint8_t>((across ? column : row) >> shift);
        }
    }

    uint32_t width, height;
    corvane::AlignedBuffer memory;
    Picture picture{};
};

}    // namespace

// Asks the scaler by scaling two pictures whose samples are the low and the high bytes of their places. It works on
// each axis by itself, so that a few samples on the other axis are enough. Those are halved, since the scaler takes
// another path where an axis does not change.
bool NearestSamples::Axis::Ask(bool across, uint32_t from, uint32_t to) {
    constexpr uint32_t kOther = 8;
    Ramp ramp(across, from, 2 * kOther), scaled(across, to, kOther);
    const auto side = [](uint32_t pixels) { return static_cast<int>(pixels); };
    const std::unique_ptr<SwsContext, FreeScaler> scaler(
        sws_getContext(side(ramp.width), side(ramp.height), AV_PIX_FMT_YUV420P, side(scaled.width), side(scaled.height),
                       AV_PIX_FMT_YUV420P, SWS_POINT, nullptr, nullptr, nullptr));
    const size_t half = (size_t{to} + 1) / 2;
    if (!scaler || !ramp.Allocate() || !scaled.Allocate() || !memory.Allocate((to + half) * sizeof(uint32_t)))
        return false;
    luma = {reinterpret_cast<uint32_t*>(memory.Data()), to};
    chroma = {luma.data() + to, half};
    for (uint32_t shift = 0; shift < 16; shift += 8) {
        ramp.Fill(across, shift);
        const Picture &source = ramp.picture, &target = scaled.picture;
        const uint8_t* const planes[4] = {source.plane[0], source.plane[1], source.plane[2], nullptr};
        const int strides[4] = {source.stride[0], source.stride[1], source.stride[2], 0};
        uint8_t* const targetPlanes[4] = {target.plane[0], target.plane[1], target.plane[2], nullptr};
        const int targetStrides[4] = {target.stride[0], target.stride[1], target.stride[2], 0};
        if (sws_scale(scaler.get(), planes, strides, 0, side(ramp.height), targetPlanes, targetStrides) < 0)
            return false;
        for (const auto& [places, plane] : {std::pair{luma, 0}, std::pair{chroma, 1}})
            for (size_t i = 0; i < places.size(); ++i)
                places[i] |= uint32_t{target.plane[plane][i * (across ? 1 : static_cast<size_t>(target.stride[plane]))]}
                             << shift;
    }
    // These places address rows, so the answer of any version of the library must stay inside them.
    const auto isChoice = [](std::span<const uint32_t> places, uint32_t samples) {
        return std::ranges::is_sorted(places) && places.back() < samples;
    };
    return isChoice(luma, from) && isChoice(chroma, from / 2 + from % 2);
}

bool NearestSamples::Make(uint32_t width, uint32_t height, uint32_t toWidth, uint32_t toHeight, uint32_t format) {
    const uint32_t sizes[5] = {width, height, toWidth, toHeight, format};
    if (std::equal(std::begin(sizes), std::end(sizes), m_sizes))
        return true;
    std::copy(std::begin(sizes), std::end(sizes), m_sizes);
    if (MakeTables())
        return true;
    m_sizes[0] = 0;
    return false;
}

bool NearestSamples::MakeTables() {
    const auto [width, height, toWidth, toHeight, format] = m_sizes;
    Axis columns;
    if (!columns.Ask(true, width, toWidth) || !m_rows.Ask(false, height, toHeight) || !m_luma.Make(columns.luma, width))
        return false;
    const size_t samples = (size_t{width} + 1) / 2;
    if (format != PF_NV12)
        return m_chroma.Make(columns.chroma, samples);
    corvane::AlignedBuffer memory;
    if (!memory.Allocate(2 * columns.chroma.size_bytes()))
        return false;
    const std::span pairs(reinterpret_cast<uint32_t*>(memory.Data()), 2 * columns.chroma.size());
    for (size_t i = 0; i < pairs.size(); ++i)
        pairs[i] = static_cast<uint32_t>(size_t{2} * columns.chroma[i / 2] + i % 2);
    return m_chroma.Make(pairs, 2 * samples);
}

void NearestSamples::Scale(const Picture& from, const Picture& to) const {
    for (int plane = 0; plane < 3 && from.plane[plane] != nullptr; ++plane) {
        const corvane::kernels::SamplePick& pick = plane == 0 ? m_luma : m_chroma;
        const std::span<uint32_t> rows = plane == 0 ? m_rows.luma : m_rows.chroma;
        const auto source = [&](size_t row) {
            return from.plane[plane] +
                   static_cast<ptrdiff_t>(rows[std::min(row, rows.size() - 1)]) * from.stride[plane];
        };
        for (size_t row = 0; row < rows.size(); ++row)
            pick.Row(source(row), to.plane[plane] + static_cast<ptrdiff_t>(row) * to.stride[plane], source(row + 1));
    }
}

}    // namespace QMRX::Filter
