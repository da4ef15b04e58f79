// g7221_vectors FOLDER: writes the vectors that the decoder of G.722.1 is tested with.
//
// An encoder of Recommendation G.722.1 makes blocks, and a model of the decoder makes the samples, both in double
// precision and by the formulas. They are coded apart from the decoder: they share only the printed code words,
// magnitudes and expected bits with it (G7221Tables.h). Before anything is written, these are compared with the copy of
// libavcodec's decoder of the sister codec at 16 kbit/s.
//
// NAME.blocks has the blocks, NAME.samples what they decode to, signed 16 bits. edges60.blocks has six blocks of 60
// bytes: two with the highest and the lowest powers, and four that are damaged.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <numeric>
#include <random>
#include <span>

#include "decoders/G7221Tables.h"
#include "support/BareDecoder.h"
#include "support/SoundMaker.h"

using namespace corvane;
using namespace corvane::test;

namespace {

using namespace corvane::g7221;
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
    const int levels = kCategory[category].levels;
    const size_t dimension = kCategory[category].dimension;
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

// The modulated lapped transform: 640 samples to 320 coefficients and, transposed, back. `sine`: with the sine
// instead of the cosine.
double Transform(int n, int k, bool sine = false) {
    static const Doubles cosines = [] {    // of a turn in 2560 steps
        Doubles values;
        for (int i = 0; i < 2560; ++i)
            values.push_back(std::cos(std::numbers::pi / 1280 * i));
        return values;
    }();
    const int phase = (2 * n - 319) * (2 * k + 1) - (sine ? 640 : 0);
    return std::sqrt(2 / 320.) * cosines[static_cast<size_t>(std::abs(2 * n + 1 - 640))] *
           cosines[static_cast<size_t>(std::abs(phase) % 2560)];
}

Doubles Coefficients(const int16_t* samples, bool sine = false) {
    Doubles out(320);
    for (int i = 0; i < 320 * 640; ++i)
        out[static_cast<size_t>(i / 640)] += samples[i % 640] * Transform(i % 640, i / 640, sine);
    return out;
}

// What the blocks of these coefficients decode to, a block later than they were coded.
Samples Synthesise(const std::vector<Doubles>& coefficients) {
    Doubles sums((coefficients.size() + 1) * 320);
    for (size_t block = 0; block < coefficients.size(); ++block)
        for (int i = 0; i < 280 * 640; ++i)
            sums[block * 320 + static_cast<size_t>(i % 640)] +=
                coefficients[block][static_cast<size_t>(i / 640)] * Transform(i % 640, i / 640);
    Samples out;
    for (size_t i = 0; i < coefficients.size() * 320; ++i)
        out.push_back(static_cast<int16_t>(std::lrint(std::clamp(sums[i], -32768., 32767.))));
    return out;
}

struct Stream {
    std::vector<Bytes> blocks;
    std::vector<Doubles> coefficients;    // that each decodes to
    Bytes runsOut;                        // a block that is damaged: it spends more bits than it may
};

// One block for each 320 samples; the first transforms 320 zeros and the first samples.
Stream Encode(const Samples& samples, size_t blockBytes) {
    Samples padded(320);
    padded.insert(padded.end(), samples.begin(), samples.end());
    Words words = {1, 1, 1, 1};
    Stream stream;
    for (size_t at = 0; at + 640 <= padded.size(); at += 320) {
        const Doubles coefficients = Coefficients(&padded[at]);
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
            if (w.Count() > blockBytes * 8 && control < 15) {
                stream.runsOut = Fill(w, blockBytes);
                continue;
            }
            words = next;
            stream.blocks.push_back(Fill(w, blockBytes));
            stream.coefficients.push_back(decoded);
        }
    }
    return stream;
}

// A block of 60 bytes that states these powers and this way to divide the bits, with ones to its last byte.
Bytes Ones(Ints powers, size_t at, int power, unsigned control, uint8_t last = 0xFF) {
    powers[0] = std::max(powers[0], -6);
    powers[at] = power;
    Bytes block = Fill(PutPowers(powers).U(4, control), 60);
    block.back() = last;
    return block;
}

