#include "decoders/G7221Kernel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numbers>

extern "C" {
#include <libavutil/tx.h>
}

#include "base/FailurePoint.h"

namespace corvane {

using g7221::kCategories;
using g7221::kCategory;
using g7221::kMagnitudes;
using g7221::kNoise;
using g7221::kNoise5;
using g7221::kNoise6;
using g7221::kNoise7;
using g7221::kRegions;

namespace {

constexpr int kControls = 16;      // ways to divide the bits among the regions
constexpr int kPowerOffset = 7;    // of the first region's power in the stream
// Bounds of a power that an encoder may send.
constexpr int kLeastPower = -8 - kPowerOffset;
constexpr int kMostPower = 31 - kPowerOffset;

// A code as a tree: the node that a bit leads to, or a symbol, as 0 or its negative.
template <size_t N>
using Tree = std::array<std::array<int16_t, 2>, N - 1>;

template <size_t N>
constexpr Tree<N> MakeTree(const g7221::Code (&codes)[N]) {
    Tree<N> tree{};
    int16_t used = 1;
    uint32_t word = 0;    // the code word at the top of 32 bits
    for (const g7221::Code& code : codes) {
        size_t node = 0;
        for (unsigned bit = 1; bit < code.length; ++bit) {
            int16_t& next = tree[node][word >> (32 - bit) & 1];
            if (next == 0)
                next = used++;
            node = static_cast<size_t>(next);
        }
        tree[node][word >> (32 - code.length) & 1] = static_cast<int16_t>(-code.symbol);
        word += 1u << (32 - code.length);
    }
    return tree;
}

constexpr auto kDifferenceTrees = [] {
    std::array<Tree<g7221::kDifferences>, kRegions - 1> trees{};
    for (size_t i = 0; i < trees.size(); ++i)
        trees[i] = MakeTree(g7221::kDifference[i]);
    return trees;
}();
constexpr auto kVectorTree0 = MakeTree(g7221::kVectors0);
constexpr auto kVectorTree1 = MakeTree(g7221::kVectors1);
constexpr auto kVectorTree2 = MakeTree(g7221::kVectors2);
constexpr auto kVectorTree3 = MakeTree(g7221::kVectors3);
constexpr auto kVectorTree4 = MakeTree(g7221::kVectors4);
constexpr auto kVectorTree5 = MakeTree(g7221::kVectors5);
constexpr auto kVectorTree6 = MakeTree(g7221::kVectors6);
constexpr const std::array<int16_t, 2>* kVectorTrees[kNoise] = {
    kVectorTree0.data(), kVectorTree1.data(), kVectorTree2.data(), kVectorTree3.data(),
    kVectorTree4.data(), kVectorTree5.data(), kVectorTree6.data()};

using Powers = std::array<int, kRegions>;
using CategoryNumbers = std::array<int, kRegions>;

int CategoryAt(int offset, int power) {
    return std::clamp((offset - power) >> 1, 0, kNoise);
}

int ExpectedBits(int category) {
    return kCategory[category].expectedBits;
}

// The categories that every power has at the offset where the expected bits come nearest to those that are available.
CategoryNumbers FirstCategories(const Powers& powers, int available, int* offset) {
    constexpr int kMargin = 32;    // bits that the offset may leave
    const auto bitsAt = [&](int at) {
        int bits = 0;
        for (const int power : powers)
            bits += ExpectedBits(CategoryAt(at, power));
        return bits;
    };
    *offset = -32;
    for (int step = 32; step > 0; step /= 2)
        *offset += bitsAt(*offset + step) >= available - kMargin ? step : 0;
    CategoryNumbers categories{};
    std::transform(powers.begin(), powers.end(), categories.begin(),
                   [&](int power) { return CategoryAt(*offset, power); });
    return categories;
}

// The categories for one of the ways to divide the bits. The ways are steps between a division that spends more and
// one that spends less than is available, found by changing one region at a time.
CategoryNumbers Categorise(const Powers& powers, int available, int control) {
    constexpr int kPlain = 320;    // of the bits above, five eighths count
    if (available > kPlain)
        available = kPlain + (available - kPlain) * 5 / 8;
    int offset = 0;
    CategoryNumbers finest = FirstCategories(powers, available, &offset);
    CategoryNumbers coarsest = finest;
    int most = 0;
    for (const int category : finest)
        most += ExpectedBits(category);
    int least = most;
    // Regions to make coarser, one for each step of the control; the search fills them from the middle to both ends.
    std::array<int, size_t{2} * kControls> order{};
    size_t begin = kControls;
    size_t end = kControls;
    for (int i = 1; i < kControls; ++i) {
        const bool refine = most + least <= 2 * available;
        CategoryNumbers& changed = refine ? finest : coarsest;
        int best = -1;
        int bestValue = 0;
        for (int at = 0; at < static_cast<int>(kRegions); ++at) {
            // From the lowest region to refine, from the highest to coarsen.
            const int region = refine ? at : static_cast<int>(kRegions) - 1 - at;
            const int category = changed[static_cast<size_t>(region)];
            if (category == (refine ? 0 : kNoise))
                continue;
            const int value = offset - powers[static_cast<size_t>(region)] - 2 * category;
            if (best < 0 || (refine ? value < bestValue : value > bestValue)) {
                best = region;
                bestValue = value;
            }
        }
        if (best < 0)
            break;    // nothing to change
        int& category = changed[static_cast<size_t>(best)];
        (refine ? most : least) -= ExpectedBits(category);
        category += refine ? -1 : 1;
        (refine ? most : least) += ExpectedBits(category);
        order[refine ? --begin : end++] = best;
    }
    for (size_t i = 0; i < static_cast<size_t>(control) && begin + i < end; ++i)
        ++finest[static_cast<size_t>(order[begin + i])];
    return finest;
}

}    // namespace

// Reads a block bit by bit. Beyond its end come zeros, and `RanOut` is true.
class G7221Kernel::Bits {
public:
    Bits(const uint8_t* data, uint32_t bytes) : m_data(data), m_end(bytes * 8) {}

