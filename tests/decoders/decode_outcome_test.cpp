// The outcome that is reported for each mistake of a sender.

#include "decoders/VideoDecoderHolder.h"
#include "support/BitWriter.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

// A key frame and a dependent one, as an encoder gives them.
std::vector<Bytes> Encode(uint32_t type, int width = 320) {
    std::vector<Bytes> frames;
    for (EncodedPicture& picture : MakeVideo({.streamType = type, .width = width, .frames = 2}))
        frames.push_back(std::move(picture.bytes));
    return frames;
}

// The one NAL unit of a frame, after its length.
Bytes LengthPrefixed(const Bytes& frame, unsigned width) {
    Bytes out;
    for (unsigned i = width; i-- > 0;)
        out.push_back(static_cast<uint8_t>((frame.size() - 4) >> 8 * i));
    return out + Bytes(frame.begin() + 4, frame.end());
}

Bytes Sets(const Bytes& h264) {
    return {h264.begin(), std::search_n(h264.begin() + 8, h264.end(), 1, 0x65) - 3};
}

Bytes Garbage(Bytes begin, size_t size) {
    std::minstd_rand random(7);
    while (begin.size() < size)
        begin.push_back(static_cast<uint8_t>(1 + random() % 255));
    return begin;
}

TEST(DecodeOutcome, SaysWhatWasWrong) {
    using enum DecodeOutcome;
    const std::vector<Bytes> jpeg = Encode(kJpeg), mpeg4 = Encode(kMpeg4), h264 = Encode(kH264), h265 = Encode(kH265),
                             h263 = Encode(kH263);
    const Bytes sets = Sets(h264[0]), idr(h264[0].begin() + std::ssize(sets), h264[0].end());
    const std::vector late = {HeldBack, HeldBack, HeldBack, Picture, Picture};
    const struct {
        const char* name;
        uint32_t type;
        std::vector<Bytes> frames;
        std::vector<DecodeOutcome> wanted;
        size_t keys = 1;    // the first ones are key frames
        uint32_t threads = 1;
        uint32_t width = 0;    // stated from the second on; another than before asks for another decoder
    } rows[] = {
        {"no start codes", kH264, {LengthPrefixed(h264[1], 4) + LengthPrefixed(h264[1], 4)}, {NoStartCode}},
        {"two bytes of length", kH265, {LengthPrefixed(h265[1], 2)}, {NoStartCode}},
        {"no start codes, as MPEG-4", kMpeg4, {LengthPrefixed(h264[1], 4)}, {NoStartCode}},
        // Its length, 360, reads as a start code and a picture parameter set.
        {"a length like a start code", kH264, {Bytes{0, 0, 1, 0x68} + Garbage({0x65}, 360)}, {NoStartCode}},
        {"a length too many", kH264, {LengthPrefixed(h264[1], 4) + Bytes{0, 0, 0, 9, 1}}, {Failed}},
        {"H.265 as H.264", kH264, h265, {WrongType, WrongType}},
        {"MPEG-4 as H.264", kH264, mpeg4, {WrongType, WrongType}},
        {"JPEG as H.264", kH264, jpeg, {WrongType, WrongType}},
        {"H.264 as H.265", kH265, h264, {WrongType, WrongType}},
        {"MPEG-4 as H.265", kH265, mpeg4, {WrongType, WrongType}},
        {"H.264 as MPEG-4", kMpeg4, h264, {WrongType, WrongType}},
        {"H.265 as MPEG-4", kMpeg4, h265, {WrongType, Failed}},
        {"H.264 as JPEG", kJpeg, h264, {WrongType, WrongType}},
        {"garbage", kH264, {Garbage({}, 500)}, {Failed}},
        {"garbage, H.265", kH265, {Garbage({}, 500)}, {Failed}},
        {"half a JPEG header", kJpeg, {Bytes(jpeg[0].begin(), jpeg[0].begin() + 30)}, {Failed}},
        {"a dependent frame alone, MPEG-4", kMpeg4, {mpeg4[1]}, {Failed}},
        {"a dependent frame alone", kH264, {h264[1]}, {AwaitsKeyFrame}, 0},
        {"a dependent frame behind the sets", kH264, {sets + h264[1]}, {Picture}},
        {"parameter sets by themselves", kH264, {sets, h264[0]}, {HeldBack, Picture}},
        {"sets, a size, three threads", kH264, {sets, idr, h264[1], h264[1], h264[1]}, late, 2, 3, 320},
        {"wide JPEG", kJpeg, {Encode(kJpeg, 16385)[0]}, {Size}},
        {"H.264 between JPEG", kJpeg, {jpeg[0], h264[0], jpeg[1]}, {Picture, WrongType, Picture}},
        {"garbage behind a header", kH264, {h264[0], Garbage({0, 0, 0, 1, 0x41}, 500)}, {Picture, Failed}},
        {"nothing in it", kH264, {h264[0], {}, h264[1]}, {Picture, NoPicture, Picture}},
        {"a delimiter by itself", kH264, {h264[0], {0, 0, 0, 1, 9}, h264[1]}, {Picture, HeldBack, Picture}},
        {"H.264 as H.263", kH263, {h263[0], h264[0], h263[1]}, {Picture, Failed, Picture}},
        {"wide H.263", kH263, {h263[0], Encode(kH263, 708)[0], h263[1]}, {Picture, Size, Picture}},
        {"nothing in it, H.263", kH263, {h263[0], {}, h263[1]}, {Picture, NoPicture, Picture}},
    };
    for (const auto& row : rows) {
        VideoDecoderHolder holder;
        holder.SetThreads(row.threads);
        EXPECT_EQ(holder.ThreadsInUse(), 0u);
        const bool decoder = row.wanted[0] != NoDecoder && row.wanted[0] != AwaitsKeyFrame;
        for (size_t i = 0; i < row.frames.size(); ++i) {
            uint32_t got = 0;
            const uint32_t side = i > 0 ? row.width : 0;
            const FramePtr frame = MakeFrame(row.type, row.frames[i], i < row.keys, 0, side, side);
            const bool fails = holder.Decode(frame, &got) < 0;
            EXPECT_TRUE(row.type != kH263 || fails == (row.wanted[i] == Failed || row.wanted[i] == Size)) << row.name;
            EXPECT_EQ(static_cast<int>(holder.LastOutcome()), static_cast<int>(row.wanted[i])) << row.name << ' ' << i;
            EXPECT_EQ(got != 0, row.wanted[i] == Picture) << row.name << ' ' << i;
            EXPECT_EQ(holder.ThreadsInUse(), decoder ? row.threads : 0) << row.name;
        }
    }
}

}    // namespace
}    // namespace corvane::test