// Whether the sister decodes the coded coefficients of blocks of 40 bytes to those of the model. It synthesises with
// sines, its noise is weaker and has other signs, and it refuses blocks that run out of bits.
bool SisterAgrees(const Stream& stream) {
    constexpr double kScale = -1.78885;    // sqrt(3.2), between its output and ours
    const ContextPtr context(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_SIREN)));
    context->sample_rate = 16000;
    context->log_level_offset = 128;
    avcodec_open2(context.get(), nullptr, nullptr);
    const PacketPtr packet(av_packet_alloc());
    const BarePicture frame(av_frame_alloc());
    Samples sister(320);
    size_t inRow = 0, coded = 0, wrong = 0;
    for (size_t at = 0; at < stream.blocks.size(); ++at) {
        av_new_packet(packet.get(), 40);
        std::copy(stream.blocks[at].begin(), stream.blocks[at].end(), packet->data);
        inRow = avcodec_send_packet(context.get(), packet.get()) >= 0 ? inRow + 1 : 0;
        av_packet_unref(packet.get());
        if (inRow > 0)
            avcodec_receive_frame(context.get(), frame.get());
        for (size_t i = 0; i < 320; ++i)
            sister.push_back(
                inRow == 0 ? int16_t{0}
                           : static_cast<int16_t>(std::lrint(reinterpret_cast<float*>(frame->data[0])[i] * 32768)));
        if (inRow < 3)
            continue;
        const Doubles theirs = Coefficients(&sister.end()[-640], true);
        const Doubles& own = stream.coefficients[at - 1];
        for (size_t i = 0; i < own.size(); ++i) {
            const double value = theirs[i] * kScale;
            const bool isCoded = std::abs(value) > 40 && std::abs(value) > std::abs(own[i]) / 3;
            coded += isCoded ? 1 : 0;
            wrong += isCoded && std::abs(own[i] - value) > 4 ? 1 : 0;
        }
    }
    std::printf("%zu of %zu coded coefficients are not those of the sister\n", wrong, coded);
    return coded > 5000 && wrong == 0;
}

void Write(const std::string& path, const void* data, size_t bytes) {
    std::ofstream(path, std::ios::binary).write(static_cast<const char*>(data), static_cast<std::streamsize>(bytes));
}

Bytes Join(const std::vector<Bytes>& blocks) {
    Bytes all;
    for (const Bytes& block : blocks)
        all = all + block;
    return all;
}

}    // namespace

int main(int argc, char** argv) {
    const std::string folder = argc > 1 ? argv[1] : ".";
    const Samples speech = Speech(16000);
    if (!SisterAgrees(Encode(speech, 40)))
        return 1;
    constexpr size_t kLength = 48 * 320;
    const Samples begin(speech.begin() + 5000, speech.begin() + 5000 + kLength);
    Samples loud = Sweep(16000, kLength / 16000., 100, 6900);    // with noise under it, so that blocks run out of bits
    std::mt19937 random(3);
    for (int16_t& sample : loud)
        sample = static_cast<int16_t>(sample / 8 + static_cast<int>(random() % 4000));
    const struct {
        const char* name;
        Samples samples;
        size_t bytes;
    } rows[] = {{"speech60", begin, 60},
                {"speech80", begin, 80},
                {"loud60", loud, 60},
                {"loud80", loud, 80},
                {"sine60", Sweep(16000, kLength / 16000., 1234, 1234), 60}};
    for (const auto& row : rows) {
        const Stream stream = Encode(row.samples, row.bytes);
        const Samples decoded = Synthesise(stream.coefficients);
        const Bytes blocks = Join(stream.blocks);
        Write(folder + '/' + row.name + ".blocks", blocks.data(), blocks.size());
        Write(folder + '/' + row.name + ".samples", decoded.data(), decoded.size() * 2);
        std::printf("%s: %.1f dB\n", row.name, SignalToNoise(row.samples, {decoded.begin() + 320, decoded.end()}));
    }
    const Ints highest(14, 24), lowest(14, -15);
    const Bytes runsOut = Encode(loud, 60).runsOut;
    const Bytes edges = Join({Ones(highest, 1, 24, 15), Ones(lowest, 13, -15, 15), Ones(highest, 1, 25, 15),
                              Ones(lowest, 13, -16, 15), runsOut, Ones(lowest, 1, -15, 0, 0xFE)});
    Write(folder + "/edges60.blocks", edges.data(), edges.size());
    return 0;
}