    unsigned Next() {
        if (m_position >= m_end) {
            m_ranOut = true;
            return 0;
        }
        const unsigned bit = m_data[m_position >> 3] >> (7 - (m_position & 7)) & 1u;
        ++m_position;
        return bit;
    }
    unsigned Take(unsigned count) {
        unsigned value = 0;
        for (; count > 0; --count)
            value = value << 1 | Next();
        return value;
    }
    unsigned Symbol(const std::array<int16_t, 2>* tree) {
        int node = 0;
        do
            node = tree[node][Next()];
        while (node > 0 && !m_ranOut);
        return static_cast<unsigned>(-std::min(node, 0));
    }
    bool RanOut() const { return m_ranOut; }
    int Left() const { return static_cast<int>(m_end - m_position); }

private:
    const uint8_t* m_data;
    uint32_t m_end;
    uint32_t m_position = 0;
    bool m_ranOut = false;
};

std::unique_ptr<G7221Kernel> G7221Kernel::Make() noexcept {
    std::unique_ptr<G7221Kernel> kernel(new (std::nothrow) G7221Kernel);
    const float scale = std::sqrt(2.0f / kSamples) * std::exp2(4.5f);
    if (kernel == nullptr || failure::MustFail(failure::Site::PlatformCall) ||
        av_tx_init(&kernel->m_transform, &kernel->m_run, AV_TX_FLOAT_MDCT, 1, kSamples, &scale, 0) < 0)
        return nullptr;
    for (size_t i = 0; i < kSamples; ++i)
        kernel->m_window[i] = static_cast<float>(std::sin((static_cast<double>(i) + 0.5) * std::numbers::pi / 640));
    return kernel;
}

G7221Kernel::~G7221Kernel() {
    av_tx_uninit(&m_transform);
}

// A generator of the Recommendation; each call gives one word.
uint32_t G7221Kernel::NextRandom() {
    auto word = static_cast<uint16_t>(m_random[0] + m_random[3]);
    word = static_cast<uint16_t>(word + (word >> 15));
    m_random = {word, m_random[0], m_random[1], m_random[2]};
    return word;
}

// False when the bits end on the way.
bool G7221Kernel::ReadRegion(Bits& bits, int category, float deviation, float* coefficients) const {
    const auto [levels, dimension, expected] = kCategory[category];
    for (size_t at = 0; at < kRegionSize; at += dimension) {
        unsigned vector = bits.Symbol(kVectorTrees[category]);
        for (size_t i = dimension; i-- > 0; vector /= levels)
            coefficients[at + i] = kMagnitudes[category][vector % levels] * deviation;
        for (size_t i = 0; i < dimension; ++i)    // signs follow, of those that are not 0
            if (coefficients[at + i] != 0 && bits.Next() == 0)
                coefficients[at + i] = -coefficients[at + i];
        if (bits.RanOut())
            return false;
    }
    return true;
}

void G7221Kernel::FillWithNoise(int category, float deviation, float* coefficients) {
    size_t count = 0;
    for (size_t i = 0; i < kRegionSize; ++i) {
        const bool large = category == 5 && std::abs(coefficients[i]) > 2 * deviation;
        count += coefficients[i] == 0 ? 0 : large ? 4 : 1;
    }
    const float noise = deviation * (category == 5   ? kNoise5[std::min(count, std::size(kNoise5) - 1)]
                                     : category == 6 ? kNoise6[std::min(count, std::size(kNoise6) - 1)]
                                                     : kNoise7);
    for (size_t i = 0; i < kRegionSize;) {
        // One word for the signs of each half, which moves on at coefficients that are filled.
        uint32_t signs = NextRandom();
        for (const size_t end = i + kRegionSize / 2; i < end; ++i) {
            if (coefficients[i] != 0)
                continue;
            coefficients[i] = (signs & 1) != 0 ? noise : -noise;
            signs >>= 1;
        }
    }
}

// Fills m_coefficients; false for a damaged block.
bool G7221Kernel::ReadBlock(const uint8_t* block, uint32_t bytes) {
    Bits bits(block, bytes);
    Powers powers{};
    powers[0] = static_cast<int>(bits.Take(5)) - kPowerOffset;
    for (size_t i = 1; i < kRegions; ++i)
        powers[i] = powers[i - 1] + static_cast<int>(bits.Symbol(kDifferenceTrees[i - 1].data())) - 12;
    const auto control = static_cast<int>(bits.Take(4));
    const auto [lowest, highest] = std::minmax_element(powers.begin(), powers.end());
    if (*lowest < kLeastPower || *highest > kMostPower)
        return false;

    CategoryNumbers categories = Categorise(powers, bits.Left(), control);
    m_coefficients.fill(0);
    for (size_t region = 0; region < kRegions; ++region) {
        float* const coefficients = &m_coefficients[region * kRegionSize];
        const float deviation = std::exp2(static_cast<float>(powers[region]) / 2);
        int& category = categories[region];
        if (category != kNoise && !ReadRegion(bits, category, deviation, coefficients)) {
            std::fill_n(coefficients, kRegionSize, 0.0f);
            std::fill(&category, categories.data() + kRegions, kNoise);
        }
        if (category >= 5)
            FillWithNoise(category, deviation, coefficients);
    }
    if (bits.RanOut())
        return control == kControls - 1;    // only the last way may spend more than there is
    bool padded = true;                     // with ones
    while (bits.Left() > 0)
        padded &= bits.Next() == 1;
    return padded;
}

// Inverse modulated lapped transform of m_coefficients.
void G7221Kernel::Synthesise(int16_t* samples) {
    constexpr size_t kHalf = kSamples / 2;
    m_run(m_transform, m_transformed.data(), m_coefficients.data(), sizeof(float));
    // The transform of type IV, whose values libavutil gives in the other order.
    const auto transformed = [&](size_t i) { return m_transformed[kSamples - 1 - i]; };
    const auto toSample = [](float value) {
        using Limits = std::numeric_limits<int16_t>;
        return static_cast<int16_t>(std::lrint(std::clamp<float>(value, Limits::min(), Limits::max())));
    };
    for (size_t i = 0; i < kHalf; ++i) {
        const size_t back = kHalf - 1 - i;
        samples[i] = toSample(m_window[i] * transformed(back) + m_window[kSamples - 1 - i] * m_overlap[i]);
        samples[kHalf + i] = toSample(m_window[kHalf + i] * transformed(i) - m_window[back] * m_overlap[back]);
    }
    for (size_t i = 0; i < kHalf; ++i)
        m_overlap[i] = transformed(kHalf + i);
}

void G7221Kernel::Decode(const uint8_t* block, uint32_t bytes, int16_t* samples) {
    if (ReadBlock(block, bytes)) {
        m_last = m_coefficients;
    } else {
        m_coefficients = m_last;
        m_last.fill(0);
    }
    Synthesise(samples);
}

}    // namespace corvane
