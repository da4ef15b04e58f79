// Every picture of libavcodec comes out, equal to the bit, with its own input: with all settings of encoders, and with
// lost and damaged units.

#include "decoders/VideoDecoderHolder.h"
#include "support/BareDecoder.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

using Stream = std::vector<EncodedPicture>;

enum Flags : unsigned { kBehind = 1, kDamaged = 2 };    // after a stream of the usual size; with damage too
struct Row {
    const char* name;
    unsigned flags;
    size_t held, lost;    // pictures that the decoder has at the end, on one thread; that came too late for their place
    VideoSpec spec;       // 96 x 64 where it has the usual width, the usual size where it has none
};
const char* const kScalingLists = "scaling-list=default:hrd=1:vbv-maxrate=9:vbv-bufsize=9";
const Row kRows[] = {
    {"H.264", kDamaged, 0, 0, {}},
    {"no VUI", 0, 0, 0, {.noVui = true}},
    {"B-frames", 0, 1, 0, {.bFrames = 3}},
    {"B-frames, no VUI", kDamaged, 1, 0, {.bFrames = 3, .noVui = true}},
    {"pyramid", kDamaged, 2, 0, {.bFrames = 5, .options = "b-pyramid=normal:ref=4"}},
    {"pyramid, no VUI", 0, 2, 2, {.bFrames = 5, .options = "b-pyramid=normal:ref=4", .noVui = true}},
    {"B-frames behind none, no VUI", kBehind, 1, 0, {.width = 0, .bFrames = 3, .noVui = true}},
    {"open groups", 0, 2, 1, {.bFrames = 3, .options = "b-pyramid=strict", .noVui = true, .openGop = true}},
    {"slices", 0, 1, 0, {.bFrames = 2, .options = "slices=4:cabac=0"}},
    {"intra refresh", 0, 0, 0, {.options = "intra-refresh=1:ref=2", .openGop = true}},
    {"interlaced, no VUI", 0, 1, 0, {.bFrames = 2, .noVui = true, .interlaced = true}},
    {"very wide", kBehind, 0, 0, {.width = 16384, .height = 16}},
    {"4:4:4", kBehind, 0, 0, {.width = 164, .height = 82, .sampling = Sampling::Yuv444, .options = "cqm=jvt:8x8dct=1"}},
    {"grey", kBehind, 0, 0, {.sampling = Sampling::Gray}},
    {"10 bits of 4:2:2", 0, 0, 0, {.sampling = Sampling::Yuv422, .bitDepth = 10}},
    {"H.265", kDamaged, 0, 0, {.streamType = kH265, .options = kScalingLists}},
    {"B-frames", kDamaged, 2, 0, {.streamType = kH265, .bFrames = 4, .options = "rc-lookahead=9"}},
    {"behind none", kBehind, 2, 0, {.streamType = kH265, .width = 0, .bFrames = 2, .options = "temporal-layers=1"}},
    {"H.265, open groups", 0, 2, 0, {.streamType = kH265, .bFrames = 3, .options = "aud=1", .openGop = true}},
    {"MPEG-4", kBehind | kDamaged, 0, 0, {.streamType = kMpeg4, .width = 151, .height = 99, .interlaced = true}},
    {"MPEG-4, B-frames", kDamaged, 1, 0, {.streamType = kMpeg4, .bFrames = 2}},
    {"MPEG-4, B-frames behind none", kBehind, 1, 0, {.streamType = kMpeg4, .width = 0, .bFrames = 2}},
    {"MPEG-4, packed", 0, 1, 0, {.streamType = kMpeg4, .bFrames = 1, .packed = true}},
    {"H.263", kBehind | kDamaged, 0, 0, {.streamType = kH263, .width = 176, .height = 144}},
    {"H.263, the largest size", kBehind, 0, 0, {.streamType = kH263, .width = 704, .height = 576}},
    {"H.263, another size", kBehind, 0, 0, {.streamType = kH263, .width = 100, .height = 76}},
    {"JPEG", kBehind | kDamaged, 0, 0, {.streamType = kJpeg, .width = 151, .height = 99}},
    {"4:2:2", kBehind, 0, 0, {.streamType = kJpeg, .width = 151, .height = 97, .sampling = Sampling::Yuv422}},
    {"4:4:4", kBehind, 0, 0, {.streamType = kJpeg, .width = 201, .height = 99, .sampling = Sampling::Yuv444}},
};

Stream Encode(const Row& row, int frames) {
    VideoSpec spec = row.spec;
    const bool usual = spec.width == 320;
    spec.width = usual ? 96 : spec.width == 0 ? 320 : spec.width;
    spec.height = usual ? 64 : spec.height;
    spec.frames = frames;
    spec.gop = 10;
    Stream stream;
    if ((row.flags & kBehind) != 0)
        stream = MakeVideo({.streamType = spec.streamType});
    const Stream own = MakeVideo(spec);
    stream.insert(stream.end(), own.begin(), own.end());
    return stream;
}

struct Result {
    size_t pictures = 0;
    size_t same = 0;         // as libavcodec's, to the bit
    size_t expected = 0;     // of libavcodec before the end of the stream
    size_t mispaired = 0;    // the n-th picture belongs to the n-th unit that has one
    uint32_t heldBack = 0, threads = 1;
};

