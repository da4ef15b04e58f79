#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>
#include <span>

#include "decoders/G7221Tables.h"
#include "support/SoundMaker.h"

namespace corvane::test {

namespace {

using namespace g7221;
using Ints = std::vector<int>;
using Doubles = std::vector<double>;
using Words = std::array<unsigned, 4>;    // the last random words, oldest first

const std::span<const Code> kVectors[] = {kVectors0, kVectors1, kVectors2, kVectors3, kVectors4, kVectors5, kVectors6};

// Writes the code word of a symbol; false where it has none.
bool Put(BitWriter& w, std::span<const Code> codes, int symbol) {
    uint64_t word = 0;    // in 32 bits
    const auto found = std::find_if(codes.begin(), codes.end(), [&](const Code& code) {
        word += uint64_t{1} << (32 - code.length);
        return code.symbol == symbol;
    });
    if (found != codes.end())
        w.U(found->length, (word >> (32 - found->length)) - 1);
    return found != codes.end();
}

// All sixteen divisions of the bits: categories by region, the division that spends most first.
std::vector<Ints> Divisions(const Ints& powers, int available) {
    const auto add = [](int sum, int category) { return sum + kCategory[category].expectedBits; };
    const auto bits = [&](const Ints& way) { return std::accumulate(way.begin(), way.end(), 0, add); };
    Ints way(kRegions);
    available = available > 320 ? 320 + (available - 320) * 5 / 8 : available;
    int offset = 32;
    do {
        --offset;
        for (size_t i = 0; i < kRegions; ++i)
            way[i] = std::clamp(static_cast<int>(std::floor((offset - powers[i]) / 2.0)), 0, kNoise);
    } while (offset > -32 && bits(way) < available - 32);
    std::vector<Ints> ways = {way};
    while (ways.size() < 16) {
        const bool finer = bits(ways.front()) + bits(ways.back()) <= 2 * available;
        way = finer ? ways.front() : ways.back();
        std::vector<std::pair<int, size_t>> excess;    // the lowest of equals becomes finer, the highest coarser
        for (size_t i = 0; i < kRegions; ++i)
            if (way[i] != (finer ? 0 : kNoise))
                excess.emplace_back(offset - powers[i] - 2 * way[i], i);
        way[(finer ? *std::min_element(excess.begin(), excess.end()) : *std::max_element(excess.begin(), excess.end()))
                .second] += finer ? -1 : 1;
        ways.insert(finer ? ways.begin() : ways.end(), way);
    }
    return ways;
}

// In steps of 3 dB. Valleys rise, since the codes of differences have bounds.
Ints PowersOf(const Doubles& coefficients) {
    Ints powers;
    for (auto at = coefficients.begin(); powers.size() < kRegions; at += 20) {
        const double mean = std::inner_product(at, at + 20, at, 1e-9) / 20;
        powers.push_back(std::clamp(static_cast<int>(std::lround(std::log2(mean) - 9)), powers.empty() ? -6 : -15, 24));
    }
    for (size_t i = kRegions - 1; i-- > 0;)
        powers[i] = std::max(powers[i], powers[i + 1] - 11);
    for (size_t i = 1; i < kRegions; ++i)
        powers[i] = std::max(powers[i], powers[i - 1] - 12);
    return powers;
}

BitWriter PutPowers(const Ints& powers) {
    BitWriter w;
    w.U(5, static_cast<unsigned>(powers[0] + 7));
    for (size_t i = 1; i < kRegions; ++i)
        Put(w, kDifference[i - 1], powers[i] - powers[i - 1] + 12);
    return w;
}

// Ones to the end; the last way to divide the bits may be too long.
Bytes Fill(BitWriter w, size_t bytes) {
    while (w.Count() < bytes * 8)
        w.U(1, 1);
    Bytes block = w.Packed();
    block.resize(bytes);
    return block;
}

// Writes a region, and returns what it decodes to before noise comes.
Doubles PutRegion(BitWriter& w, int category, double deviation, const double* coefficients) {
    constexpr double kSteps[] = {0.3536, 0.5, 0.7071, 1, 1.4142, 2, 2};    // between magnitudes, in deviations
    const auto [levels, dimension, expected] = kCategory[category];
    Doubles decoded;
    for (const double* at = coefficients; at < coefficients + 20; at += dimension) {
        Ints magnitudes;
        for (size_t i = 0; i < dimension; ++i) {
            const double size = std::abs(at[i]) / deviation / kSteps[category] + 0.3 + 0.03 * category;
            magnitudes.push_back(std::min(static_cast<int>(size), levels - 1));
        }
        const auto digit = [&](int number, int magnitude) { return number * levels + magnitude; };
        while (!Put(w, kVectors[category], std::accumulate(magnitudes.begin(), magnitudes.end(), 0, digit)))
            --*std::max_element(magnitudes.begin(), magnitudes.end());
        for (size_t i = 0; i < dimension; ++i) {
            w.U(magnitudes[i] != 0 ? 1 : 0, at[i] > 0 ? 1 : 0);
            decoded.push_back(std::copysign(deviation * double{kMagnitudes[category][magnitudes[i]]}, at[i]));
        }
    }
    return decoded;
}

void AddNoise(Doubles& region, int category, double deviation, Words& words) {
    size_t weight = 0;
    for (const double value : region)
        weight += value == 0 ? 0 : category == 5 && std::abs(value) > 2 * deviation ? 4 : 1;
    const double share = category == 5   ? double{kNoise5[std::min<size_t>(weight, 4)]}
                         : category == 6 ? double{kNoise6[std::min<size_t>(weight, 3)]}
                                         : double{kNoise7};
    for (size_t i = 0, filled = 0; i < 20; ++i) {
        if (i % 10 == 0) {
            const unsigned next = (words[3] + words[0]) & 0xFFFF;
            words = {words[1], words[2], words[3], next >= 0x8000 ? (next + 1) & 0xFFFF : next};
            filled = 0;
        }
        if (region[i] == 0)
            region[i] = deviation * share * ((words[3] >> filled++ & 1) != 0 ? 1 : -1);
    }
}

}    // namespace

Bytes G7221Ones(const Ints& powers, unsigned control, uint8_t last) {
    Bytes block = Fill(PutPowers(powers).U(4, control), 60);
    block.back() = last;
    return block;
}

Doubles LappedTransform(const int16_t* samples, bool sine) {
    static const Doubles cosines = [] {    // of a turn in 2560 steps
        Doubles values;
        for (int i = 0; i < 2560; ++i)
            values.push_back(std::cos(std::numbers::pi / 1280 * i));
        return values;
    }();
    Doubles out(320);
    for (int i = 0; i < 320 * 640; ++i) {
        const int n = i % 640, k = i / 640, phase = (2 * n - 319) * (2 * k + 1) - (sine ? 640 : 0);
        const double window = std::sqrt(2 / 320.) * cosines[static_cast<size_t>(std::abs(2 * n + 1 - 640))];
        out[static_cast<size_t>(k)] += samples[n] * window * cosines[static_cast<size_t>(std::abs(phase) % 2560)];
    }
    return out;
}

G7221Stream MakeG7221(const Samples& samples, size_t blockBytes) {
    Samples padded(320);
    padded.insert(padded.end(), samples.begin(), samples.end());
    Words words = {1, 1, 1, 1};
    G7221Stream stream;
    for (size_t at = 0; at + 640 <= padded.size(); at += 320) {
        const Doubles coefficients = LappedTransform(&padded[at]);
        const Ints powers = PowersOf(coefficients);
        const BitWriter head = PutPowers(powers);
        const auto ways = Divisions(powers, static_cast<int>(blockBytes * 8 - head.Count() - 4));
        for (size_t control = 0; stream.blocks.size() * 320 == at; ++control) {
            BitWriter w = BitWriter(head).U(4, control);
            Words next = words;
            Doubles decoded;
            for (size_t i = 0; i < kRegions; ++i) {
                const double deviation = std::exp2(powers[i] / 2.0 + 4.5);
                Doubles region(20);
                int category = w.Count() > blockBytes * 8 ? kNoise : ways[control][i];
                if (category < kNoise)
                    region = PutRegion(w, category, deviation, &coefficients[i * 20]);
                if (w.Count() > blockBytes * 8) {    // it will be noise, and so will the rest
                    region.assign(20, 0);
                    category = kNoise;
                }
                if (category >= 5)
                    AddNoise(region, category, deviation, next);
                decoded.insert(decoded.end(), region.begin(), region.end());
            }
            if (w.Count() > blockBytes * 8 && control < 15)
                continue;
            words = next;
            stream.blocks.push_back(Fill(w, blockBytes));
            stream.coefficients.push_back(decoded);
        }
    }
    return stream;
}

}    // namespace corvane::test
