#include "kernels/StretchPlan.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace corvane::kernels {

namespace {

constexpr size_t kBlock = 16;           // bytes of a vector block, and of a window
constexpr uint32_t kOne = 65536;        // the sum of the weights
constexpr uint8_t kNoByte = 0x80;       // the table lookup gives 0 for this index
constexpr uint32_t kMaxPairTaps = 3;    // a constant of the kernel of pairs

size_t RoundUp(size_t size) {
    return (size + 63) & ~size_t{63};
}

}    // namespace

uint64_t StretchAxis::Taps() const {
    if (Same())
        return 1;
    if (m_destination > m_source)
        return 2;
    // In the worst case a pixel begins with the last part of a source pixel.
    const uint64_t common = std::gcd(m_source, m_destination);
    const uint64_t parts = m_destination / common;
    return (m_source / common + 2 * (parts - 1)) / parts;
}

StretchAxis::Span StretchAxis::At(uint32_t pixel, uint16_t* weights) const {
    if (Same()) {
        weights[0] = kOne - 1;
        return {pixel, 1};
    }
    return m_destination < m_source ? Box(pixel, weights) : Bilinear(pixel, weights);
}

// In units of 1 / destination of a source pixel, pixel j covers source units from j * source on. Cumulated parts are
// rounded, so that the sum is exact.
StretchAxis::Span StretchAxis::Box(uint32_t pixel, uint16_t* weights) const {
    const uint64_t begin = pixel * m_source;
    const uint64_t end = begin + m_source;
    const uint64_t first = begin / m_destination;
    const uint64_t last = (end - 1) / m_destination;
    uint64_t before = 0;
    for (uint64_t at = first; at <= last; ++at) {
        const uint64_t covered = std::min((at + 1) * m_destination, end) - begin;
        const uint64_t sum = (covered * kOne + m_source / 2) / m_source;
        weights[at - first] = static_cast<uint16_t>(std::min<uint64_t>(sum - before, kOne - 1));
        before = sum;
    }
    return {static_cast<uint32_t>(first), static_cast<uint32_t>(last - first + 1)};
}

// Centres in units of 1 / (2 * destination) of a source pixel, counted from the centre of the first.
StretchAxis::Span StretchAxis::Bilinear(uint32_t pixel, uint16_t* weights) const {
    const int64_t unit = static_cast<int64_t>(2 * m_destination);
    const int64_t centre =
        static_cast<int64_t>((2 * uint64_t{pixel} + 1) * m_source) - static_cast<int64_t>(m_destination);
    const int64_t first = centre < 0 ? 0 : centre / unit;
    if (centre < 0 || first + 1 >= static_cast<int64_t>(m_source)) {
        weights[0] = kOne - 1;
        return {static_cast<uint32_t>(first), 1};
    }
    const double part = static_cast<double>(centre % unit) / static_cast<double>(unit);
    const auto second = std::min(static_cast<uint32_t>(part * kOne + 0.5), kOne - 1);
    weights[0] = static_cast<uint16_t>(std::min(kOne - second, kOne - 1));
    weights[1] = static_cast<uint16_t>(second);
    return {static_cast<uint32_t>(first), 2};
}

// The destination columns that are written. Columns after the last, which fill its group, repeat it.
struct StretchPlan::Columns {
    StretchAxis axis;
    uint32_t clip;
    uint32_t count;
    uint32_t firstNeeded = 0;
    uint32_t pixelBytes = 0;

    StretchAxis::Span At(size_t column, uint16_t* weights) const {
        return axis.At(clip + static_cast<uint32_t>(std::min<size_t>(column, count - 1)), weights);
    }
    uint32_t Offset(const StretchAxis::Span& span) const { return (span.first - firstNeeded) * pixelBytes; }

    // All pairs lie in a window.
    bool FitPairs() const {
        if (axis.Taps() > kMaxPairTaps)
            return false;
        uint16_t weights[StretchAxis::kMaxTaps];
        for (size_t x = 0; x < count; x += 2) {
            const StretchAxis::Span left = At(x, weights);
            const StretchAxis::Span right = At(x + 1, weights);
            if (size_t{right.first + right.count - left.first} * pixelBytes > kBlock)
                return false;
        }
        return true;
    }
};

