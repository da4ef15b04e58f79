// The sound codecs at the holder, against decoders of other hands.

#include "base/FailurePoint.h"
#include "decoders/AudioDecoderHolder.h"
#include "support/GuardedBytes.h"
#include "support/SoundMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

constexpr uint32_t kAll = 576'000;    // the capacity that the sound device gives
constexpr uint32_t kG7221 = CORVANE_STREAM_G7221, kG729 = CORVANE_STREAM_G729A, kAac = CORVANE_STREAM_AAC,
                   kAmr = CORVANE_STREAM_AMR, kMuLaw = CORVANE_STREAM_MULAW, kALaw = CORVANE_STREAM_ALAW,
                   kG726 = CORVANE_STREAM_G726;

// How many samples of the frame went to the end of `out`; -1 after a failure, which must leave the size as it was.
int32_t Decode(AudioDecoderHolder& holder, const MediaFrameHeader& header, Samples& out, uint32_t capacity = kAll) {
    const GuardedBytes pcm(Bytes(capacity, 0));
    uint32_t size = capacity;
    const int32_t result = holder.Decode(pcm.Data(), &size, MediaFrameImpl(header));
    EXPECT_TRUE(result == 0 ? size <= capacity && size % 2 == 0 : result < 0 && size == capacity);
    for (uint32_t at = 0; result == 0 && at < size; at += 2)
        std::memcpy(&out.emplace_back(), pcm.Data() + at, 2);
    return result == 0 ? static_cast<int32_t>(size / 2) : -1;
}

// All blocks, in frames of one to `most` of them.
Samples DecodeBlocks(uint32_t type, const std::vector<Bytes>& blocks, int rate, int channels, uint32_t most) {
    AudioDecoderHolder holder;
    Samples out;
    for (size_t at = 0; at < blocks.size();) {
        Bytes bytes;
        uint32_t count = 0;
        for (const auto wanted = 1 + at % most; count < wanted && at < blocks.size(); ++count)
            bytes = bytes + blocks[at++];
        Decode(holder, SoundHeader(type, bytes, rate, channels, count), out);
    }
    return out;
}