Result DecodeAll(uint32_t type, const Stream& stream, uint32_t threads) {
    Result result;
    result.threads = type == kH264 || type == kH265 ? threads : 1;
    auto bare = BareDecode(type, stream, result.threads, &result.expected);
    const auto isSame = [](const auto& one, const auto& other) { return one->pts == other->pts; };
    const auto end = std::unique(bare.begin(), bare.end(), isSame);    // MPEG-4 repeats one when its delay grows
    result.expected -= static_cast<size_t>(bare.end() - end);
    std::vector<int64_t> units;
    for (auto at = bare.begin(); at != end; ++at)
        units.push_back((*at)->pts);
    std::sort(units.begin(), units.end());
    auto holder = std::make_unique<VideoDecoderHolder>();
    holder->SetThreads(threads);
    std::vector<SharedPicture> shared;    // two references each, which outlive the decoder
    for (const auto& unit : stream) {
        uint32_t got = 0;
        holder->Decode(MakeFrame(type, unit.bytes, unit.key, &unit - stream.data()), &got);
        result.heldBack += holder->LastOutcome() == DecodeOutcome::HeldBack ? 1 : 0;
        FramePtr input;
        if (got == 0 || !holder->CurrentInput(input))
            continue;
        const size_t at = result.pictures++;
        if (at >= units.size())
            return result;
        EXPECT_TRUE(shared.emplace_back(holder->ShareCurrent()).Shared());
        result.mispaired += TimeMs(*input) != units[at] ? 1 : 0;
    }
    holder.reset();
    std::vector<SharedPicture> again;
    for (const SharedPicture& picture : shared)
        again.emplace_back(picture.Get());
    std::thread other([&] { again.clear(); });
    for (SharedPicture& picture : shared) {
        result.same += SamePicture(picture.Get(), *bare[static_cast<size_t>(&picture - shared.data())]) ? 1 : 0;
        picture = SharedPicture();
    }
    other.join();
    return result;
}

TEST(Pairing, EveryEncoderAndThreadCount) {
    testing::internal::CaptureStderr();
    for (const Row& row : kRows) {
        const Stream stream = Encode(row, 40);
        for (uint32_t threads = 1; threads <= 4; ++threads) {
            SCOPED_TRACE(testing::Message() << row.name << ", threads " << threads);
            const Result result = DecodeAll(row.spec.streamType, stream, threads);
            const size_t delay = row.held + result.threads - 1;
            EXPECT_EQ(result.pictures, stream.size() - row.lost - delay);
            EXPECT_EQ(result.pictures, result.expected);
            EXPECT_EQ(result.same, result.pictures);
            EXPECT_EQ(result.heldBack, delay);
            EXPECT_LE(result.mispaired, row.lost) << "which one was lost shows late";
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A damaged parameter set that asks for a delay of twelve: the next key frame ends it, at the cost of the held
// pictures. A stream that asks for it from the first has it, though its groups are shorter.
TEST(Pairing, ADelayThatDamageMadeEnds) {
    Stream stream = MakeVideo({.frames = 40, .gop = 10, .noVui = true});
    for (const bool always : {false, true}) {
        for (auto& picture : stream)
            if (picture.number == 10 || always)
                RewriteVui(picture.bytes, 12);
        VideoDecoderHolder holder;
        for (const auto& picture : stream) {
            uint32_t got = 0;
            FramePtr input;
            holder.Decode(MakeFrame(kH264, picture.bytes, picture.key, picture.number), &got);
            const bool shown = holder.CurrentInput(input);
            EXPECT_TRUE(always ? shown || picture.number < 30 : shown == (picture.number < 10 || picture.number >= 20));
            EXPECT_TRUE(!shown || always || TimeMs(*input) == picture.number);
        }
    }
}

// One unit in ten of 300 is damaged, lost, late or comes twice. No later picture is shifted to another input, but for
// one where the delay grows on the way.
TEST(Pairing, OneUnitInTenDamaged) {
    for (const Row& row : kRows) {
        const uint32_t type = row.spec.streamType;
        Stream stream = (row.flags & kDamaged) != 0 ? Encode(row, 300) : Stream();
        std::minstd_rand random(11);
        for (size_t i = std::max<size_t>(stream.size(), 6) - 6; i > 20; i -= 1 + random() % 17) {
            const auto at = stream.begin() + static_cast<ptrdiff_t>(i);
            Bytes& bytes = at->bytes;
            const auto noise = [&](size_t from) {    // without start codes
                for (; from < bytes.size(); ++from)
                    bytes[from] = static_cast<uint8_t>(1 + random() % 255);
            };
            const std::function<void()> damages[] = {
                [&] { bytes.clear(); },
                [&] { bytes.resize(bytes.size() / 2); },
                [&] { type == kMpeg4 ? static_cast<void>(bytes = kNotCoded) : noise(6); },
                [&] { noise(0); },
                [&] { noise(6); },
                [&] { stream.erase(at); },
                [&] { stream.insert(at, EncodedPicture(*at)); },
                [&] { std::iter_swap(at, at + 1); },
            };
            damages[random() % std::size(damages)]();
        }
        for (uint32_t threads = 1; threads <= 4 && !stream.empty(); ++threads) {
            SCOPED_TRACE(testing::Message() << row.name << ", threads " << threads);
            const Result result = DecodeAll(type, stream, threads);
            EXPECT_EQ(result.pictures, result.expected);
            EXPECT_LE(result.mispaired, row.spec.noVui ? 1u : 0u);
            EXPECT_GT(result.pictures, stream.size() - 60);
            EXPECT_LT(result.pictures, stream.size() - 5);
            // Damaged pictures may differ with threads, and in JPEG.
            EXPECT_GE(result.same, type == kJpeg || threads > 1 ? result.pictures / 2 : result.pictures);
            EXPECT_LT(result.heldBack, threads + 8) << "those without a picture are told as such";
        }
    }
}

}    // namespace
}    // namespace corvane::test
