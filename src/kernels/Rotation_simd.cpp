#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/Rotation_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "kernels/RotationSamples.h"
#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
size_t InterpolateRun(const uint8_t*, ptrdiff_t, const RotationSteps&, RotationSteps::Place, uint8_t*, size_t) {
    return 0;
}
#else
// A gather reads the two bytes of a row that a sample lies between, and the two bytes after them. The lower half of a
// lane holds the sample's row and the upper half the row below, until the two rows are mixed.
size_t InterpolateRun(const uint8_t* source, ptrdiff_t stride, const RotationSteps& steps, RotationSteps::Place place,
                      uint8_t* out, size_t count) {
    using Places = hn::Repartition<uint64_t, Bytes>;
    const Places places;
    const Words words;
    const Dwords halves;
    const SignedDwords d;
    const hn::Rebind<uint8_t, SignedDwords> bytes;
    constexpr size_t kStep = hn::MaxLanes(d);
    const auto ramp = [&](int64_t start, int64_t by, size_t lane) HWY_ATTR {
        HWY_ALIGN uint64_t values[hn::MaxLanes(places)];
        for (size_t i = 0; i < hn::MaxLanes(places); ++i)
            values[i] = static_cast<uint64_t>(start + static_cast<int64_t>(lane + i) * by);
        return hn::Load(places, values);
    };
    auto x0 = ramp(place.x, steps.stepX, 0), x1 = ramp(place.x, steps.stepX, kStep / 2);
    auto y0 = ramp(place.y, steps.stepY, 0), y1 = ramp(place.y, steps.stepY, kStep / 2);
    const auto nextX = hn::Set(places, static_cast<uint64_t>(steps.stepX) * kStep);
    const auto nextY = hn::Set(places, static_cast<uint64_t>(steps.stepY) * kStep);
    // In 1/256.
    const auto narrow = [&](auto low, auto high) HWY_ATTR {
        return hn::ConcatEven(halves, hn::BitCast(halves, hn::ShiftRight<24>(high)),
                              hn::BitCast(halves, hn::ShiftRight<24>(low)));
    };
    const auto lowByte = hn::Set(halves, 0xFF);
    const auto rowStride = hn::Set(d, static_cast<int32_t>(stride));
    size_t done = 0;
    for (; done + kStep <= count; done += kStep) {
        const auto x = narrow(x0, x1), y = narrow(y0, y1);
        x0 = hn::Add(x0, nextX), x1 = hn::Add(x1, nextX);
        y0 = hn::Add(y0, nextY), y1 = hn::Add(y1, nextY);
        const auto at =
            hn::Add(hn::Mul(hn::BitCast(d, hn::ShiftRight<8>(y)), rowStride), hn::BitCast(d, hn::ShiftRight<8>(x)));
        const auto row = hn::BitCast(halves, hn::GatherOffset(d, reinterpret_cast<const int32_t*>(source), at));
        const auto below =
            hn::BitCast(halves, hn::GatherOffset(d, reinterpret_cast<const int32_t*>(source + stride), at));
        const auto left = hn::BitCast(words, hn::Or(hn::And(row, lowByte), hn::ShiftLeft<16>(hn::And(below, lowByte))));
        const auto right = hn::BitCast(words, hn::Or(hn::And(hn::ShiftRight<8>(row), lowByte),
                                                     hn::ShiftLeft<16>(hn::And(hn::ShiftRight<8>(below), lowByte))));
        const auto fraction = hn::And(x, lowByte);
        const auto weight = hn::BitCast(words, hn::Or(fraction, hn::ShiftLeft<16>(fraction)));
        // The result is at most 255 * 256, also where an intermediate value wraps.
        const auto mixed = hn::BitCast(halves, hn::Add(hn::ShiftLeft<8>(left), hn::Mul(hn::Sub(right, left), weight)));
        const auto upper = hn::BitCast(d, hn::And(mixed, hn::Set(halves, 0xFFFF)));
        const auto lower = hn::BitCast(d, hn::ShiftRight<16>(mixed));
        const auto sum =
            hn::Add(hn::ShiftLeft<8>(upper), hn::Mul(hn::Sub(lower, upper), hn::BitCast(d, hn::And(y, lowByte))));
        hn::StoreU(hn::DemoteTo(bytes, hn::ShiftRight<16>(hn::Add(sum, hn::Set(d, 32768)))), bytes, out + done);
    }
    return done;
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(InterpolateRun);

size_t InterpolateSamples(const ConstPlaneView& source, const RotationSteps& steps, RotationSteps::Place place,
                          uint8_t* out, size_t count) {
    return HWY_DYNAMIC_DISPATCH(InterpolateRun)(source.data, source.stride, steps, place, out, count);
}

}    // namespace corvane::kernels
#endif