// Samples of the laws as their Recommendation lists them. All frames go through one holder, so that the decoder is
// replaced in between: a frame that is refused loses only itself, and of others a part is dropped.
TEST(AudioHolder, FramesThatAreRefusedLoseThemselvesOnly) {
    const Bytes mu = {0xFF, 0x00, 0x80, 0xA0}, a = {0xD5, 0x55, 0x2A, 0xAA};
    const Samples muSamples = {0, -32124, 32124, 7932}, aSamples = {8, -8, -32256, 32256};
    Bytes amr(64, 0xFF);    // two blocks of 32 bytes
    amr[0] = amr[32] = 0x3C;
    const Samples tone = Sweep(16000, 0.5, 300, 900);
    const Bytes g7221 = G7221Vectors("sine60").blocks[3], g729 = MakeG729(tone).blocks[3];
    const Bytes aac = MakeAac(tone, 16000).blocks[3], aacTwo = MakeAac(tone, 16000, 2).blocks[3];
    const struct {
        const char* name;
        uint32_t type;
        Bytes bytes;
        uint32_t capacity;
        int32_t result;
        uint32_t blocks = 1;
        int rate = 16000, channels = 1, bitRate = 16000;
        Samples samples = {};
    } rows[] = {
        {"mu-law", kMuLaw, mu, 8, 4, 1, 8000, 1, 0, muSamples},
        {"A-law", kALaw, a, 9, 4, 1, 8000, 1, 0, aSamples},
        {"two channels", kALaw, a, 8, 4, 1, 8000, 2, 0, aSamples},
        {"no room", kALaw, a, 7, -1},
        {"nothing", kALaw, {}, 8, 0},
        {"no channel", kALaw, a, 8, -1, 1, 8000, 0},
        {"AMR", kAmr, amr, 640, 320},
        {"no room", kAmr, amr, 400, -1},
        {"no header", kAmr, Bytes(300, 0xFF), 640, 0},
        {"no count", kG7221, g7221, kAll, -1, 0},
        {"16 kbit/s", kG7221, Bytes(40, 1), kAll, -1},
        {"no room", kG7221, g7221 + g7221, 1279, -1, 2},
        {"just room, and a byte that is dropped", kG7221, g7221 + g7221 + Bytes{1}, 1280, 640, 2},
        {"no count", kG729, g729, kAll, -1, 0},
        {"no room", kG729, g729 + g729, 319, -1, 2},
        {"just room, and bytes that are dropped", kG729, g729 + g729 + Bytes(9, 1), 320, 160, 7},
        {"no count", kAac, aac, kAll, -1, 0},
        {"no room", kAac, aac, 2047, -1},
        {"just room", kAac, aac, 2048, 1024},
        {"a second block of ones", kAac, aac + Bytes(aac.size(), 0xFF), kAll, -1, 2},
        {"no room for two channels", kAac, aacTwo, 4095, -1, 1, 16000, 2},
        {"no rate of the standard", kAac, aac, kAll, -1, 1, 16001},
        {"seven channels", kAac, aac, kAll, -1, 1, 16000, 7},
        {"a byte beyond the capacity", kG726, Bytes(72'001, 7), kAll, -1},
        {"just room", kG726, Bytes(72'000, 7), kAll, 288'000},
        {"another bit rate", kG726, {1}, kAll, -1, 1, 8000, 1, 16001},
        {"48 kbit/s", kG726, {1}, kAll, -1, 1, 8000, 1, 48000},
    };
    AudioDecoderHolder holder;
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.name) + ' ' + std::to_string(row.type));
        MediaFrameHeader header = SoundHeader(row.type, row.bytes, row.rate, row.channels, row.blocks);
        header.detail.audio.audioBitRate = static_cast<uint32_t>(row.bitRate);
        Samples got;
        EXPECT_EQ(Decode(holder, header, got, row.capacity), row.result);
        EXPECT_TRUE(row.samples.empty() || got == row.samples);
        // Each platform call fails once: the frame is lost, and the next one finds a decoder.
        for (uint64_t n = 1, hits = n; row.result > 0 && hits >= n; ++n) {
            AudioDecoderHolder other;
            failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), n, false);
            Decode(other, header, got, row.capacity);
            hits = failure::Hits();
            failure::Disarm();
            EXPECT_EQ(Decode(other, header, got, row.capacity), row.result) << n;
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Decodes payloads of one byte or, where none is lost, of more and more bytes.
Samples DecodeG726(const Bytes& bytes, int bits, bool mostFirst, size_t lost = SIZE_MAX) {
    AudioDecoderHolder holder;
    Samples got;
    for (size_t at = 0, n = 0, step = 1; at < bytes.size();
         at += std::exchange(step, lost == SIZE_MAX ? n * 7 % 331 + 1 : 1), ++n) {
        const Bytes unit(&bytes[at], bytes.data() + std::min(at + step, bytes.size()));
        MediaFrameHeader header = SoundHeader(kG726, unit, 8000, 1, 0);
        header.detail.audio.audioBitRate = static_cast<uint32_t>(bits) * 8000;
        header.detail.audio.audioPacking = mostFirst ? 7 : 0;
        EXPECT_EQ(Decode(holder, header, got, n == lost ? 2 : kAll) < 0, n == lost);
    }
    return got;
}

// Against libspandsp, in payloads whose lengths are no multiple of a code. Loud codes that no encoder gives overflow
// its samples; ours stay at the limit.
TEST(AudioHolder, G726IsExactInAllRatesAndPackings) {
    std::mt19937 random(17);
    Samples sound = Speech(8000);
    std::transform(sound.begin(), sound.end(), sound.begin(), [](int16_t sample) { return sample / 2; });
    for (const Samples& more : {Sweep(8000, 1, 1000, 1000), Samples(9000), Samples(20'000), Sweep(8000, 3, 50, 3900)})
        sound.insert(sound.end(), more.begin(), more.end());
    std::generate_n(sound.end() - 44'000, 20'000, [&] { return static_cast<int16_t>(random() % 20'000 - 10'000); });
    for (int i = 0; i < 16; ++i) {
        const int bits = 2 + i / 4;
        const bool mostFirst = i % 2 != 0, any = i / 2 % 2 != 0;
        Bytes bytes = EncodeG726(sound, bits, mostFirst);
        if (any)
            std::generate(bytes.begin(), bytes.end(), std::ref(random));
        const Samples wanted = BareG726(bytes, bits, mostFirst), got = DecodeG726(bytes, bits, mostFirst);
        ASSERT_EQ(got.size(), wanted.size());
        for (size_t at = 0; at < wanted.size(); ++at)
            ASSERT_TRUE(got[at] == wanted[at] || (any && (got[at] == 32764 || got[at] == -32768))) << i << ' ' << at;
    }
}

// Codes 2 5 2 1 4 5 6 2 of three bits, a byte at a time. The second byte, with the end of the third code to the begin
// of the sixth, is lost, and the others sound as if they had come alone.
TEST(AudioHolder, CodesOfG726StayInPlaceAfterALostFrame) {
    EXPECT_EQ(DecodeG726({0b010'101'01, 0b0'001'100'1, 0b01'110'010}, 3, true, 1),
              DecodeG726({0b010'101'10, 0b1'110'010'0}, 3, true));
    EXPECT_EQ(DecodeG726({0b10'101'010, 0b1'100'001'0, 0b010'110'10}, 3, false, 1),
              DecodeG726({0b01'101'010, 0b0'010'110'1}, 3, false));
}

// Libavcodec decodes the main body of the Recommendation, and libbcg729 its Annex A.
TEST(AudioHolder, G729IsNearAnnexA) {
    const SoundStream stream = MakeG729(Speech(8000));
    const Samples got = DecodeBlocks(kG729, stream.blocks, 8000, 1, 3);
    ASSERT_EQ(got.size(), stream.decoded.size());
    EXPECT_GE(SignalToNoise(stream.decoded, got), 20);
}

// A raw block with a fill element that says that there is spectral band replication, and has no data for it.
Bytes WithReplication(const Bytes& raw) {
    size_t end = raw.size() * 8;
    while ((raw[(end - 1) / 8] >> (7 - (end - 1) % 8) & 1) == 0)
        --end;    // zeros after the end, which is three ones
    BitWriter w;
    for (size_t i = 0; i + 3 < end; ++i)
        w.U(1, raw[i / 8] >> (7 - i % 8) & 1u);
    return w.U(3, 6).U(4, 2).U(4, 13).U(12, 0).U(3, 7).Packed();
}

TEST(AudioHolder, AacIsThatOfItsLibrary) {
    const std::pair<int, int> rows[] = {{16000, 1}, {8000, 2}, {44100, 2}, {48000, 6}};
    for (const auto& [rate, channels] : rows) {
        const SoundStream stream = MakeAac(Sweep(rate, 1, 100, 3000), rate, channels);
        std::vector<Bytes> plain, padded, sums, replication;
        for (const Bytes& block : stream.blocks) {
            plain.push_back(AdtsFrame(block, rate, channels));
            padded.emplace_back(plain.back()).resize(4000);
            sums.push_back(AdtsFrame(block, rate, channels, true));
            replication.push_back(WithReplication(block));
        }
        for (const auto& [blocks, most] :
             {std::pair(stream.blocks, 1u), {plain, 3u}, {padded, 2u}, {sums, 5u}, {replication, 1u}})
            EXPECT_EQ(DecodeBlocks(kAac, blocks, rate, channels, most), stream.decoded) << rate;
    }
}

// A block that fails loses itself, and what follows it sounds as before.
TEST(AudioHolder, AacGoesOnAfterBlocksThatFail) {
    const SoundStream stream = MakeAac(Sweep(16000, 2, 500, 500), 16000);
    const Bytes good = stream.blocks[9], stereo = MakeAac(Sweep(16000, 1, 500, 500), 16000, 2).blocks[9];
    const Bytes beyond = AdtsFrame(good + Bytes{0}, 16000, 1);
    const std::pair<const char*, Bytes> rows[] = {{"two channels", stereo},
                                                  {"two channels, as ADTS says", AdtsFrame(stereo, 16000, 2)},
                                                  {"another rate", AdtsFrame(good, 32000, 1)},
                                                  {"ADTS beyond the end", Bytes(beyond.begin(), beyond.end() - 1)},
                                                  {"an end", {0xE0, 0}},
                                                  {"ones", Bytes(200, 0xFF)},
                                                  {"torn", Bytes(good.begin(), good.begin() + std::ssize(good) / 3)}};
    Samples wanted = stream.decoded;
    wanted.erase(wanted.begin() + 9 * 1024, wanted.begin() + 11 * 1024);
    for (const auto& [name, block] : rows) {
        std::vector<Bytes> blocks = stream.blocks;
        blocks[9] = block;
        Samples got = DecodeBlocks(kAac, blocks, 16000, 1, 1);
        got.erase(got.begin() + 9 * 1024, got.begin() + 10 * 1024);    // half of it is the block that is lost
        EXPECT_EQ(got, wanted) << name;
    }
}

// The vectors are those of a model that is coded apart from the decoder, noise included.
TEST(AudioHolder, G7221HasTheSamplesOfItsModel) {
    for (const char* const name : {"speech60", "speech80", "loud60", "loud80", "sine60"}) {
        const SoundStream stream = G7221Vectors(name);
        const Samples got = DecodeBlocks(kG7221, stream.blocks, 16000, 1, 3);
        ASSERT_EQ(got.size(), stream.blocks.size() * 320) << name;
        for (size_t i = 0; i < got.size(); ++i)
            ASSERT_NEAR(got[i], stream.decoded[i], 1) << name << ' ' << i;
    }
}

// Powers from -15 to 24 are possible, only the last way to divide the bits may run out of them, and what they leave is
// ones. A damaged block sounds as the one before it, later ones are silent, and what comes after is as without them,
// but for signs of noise.
TEST(AudioHolder, G7221KnowsDamagedBlocks) {
    const SoundStream speech = G7221Vectors("speech60"), edges = G7221Vectors("edges60");
    ASSERT_EQ(edges.blocks.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        std::vector<Bytes> blocks = speech.blocks, repeated = blocks;
        std::fill_n(blocks.begin() + 20, 4, edges.blocks[i]);
        repeated[20] = repeated[19];
        const Samples got = DecodeBlocks(kG7221, blocks, 16000, 1, 1),
                      twice = DecodeBlocks(kG7221, repeated, 16000, 1, 1);
        const auto ratio = [&](const Samples& wanted, size_t at, size_t end) {
            return SignalToNoise({&wanted[at * 320], &wanted[end * 320]}, {&got[at * 320], &got[end * 320]});
        };
        const bool damaged = i > 1;
        EXPECT_EQ(std::count(&got[22 * 320], &got[24 * 320], 0) == 640, damaged) << i;
        EXPECT_EQ(ratio(twice, 20, 21) > 10, damaged) << i;
        EXPECT_TRUE(!damaged || ratio(speech.decoded, 25, 47) > 10) << i;
    }
}

}    // namespace
}    // namespace corvane::test
