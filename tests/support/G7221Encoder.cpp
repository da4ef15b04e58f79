#include "support/G7221Encoder.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>
#include <optional>
#include <string>

#include "decoders/G7221Tables.h"

namespace corvane::test {

namespace {

using g7221::kCategory;
using g7221::kRegions;
using Vector = std::vector<int>;

constexpr int kHighest = 7;    // category
// The step between magnitudes, in deviations of the region.
constexpr double kSteps[] = {0.3536, 0.5, 0.7071, 1, 1.4142, 2, 2};

struct Word {
    uint64_t bits;
    unsigned length;
};
using Book = std::map<unsigned, Word>;

template <typename Codes>
Book MakeBook(const Codes& codes) {
    Book book;
    double share = 0;    // of all code words that came before
    for (const g7221::Code& code : codes) {
        book[code.symbol] = {static_cast<uint64_t>(std::ldexp(share, code.length)), code.length};
        share += std::ldexp(1, -code.length);
    }
    return book;
}

const Book& VectorBook(int category) {
    static const Book books[] = {MakeBook(g7221::kVectors0), MakeBook(g7221::kVectors1), MakeBook(g7221::kVectors2),
                                 MakeBook(g7221::kVectors3), MakeBook(g7221::kVectors4), MakeBook(g7221::kVectors5),
                                 MakeBook(g7221::kVectors6)};
    return books[category];
}

int Expected(const Vector& categories) {
    int bits = 0;
    for (const int category : categories)
        bits += kCategory[category].expectedBits;
    return bits;
}

Vector At(int offset, const Vector& powers) {
    Vector categories;
    for (const int power : powers)
        categories.push_back(std::min(std::max(static_cast<int>(std::floor((offset - power) / 2.0)), 0), kHighest));
    return categories;
}

// All sixteen divisions of the bits, the one that spends most first.
std::vector<Vector> Divisions(const Vector& powers, int available) {
    if (available > 320)
        available = 320 + (available - 320) * 5 / 8;
    int offset = 31;
    while (offset > -32 && Expected(At(offset, powers)) < available - 32)
        --offset;
    std::vector<Vector> ways = {At(offset, powers)};
    while (ways.size() < 16) {
        const bool finer = Expected(ways.front()) + Expected(ways.back()) <= 2 * available;
        Vector way = finer ? ways.front() : ways.back();
        std::optional<size_t> chosen;
        const auto excess = [&](size_t region) { return offset - powers[region] - 2 * way[region]; };
        for (size_t region = 0; region < kRegions; ++region) {
            if (way[region] == (finer ? 0 : kHighest))
                continue;
            // The lowest of equals becomes finer, the highest coarser.
            if (!chosen || (finer ? excess(region) < excess(*chosen) : excess(region) >= excess(*chosen)))
                chosen = region;
        }
        way[chosen.value()] += finer ? -1 : 1;
        ways.insert(finer ? ways.begin() : ways.end(), way);
    }
    return ways;
}

Vector PowersOf(const std::vector<double>& coefficients) {
    Vector powers;
    for (size_t region = 0; region < kRegions; ++region) {
        double sum = 0;
        for (size_t i = 0; i < 20; ++i)
            sum += std::pow(coefficients[region * 20 + i], 2);
        const int power = static_cast<int>(std::lround(std::log2(std::max(sum / 20, 1e-9))));
        powers.push_back(std::clamp(power, region == 0 ? -6 : -15, 24));
    }
    for (size_t i = kRegions - 1; i-- > 0;)    // valleys rise, since no difference falls by more than 11
        powers[i] = std::max(powers[i], powers[i + 1] - 11);
    for (size_t i = 1; i < kRegions; ++i)
        powers[i] = std::max(powers[i], powers[i - 1] - 12);
    return powers;
}

// Writes a region and returns what it decodes to.
std::vector<double> PutRegion(BitWriter& w, int category, double deviation, const double* coefficients) {
    const int levels = kCategory[category].levels;
    const size_t dimension = kCategory[category].dimension;
    std::vector<double> decoded(20);
    for (size_t at = 0; at < 20; at += dimension) {
        Vector magnitudes;
        for (size_t i = 0; i < dimension; ++i) {
            const double size = std::abs(coefficients[at + i]) / deviation / kSteps[category];
            magnitudes.push_back(std::min(static_cast<int>(size + 0.3 + 0.03 * category), levels - 1));
        }
        const auto symbol = [&] {
            unsigned number = 0;
            for (const int magnitude : magnitudes)
                number = number * static_cast<unsigned>(levels) + static_cast<unsigned>(magnitude);
            return number;
        };
        while (VectorBook(category).count(symbol()) == 0)
            --*std::max_element(magnitudes.begin(), magnitudes.end());
        const Word word = VectorBook(category).at(symbol());
        w.U(word.length, word.bits);
        for (size_t i = 0; i < dimension; ++i) {
            const bool positive = coefficients[at + i] > 0;
            if (magnitudes[i] != 0)
                w.U(1, positive ? 1 : 0);
            decoded[at + i] = deviation * (positive ? 1 : -1) *
                              static_cast<double>(g7221::kMagnitudes[category][static_cast<size_t>(magnitudes[i])]);
        }
    }
    return decoded;
}

// The noise of the decoder that has read all blocks so far.
class Noise {
public:
    void Fill(std::vector<double>& region, int category, double deviation) {
        size_t weight = 0;
        for (const double value : region)
            if (value != 0)
                weight += category == 5 && std::abs(value) > 2 * deviation ? 4 : 1;
        const double share = category == 7   ? g7221::kNoise7
                             : category == 6 ? g7221::kNoise6[std::min<size_t>(weight, 3)]
                                             : g7221::kNoise5[std::min<size_t>(weight, 4)];
        for (size_t half = 0; half < 2; ++half) {
            const unsigned next = (m_words[m_words.size() - 1] + m_words[m_words.size() - 4]) & 0xFFFF;
            m_words.push_back(next >= 0x8000 ? (next + 1) & 0xFFFF : next);
            int filled = 0;
            for (size_t i = 10 * half; i < 10 * half + 10; ++i)
                if (region[i] == 0)
                    region[i] = deviation * share * ((m_words.back() >> filled++ & 1) != 0 ? 1 : -1);
        }
    }

private:
    std::vector<unsigned> m_words = {1, 1, 1, 1};
};

BitWriter PutPowers(const Vector& powers) {
    BitWriter w;
    w.U(5, static_cast<unsigned>(powers[0] + 7));
    for (size_t i = 1; i < kRegions; ++i) {
        const Word word = MakeBook(g7221::kDifference[i - 1]).at(static_cast<unsigned>(powers[i] - powers[i - 1] + 12));
        w.U(word.length, word.bits);
    }
    return w;
}

Bytes Fill(BitWriter& w, size_t bytes) {
    while (w.Count() < bytes * 8)
        w.U(1, 1);
    Bytes block = w.Packed();
    block.resize(bytes);    // the last way to divide the bits may be too long
    return block;
}

void EncodeBlock(const std::vector<double>& coefficients, size_t bytes, Noise& noise, G7221Stream& out) {
    const Vector powers = PowersOf(coefficients);
    const BitWriter head = PutPowers(powers);
    const std::vector<Vector> ways = Divisions(powers, static_cast<int>(bytes * 8 - head.Count() - 4));
    for (size_t control = 0;; ++control) {
        BitWriter w = head;
        w.U(4, control);
        std::vector<std::vector<double>> regions;
        Vector categories = ways[control];
        for (size_t i = 0; i < kRegions; ++i) {
            regions.emplace_back(20);
            if (categories[i] < kHighest)
                regions[i] = PutRegion(w, categories[i], std::exp2(powers[i] / 2.0), &coefficients[i * 20]);
            if (w.Count() > bytes * 8) {    // it and what follows will be noise
                regions[i].assign(20, 0);
                categories[i] = kHighest;
            }
        }
        if (w.Count() > bytes * 8 && control < 15)
            continue;
        out.blocks.push_back(Fill(w, bytes));
        out.coefficients.emplace_back();
        for (size_t i = 0; i < kRegions; ++i) {
            if (categories[i] >= 5)
                noise.Fill(regions[i], categories[i], std::exp2(powers[i] / 2.0));
            for (const double value : regions[i])
                out.coefficients.back().push_back(value * std::exp2(4.5));
        }
        return;
    }
}

}    // namespace

std::vector<double> LappedTransform(const int16_t* samples, bool sine) {
    static const std::vector<double> phases = [] {
        std::vector<double> values(320 * 640);
        for (size_t i = 0; i < values.size(); ++i)
            values[i] =
                std::numbers::pi / 320 * (static_cast<double>(i % 640) - 159.5) * (static_cast<double>(i / 640) + 0.5);
        return values;
    }();
    const auto makeTable = [](bool ofSine) {
        std::vector<double> values(phases.size());
        for (size_t i = 0; i < values.size(); ++i)
            values[i] = std::sqrt(2 / 320.) * std::sin(std::numbers::pi / 640 * (static_cast<double>(i % 640) + 0.5)) *
                        (ofSine ? std::sin(phases[i]) : std::cos(phases[i]));
        return values;
    };
    static const std::vector<double> tables[] = {makeTable(false), makeTable(true)};
    std::vector<double> out(320);
    for (size_t i = 0; i < phases.size(); ++i)
        out[i / 640] += tables[sine ? 1 : 0][i] * samples[i % 640];
    return out;
}

G7221Stream ModelG7221(const Samples& samples, size_t blockBytes) {
    Samples padded(320);
    padded.insert(padded.end(), samples.begin(), samples.end());
    Noise noise;
    G7221Stream stream;
    for (size_t at = 0; at + 640 <= padded.size(); at += 320) {
        std::vector<double> coefficients = LappedTransform(padded.data() + at);
        for (double& value : coefficients)
            value /= std::exp2(4.5);
        EncodeBlock(coefficients, blockBytes, noise, stream);
    }
    return stream;
}

Bytes G7221Ones(const std::vector<int>& powers, unsigned control) {
    BitWriter w = PutPowers(powers);
    w.U(4, control);
    return Fill(w, 40);
}

}    // namespace corvane::test