void StretchPlan::FillPairs(const Columns& columns, size_t blocks, uint32_t* offsets, uint8_t* vectors) const {
    const size_t weightVectors = m_tables.taps == 2 ? 1 : kMaxPairTaps;
    const size_t vectorBytes = blocks * kBlock;
    for (size_t half = 0; half < 2 * m_tables.groups; ++half) {
        for (size_t block = 0; block < blocks; ++block) {
            const size_t column = half / 2 * 4 * blocks + 4 * block + half % 2 * 2;
            uint8_t* const index = vectors + block * kBlock;
            uint32_t window = 0;
            for (size_t pixel = 0; pixel < 2; ++pixel) {
                uint16_t weights[StretchAxis::kMaxTaps];
                const StretchAxis::Span span = columns.At(column + pixel, weights);
                std::fill(weights + span.count, weights + kMaxPairTaps, uint16_t{0});
                weights[0] = std::max<uint16_t>(weights[0], 1);    // the second is 65536 less the first
                if (pixel == 0)
                    window = columns.Offset(span);
                for (size_t channel = 0; channel < 4; ++channel) {
                    const size_t lane = 4 * pixel + channel;
                    index[2 * lane] = kNoByte;
                    index[2 * lane + 1] =
                        channel < 3 ? static_cast<uint8_t>(columns.Offset(span) - window + channel) : kNoByte;
                    for (size_t tap = 0; tap < weightVectors; ++tap)
                        std::memcpy(index + (1 + tap) * vectorBytes + 2 * lane, &weights[tap], 2);
                }
            }
            *offsets++ = window;
        }
        vectors += (1 + weightVectors) * vectorBytes;
    }
}

void StretchPlan::FillSingles(const Columns& columns, size_t blocks, uint32_t* offsets, uint8_t* vectors) const {
    const size_t vectorBytes = blocks * kBlock;
    for (size_t quarter = 0; quarter < 4 * m_tables.groups; ++quarter) {
        for (size_t block = 0; block < blocks; ++block) {
            uint16_t weights[StretchAxis::kMaxTaps + 4];
            const StretchAxis::Span span = columns.At(quarter / 4 * 4 * blocks + 4 * block + quarter % 4, weights);
            std::fill(weights + span.count, weights + 4 * size_t{m_tables.chunks}, uint16_t{0});
            for (size_t tap = 0; tap < 4 * size_t{m_tables.chunks}; ++tap) {
                uint8_t* const lanes = vectors + tap / 2 * vectorBytes + block * kBlock + tap % 2 * 8;
                for (size_t channel = 0; channel < 4; ++channel)
                    std::memcpy(lanes + 2 * channel, &weights[tap], 2);
            }
            *offsets++ = columns.Offset(span);
        }
        vectors += 2 * size_t{m_tables.chunks} * vectorBytes;
    }
}

bool StretchPlan::Make(const ConstPictureView& source, const PictureView& destination, const Rect& whole,
                       size_t blocks) {
    Columns columns{StretchAxis(source.size.width, static_cast<uint32_t>(whole.Width())),
                    static_cast<uint32_t>(-whole.left), destination.size.width};
    columns.pixelBytes = source.PixelBytes();
    uint16_t weights[StretchAxis::kMaxTaps];
    columns.firstNeeded = columns.At(0, weights).first;
    const StretchAxis::Span last = columns.At(columns.count - 1, weights);

    m_vertical = StretchAxis(source.size.height, static_cast<uint32_t>(whole.Height()));
    m_pixelBytes = columns.pixelBytes;
    m_rowBytes = size_t{last.first + last.count - columns.firstNeeded} * m_pixelBytes;
    m_stride = source.stride[0];
    m_source = source.At(columns.firstNeeded, 0);

    m_tables.taps = static_cast<uint32_t>(columns.axis.Taps());
    m_tables.groups = (size_t{columns.count} + 4 * blocks - 1) / (4 * blocks);
    m_tables.chunks = (m_tables.taps + 3) / 4;
    size_t offsetCount = 0;
    size_t vectorCount = 0;
    if (!columns.axis.Same() && columns.FitPairs()) {
        m_tables.pass = HorizontalPass::Pairs;
        offsetCount = 2 * blocks * m_tables.groups;
        vectorCount = 2 * m_tables.groups * (m_tables.taps == 2 ? 2 : 1 + kMaxPairTaps);
    } else if (!columns.axis.Same()) {
        m_tables.pass = HorizontalPass::Singles;
        offsetCount = 4 * blocks * m_tables.groups;
        vectorCount = 4 * m_tables.groups * 2 * m_tables.chunks;
    }
    const size_t vectorsAt = m_vertical.Same() ? 0 : 2 * RoundUp(m_rowBytes + kRowSlack);
    const size_t offsetsAt = vectorsAt + vectorCount * blocks * kBlock;
    if (offsetsAt + offsetCount == 0)
        return true;    // nothing but copies
    if (!m_memory.Allocate(offsetsAt + offsetCount * sizeof(uint32_t)))
        return false;
    m_scratch = m_memory.Data();
    m_scratchStride = vectorsAt / 2;
    auto* const offsets = reinterpret_cast<uint32_t*>(m_memory.Data() + offsetsAt);
    m_tables.offsets = offsets;
    m_tables.vectors = m_memory.Data() + vectorsAt;
    if (m_tables.pass == HorizontalPass::Pairs)
        FillPairs(columns, blocks, offsets, m_memory.Data() + vectorsAt);
    else if (m_tables.pass == HorizontalPass::Singles)
        FillSingles(columns, blocks, offsets, m_memory.Data() + vectorsAt);
    return true;
}

}    // namespace corvane::kernels
