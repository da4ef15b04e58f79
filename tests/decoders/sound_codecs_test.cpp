// The sound codecs at the holder, against encoders and decoders of other hands.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "decoders/AudioDecoderHolder.h"
#include "decoders/G7221Kernel.h"
#include "support/BareDecoder.h"
#include "support/G7221Encoder.h"
#include "support/SoundMaker.h"

namespace corvane::test {
namespace {

constexpr size_t kCapacity = 576'000;    // bytes, that the sound device has

// The samples of one frame; none after a failure, which must leave the size as it was.
Samples Decode(AudioDecoderHolder& holder, const MediaFrameHeader& header, size_t capacity = kCapacity) {
    Samples pcm(capacity / 2);
    auto size = static_cast<uint32_t>(capacity);
    const int32_t result = holder.Decode(reinterpret_cast<uint8_t*>(pcm.data()), &size, MediaFrameImpl(header));
    EXPECT_TRUE(result == 0 || (result < 0 && size == capacity));
    pcm.resize(result == 0 ? size / 2 : 0);
    return pcm;
}

void Append(Samples& to, const Samples& samples) {
    to.insert(to.end(), samples.begin(), samples.end());
}

Samples Head(const Samples& samples, size_t count) {
    return {samples.begin(), samples.begin() + static_cast<ptrdiff_t>(count)};
}

Bytes Join(const std::vector<Bytes>& blocks) {
    Bytes all;
    for (const Bytes& block : blocks)
        all = all + block;
    return all;
}

// All blocks, `together` of them in a frame.
Samples DecodeBlocks(uint32_t type, const std::vector<Bytes>& blocks, uint32_t rate, uint8_t channels = 1,
                     size_t together = 1) {
    AudioDecoderHolder holder;
    Samples out;
    for (size_t at = 0; at + together <= blocks.size(); at += together) {
        const auto begin = blocks.begin() + static_cast<ptrdiff_t>(at);
        const Bytes bytes = Join({begin, begin + static_cast<ptrdiff_t>(together)});
        Append(out, Decode(holder, SoundHeader(type, bytes, rate, channels, static_cast<uint32_t>(together))));
    }
    return out;
}

// Against libspandsp, in payloads whose lengths are no multiple of a code. Loud codes that no encoder gives overflow
// its samples; ours stay at the limit.
TEST(SoundCodecs, G726IsExactInAllRatesAndPackings) {
    Samples loud(40'000);
    std::mt19937 random(17);
    for (int16_t& sample : loud)
        sample = static_cast<int16_t>(random() % 20'000 - 10'000);
    Samples tone = Sweep(8000, 1, 1000, 1000);
    tone.resize(17'000);
    Samples speech = Speech(8000);
    for (int16_t& sample : speech)
        sample /= 2;
    for (int bits = 2; bits <= 5; ++bits) {
        Bytes any(40'000);
        for (uint8_t& code : any)
            code = static_cast<uint8_t>(random() & ((1u << bits) - 1));
        const struct {
            const char* name;
            Bytes codes;
        } rows[] = {{"speech", EncodeG726(speech, bits)},
                    {"sweep", EncodeG726(Sweep(8000, 3, 50, 3900), bits)},
                    {"noise", EncodeG726(loud, bits)},
                    {"tone, then silence", EncodeG726(tone, bits)},
                    {"any codes", any}};
        for (const auto& row : rows) {
            const Samples wanted = BareG726(row.codes, bits);
            AudioDecoderHolder holder;    // which makes a new decoder for the other packing
            for (const bool mostFirst : {false, true}) {
                SCOPED_TRACE(std::string(row.name) + ' ' + std::to_string(bits) + (mostFirst ? " most" : " least"));
                const Bytes packed = PackG726(row.codes, bits, mostFirst);
                Samples got;
                for (size_t at = 0, step = 1; at < packed.size(); at += step, step = step % 331 + 7) {
                    const auto begin = packed.begin() + static_cast<ptrdiff_t>(at);
                    const Bytes unit(begin, begin + static_cast<ptrdiff_t>(std::min(step, packed.size() - at)));
                    MediaFrameHeader header = SoundHeader(CORVANE_STREAM_G726, unit, 8000, 1, 0);
                    header.detail.audio.audioBitRate = static_cast<uint32_t>(bits) * 8000;
                    header.detail.audio.audioPacking = mostFirst ? 7 : 0;
                    Append(got, Decode(holder, header));
                }
                ASSERT_EQ(got.size(), packed.size() * 8 / static_cast<size_t>(bits));
                size_t wrong = 0, limited = 0;
                for (size_t i = 0; i < wanted.size(); ++i)
                    if (got[i] != wanted[i])
                        (got[i] == 32764 || got[i] == -32768 ? limited : wrong)++;
                EXPECT_EQ(wrong, 0u);
                EXPECT_EQ(limited > 0, row.codes == any);
            }
        }
    }
}

// Libavcodec decodes the main body of the Recommendation, and libbcg729 its Annex A.
TEST(SoundCodecs, G729IsNearAnnexA) {
    const std::vector<Bytes> blocks = EncodeG729(Speech(8000));
    const Samples wanted = BareG729(blocks);
    for (const size_t together : {1, 3}) {
        const Samples got = DecodeBlocks(CORVANE_STREAM_G729A, blocks, 8000, 1, together);
        ASSERT_EQ(got.size(), blocks.size() / together * together * 80);
        EXPECT_GE(SignalToNoise(wanted, got), 20);
    }
}

TEST(SoundCodecs, AacIsThatOfItsLibrary) {
    const struct { int rate, channels; } rows[] = {{16000, 1}, {8000, 2}, {44100, 2}, {48000, 6}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rate);
        Samples mono = Speech(row.rate);
        mono.resize(std::min<size_t>(mono.size(), 60 * 1024));
        const std::vector<Bytes> raw = EncodeAac(Spread(mono, row.channels), row.rate, row.channels);
        ASSERT_GT(raw.size(), 40u);
        const Samples wanted = BareAac(raw, row.rate, row.channels);
        const auto rate = static_cast<uint32_t>(row.rate);
        const auto channels = static_cast<uint8_t>(row.channels);
        EXPECT_EQ(DecodeBlocks(CORVANE_STREAM_AAC, raw, rate, channels), wanted);
        std::vector<Bytes> plain, pairs, sums;
        for (const Bytes& block : raw) {
            plain.push_back(AdtsFrame(block, row.rate, row.channels));
            sums.push_back(AdtsFrame(block, row.rate, row.channels, true));
            if (plain.size() % 2 == 0)
                pairs.push_back(plain[plain.size() - 2] + plain.back());
        }
        EXPECT_EQ(DecodeBlocks(CORVANE_STREAM_AAC, plain, rate, channels), wanted);
        EXPECT_EQ(DecodeBlocks(CORVANE_STREAM_AAC, sums, rate, channels), wanted);
        const Samples inPairs = DecodeBlocks(CORVANE_STREAM_AAC, pairs, rate, channels);
        EXPECT_TRUE(!inPairs.empty() && std::equal(inPairs.begin(), inPairs.end(), wanted.begin()));
    }
}

// A block that fails loses itself, and what follows it sounds as before.
TEST(SoundCodecs, AacGoesOnAfterBlocksThatFail) {
    const std::vector<Bytes> raw = EncodeAac(Sweep(16000, 2, 500, 500), 16000, 1);
    const std::vector<Bytes> stereo = EncodeAac(Spread(Sweep(16000, 1, 500, 500), 2), 16000, 2);
    const Samples wanted = BareAac(raw, 16000, 1);
    Bytes torn = raw[9];
    torn.resize(torn.size() / 3);
    Bytes early = AdtsFrame(raw[9] + Bytes{0}, 16000, 1);
    early.pop_back();
    const struct {
        const char* name;
        Bytes block;
    } rows[] = {{"two channels", stereo[9]},
                {"two channels, as ADTS says", AdtsFrame(stereo[9], 16000, 2)},
                {"another rate", AdtsFrame(raw[9], 32000, 1)},
                {"ADTS beyond the end", early},
                {"an end", {0xE0, 0}},
                {"ones", Bytes(200, 0xFF)},
                {"torn", torn}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        AudioDecoderHolder holder;
        for (size_t i = 0; i < 20; ++i) {
            const Samples got = Decode(holder, SoundHeader(CORVANE_STREAM_AAC, i == 9 ? row.block : raw[i], 16000));
            const auto begin = wanted.begin() + static_cast<ptrdiff_t>(i * 1024);
            EXPECT_EQ(got.size(), i == 9 ? 0u : 1024u) << i;
            EXPECT_TRUE(i == 9 || i == 10 || std::equal(got.begin(), got.end(), begin)) << i;
        }
    }
}

Samples DecodeG7221(const std::vector<Bytes>& blocks, size_t together = 1) {
    return DecodeBlocks(CORVANE_STREAM_G7221, blocks, 16000, 1, together);
}

// The sum of the squares of 20 coefficients, by block and region.
std::vector<std::vector<double>> Energies(const Samples& samples) {
    std::vector<std::vector<double>> out;
    for (size_t at = 0; at + 640 <= samples.size(); at += 320) {
        const std::vector<double> coefficients = LappedTransform(samples.data() + at);
        std::vector<double> energies(14);
        for (size_t i = 0; i < 280; ++i)
            energies[i / 20] += coefficients[i] * coefficients[i];
        out.push_back(energies);
    }
    return out;
}

// Its delay is one block. The transform of decoded samples gives back the coefficients of their blocks, so each region
// has the energy that the stream states, in steps of 3 dB, noise or not.
TEST(SoundCodecs, G7221KeepsSpeechAndTheEnergyOfEachRegion) {
    const Samples speech = Speech(16000);
    const struct {
        size_t bytes;
        double speech, sine;
    } rows[] = {{60, 17, 20}, {80, 18, 20}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        const std::vector<Bytes> blocks = EncodeG7221(speech, row.bytes);
        const Samples got = DecodeG7221(blocks);
        ASSERT_EQ(got.size(), blocks.size() * 320);
        EXPECT_EQ(DecodeG7221(blocks, 3), Head(got, blocks.size() / 3 * 960));
        const Samples late(got.begin() + 320, got.end());
        EXPECT_GE(SignalToNoise(speech, late), row.speech);
        const auto before = Energies(speech), after = Energies(late);
        size_t far = 0, regions = 0;
        for (size_t block = 0; block < after.size(); ++block)
            for (size_t region = 0; region < 14; ++region) {
                if (before[block][region] < 20 * 64)
                    continue;
                const double ratio = 10 * std::log10(after[block][region] / before[block][region]);
                ++regions;
                far += std::abs(ratio) > 4 ? 1 : 0;
            }
        EXPECT_LT(far, regions / 20);
        const Samples sine = Sweep(16000, 1, 1234, 1234);
        const Samples heard = DecodeG7221(EncodeG7221(sine, row.bytes));
        EXPECT_GE(SignalToNoise(sine, {heard.begin() + 320, heard.end()}), row.sine);
    }
}

// The transform of decoded samples gives back the coefficients of their blocks: those of the model, noise included.
TEST(SoundCodecs, G7221HasTheCoefficientsOfItsModel) {
    Samples loud = Sweep(16000, 2, 100, 6900);    // with noise under it, so that blocks run out of bits
    std::mt19937 random(3);
    for (int16_t& sample : loud)
        sample = static_cast<int16_t>(sample / 8 + static_cast<int>(random() % 4000));
    for (const size_t bytes : {40, 60, 80})
        for (const Samples& samples : {Speech(16000), loud}) {
            SCOPED_TRACE(bytes);
            const G7221Stream stream = ModelG7221(samples, bytes);
            const auto kernel = G7221Kernel::Make();
            Samples got(stream.blocks.size() * 320);
            for (size_t i = 0; i < stream.blocks.size(); ++i)
                kernel->Decode(stream.blocks[i].data(), static_cast<uint32_t>(bytes), &got[i * 320]);
            for (size_t block = 0; block + 1 < stream.blocks.size(); ++block) {
                const std::vector<double> own = LappedTransform(&got[block * 320]);
                for (size_t i = 0; i < 280; ++i)
                    ASSERT_NEAR(own[i], stream.coefficients[block][i], 4) << block << ' ' << i;
            }
        }
}

// Libavcodec's decoder of the sister codec at 16 kbit/s has its own copy of the tables, and the same envelope,
// categories and vectors. It synthesises with sines where the Recommendation has cosines, so its samples are taken back
// to coefficients with sines. Its noise is 22 times weaker, with other signs, and it refuses blocks that run out of
// bits.
TEST(SoundCodecs, G7221HasTheCoefficientsOfItsSister) {
    constexpr double kScale = -1.78885;    // sqrt(3.2), between its output and ours
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_SIREN);
    const ContextPtr context(avcodec_alloc_context3(codec));
    context->log_level_offset = 128;
    context->sample_rate = 16000;
    ASSERT_GE(avcodec_open2(context.get(), codec, nullptr), 0);
    const auto kernel = G7221Kernel::Make();
    const PacketPtr packet(av_packet_alloc());
    const BarePicture frame(av_frame_alloc());
    Samples sister(320), ours(320);    // of the block before and this one
    size_t inRow = 0, coded = 0, noise = 0, wrong = 0;
    for (const Bytes& block : EncodeG7221(Speech(16000), 40)) {
        av_new_packet(packet.get(), static_cast<int>(block.size()));
        std::copy(block.begin(), block.end(), packet->data);
        inRow = avcodec_send_packet(context.get(), packet.get()) >= 0 ? inRow + 1 : 0;
        av_packet_unref(packet.get());
        ours.resize(640);
        kernel->Decode(block.data(), 40, &ours[320]);
        sister.resize(640);
        if (inRow > 0) {
            ASSERT_GE(avcodec_receive_frame(context.get(), frame.get()), 0);
            const auto* const values = reinterpret_cast<float*>(frame->data[0]);
            std::transform(values, values + 320, &sister[320],
                           [](float value) { return static_cast<int16_t>(std::lrint(value * 32768)); });
        }
        if (inRow > 2) {
            const std::vector<double> theirs = LappedTransform(sister.data(), true), own = LappedTransform(ours.data());
            for (size_t i = 0; i < 280; ++i) {
                const double wanted = theirs[i] * kScale;
                const bool isCoded = std::abs(wanted) > 40 && std::abs(wanted) > std::abs(own[i]) / 3;
                (isCoded ? coded : noise)++;
                wrong += isCoded ? std::abs(own[i] - wanted) > 4 : std::abs(own[i]) > std::abs(wanted) * 22 + 60;
            }
        }
        sister.erase(sister.begin(), sister.end() - 320);
        ours.erase(ours.begin(), ours.end() - 320);
    }
    EXPECT_GT(coded, 5000u);
    EXPECT_GT(noise, 5000u);
    EXPECT_EQ(wrong, 0u);
}

// Powers from -15 to 24 are possible; only the last way to divide the bits may run out of them.
TEST(SoundCodecs, G7221KnowsDamagedBlocks) {
    const std::vector<int> flat(14, 13);
    std::vector<int> highest(14, 24), above = highest, lowest(14, -15), below = lowest;
    lowest[0] = below[0] = -6;
    above[1] = 25;
    below[13] = -16;
    const struct {
        const char* name;
        Bytes block;
        bool damaged;
    } rows[] = {{"highest", G7221Ones(highest, 15), false},
                {"above", G7221Ones(above, 15), true},
                {"lowest", G7221Ones(lowest, 15), false},
                {"below", G7221Ones(below, 15), true},
                {"runs out", G7221Ones(flat, 0), true}};
    const std::vector<Bytes> speech = EncodeG7221(Speech(16000), 40);
    for (const auto& row : rows) {
        const auto kernel = G7221Kernel::Make();
        Samples got(4 * 320);
        for (size_t i = 0; i < 4; ++i)
            kernel->Decode(i == 2 ? row.block.data() : speech[40 + i].data(), 40, &got[i * 320]);
        const std::vector<double> before = LappedTransform(&got[320]), at = LappedTransform(&got[640]);
        const bool same = std::equal(before.begin(), before.end(), at.begin(),
                                     [](double a, double b) { return std::abs(a - b) < 4; });
        EXPECT_EQ(same, row.damaged) << row.name;
    }
}

// A damaged block sounds as the one before it, a second one is silent, and neither reaches beyond the block after it:
// only signs of noise differ there.
TEST(SoundCodecs, G7221DamageEndsWithTheNextBlock) {
    const std::vector<Bytes> blocks = EncodeG7221(Speech(16000), 60);
    const Samples good = DecodeG7221(blocks);
    constexpr size_t kAt = 40;
    for (const size_t damaged : {1, 2}) {
        for (const bool padding : {false, true}) {    // powers beyond all bounds, or padding with a zero in it
            SCOPED_TRACE(std::to_string(damaged) + (padding ? " padding" : " powers"));
            Bytes bad(60, padding ? 0xFF : 0);
            bad.back() &= 0xFE;
            std::vector<Bytes> torn = blocks;
            for (size_t i = 0; i < damaged; ++i)
                torn[kAt + i] = bad;
            const Samples got = DecodeG7221(torn);
            EXPECT_TRUE(std::equal(good.begin(), good.begin() + kAt * 320, got.begin()));
            const auto coefficients = [&](const Samples& of, size_t block) {
                return LappedTransform(&of[block * 320]);
            };
            const auto before = coefficients(got, kAt - 1), at = coefficients(got, kAt);
            for (size_t i = 0; i < 320; ++i)
                EXPECT_NEAR(before[i], at[i], 4);
            if (damaged == 2)
                for (const double value : coefficients(got, kAt + 1))
                    EXPECT_NEAR(value, 0, 4);
            for (size_t block = kAt + damaged; block + 1 < blocks.size(); ++block) {
                const auto a = coefficients(good, block), b = coefficients(got, block);
                for (size_t i = 0; i < 320; ++i)
                    ASSERT_NEAR(std::abs(a[i]), std::abs(b[i]), 4) << block;
            }
        }
    }
}

}    // namespace
}    // namespace corvane::test
