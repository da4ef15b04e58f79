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

void PutRegion(BitWriter& w, int category, double deviation, const double* coefficients) {
    const int levels = kCategory[category].levels;
    const size_t dimension = kCategory[category].dimension;
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
        for (size_t i = 0; i < dimension; ++i)
            if (magnitudes[i] != 0)
                w.U(1, coefficients[at + i] > 0 ? 1 : 0);
    }
}

Bytes EncodeBlock(const std::vector<double>& coefficients, size_t blockBytes) {
    const Vector powers = PowersOf(coefficients);
    BitWriter head;
    head.U(5, static_cast<unsigned>(powers[0] + 7));
    for (size_t i = 1; i < kRegions; ++i) {
        const Word word = MakeBook(g7221::kDifference[i - 1]).at(static_cast<unsigned>(powers[i] - powers[i - 1] + 12));
        head.U(word.length, word.bits);
    }
    const size_t bits = blockBytes * 8;
    const std::vector<Vector> ways = Divisions(powers, static_cast<int>(bits - head.Count() - 4));
    for (size_t control = 0;; ++control) {
        BitWriter w = head;
        w.U(4, control);
        for (size_t region = 0; region < kRegions; ++region)
            if (ways[control][region] < kHighest)
                PutRegion(w, ways[control][region], std::exp2(powers[region] / 2.0), &coefficients[region * 20]);
        if (w.Count() > bits && control < 15)
            continue;
        while (w.Count() < bits)
            w.U(1, 1);
        Bytes block = w.Packed();
        block.resize(blockBytes);    // the last way may be too long
        return block;
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

std::vector<Bytes> EncodeG7221(const Samples& samples, size_t blockBytes) {
    Samples padded(320);
    padded.insert(padded.end(), samples.begin(), samples.end());
    std::vector<Bytes> blocks;
    for (size_t at = 0; at + 640 <= padded.size(); at += 320) {
        std::vector<double> coefficients = LappedTransform(padded.data() + at);
        for (double& value : coefficients)
            value /= std::exp2(4.5);
        blocks.push_back(EncodeBlock(coefficients, blockBytes));
    }
    return blocks;
}

}    // namespace corvane::test
