// What a bad network and a hostile sender do to real streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "base/FailurePoint.h"
#include "decoders/VideoDecoderHolder.h"
#include "support/BareDecoder.h"
#include "support/FailingAllocation.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedPicture;
using test::MakeFrame;
using test::VideoSpec;
using Stream = std::vector<EncodedPicture>;

constexpr uint32_t kCodecs[] = {CORVANE_STREAM_JPEG, CORVANE_STREAM_MPEG4, CORVANE_STREAM_H264, CORVANE_STREAM_H265};

// Feeds all of a stream and hands on each picture with the input that brought it out.
template <typename Seen>
void Play(VideoDecoderHolder& holder, uint32_t codec, const Stream& stream, Seen seen) {
    for (const EncodedPicture& picture : stream) {
        uint32_t got = 0;
        holder.Decode(MakeFrame(codec, picture.bytes, picture.key, picture.ptsMs), &got);
        seen(picture, got != 0 ? &holder.CurrentFrame() : nullptr);
    }
}

int Stamp(const DecodedFrame* frame) {
    return frame == nullptr ? -1 : test::ReadStamp(frame->planes[0], frame->strides[0]);
}

// From the first key frame behind the damage on, every picture is there, is the right one, and equals an undamaged
// decode.
TEST(Damage, EndsAtTheNextGoodKeyFrame) {
    using At = Stream::iterator;
    const struct {
        const char* name;
        std::function<void(Stream&, At)> damage;    // at this picture
    } rows[] = {
        {"cut", [](Stream&, At at) { at->bytes.resize(at->bytes.size() / 2); }},
        {"cut to a byte", [](Stream&, At at) { at->bytes.resize(1); }},
        {"empty", [](Stream&, At at) { at->bytes.clear(); }},
        {"garbage", [](Stream&, At at) { std::generate(at->bytes.begin(), at->bytes.end(), std::minstd_rand(7)); }},
        {"header of zeros", [](Stream&, At at) { std::fill_n(at->bytes.begin(), 40, uint8_t{0}); }},
        {"lost", [](Stream& s, At at) { s.erase(at); }},
        {"doubled", [](Stream& s, At at) { s.insert(at, EncodedPicture(*at)); }},
        {"exchanged", [](Stream&, At at) { std::iter_swap(at, at + 1); }},
        {"no start", [](Stream& s, At at) { s.erase(s.begin(), at + 1); }},
    };
    for (const uint32_t codec : kCodecs) {
        const Stream clean = test::MakeVideo({.streamType = codec, .width = 160, .height = 96, .frames = 24, .gop = 6});
        const auto bare = test::BareDecode(codec, clean);
        for (const auto& row : rows)
            for (const int at : {8, 12})
                for (const uint32_t threads : {1u, 3u}) {
                    SCOPED_TRACE(testing::Message() << codec << row.name << " at " << at << " threads " << threads);
                    Stream stream = clean;
                    row.damage(stream, stream.begin() + at);
                    const bool late = codec == CORVANE_STREAM_H264 || codec == CORVANE_STREAM_H265;
                    const int delay = late ? static_cast<int>(threads) - 1 : 0;
                    int expected = at == 8 ? 12 : 18;    // number of the first key frame behind the damage
                    const int first = expected + delay;
                    VideoDecoderHolder holder;
                    holder.SetThreads(threads);
                    Play(holder, codec, stream, [&](const EncodedPicture& picture, const DecodedFrame* frame) {
                        if (picture.number < first)
                            return;
                        ASSERT_EQ(Stamp(frame), expected);
                        EXPECT_TRUE(test::SamePicture(*frame, *bare[static_cast<size_t>(expected)])) << expected;
                        FramePtr input;
                        ASSERT_TRUE(holder.CurrentInput(input));
                        EXPECT_EQ(TimeMs(*input), expected++ * 40);
                    });
                    EXPECT_EQ(expected, 24 - delay);
                }
    }
}

// Thousands of mutated frames: bounded, silent, and a good stream plays on the same holder afterwards.
TEST(Damage, FloodOfGarbageIsBoundedAndSilent) {
    std::mt19937 random(20);
    testing::internal::CaptureStderr();
    for (const uint32_t codec : kCodecs)
        for (const bool interlaced : {false, true}) {
            VideoSpec spec{.streamType = codec, .width = 96, .height = 64, .frames = 6, .gop = 3};
            spec.interlaced = interlaced && codec != CORVANE_STREAM_JPEG;
            const Stream clean = test::MakeVideo(spec);
            VideoDecoderHolder holder;
            holder.SetThreads(interlaced ? 2 : 1);
            for (int round = 0; round < 60; ++round) {
                Stream stream = clean;
                for (EncodedPicture& picture : stream) {
                    for (uint32_t hits = random() % 8; hits > 0; --hits) {
                        const size_t reach = random() % 2 == 0 ? 64 : SIZE_MAX;
                        picture.bytes[random() % std::min(picture.bytes.size(), reach)] =
                            static_cast<uint8_t>(random());
                    }
                    if (random() % 8 == 0)
                        picture.bytes.resize(random() % picture.bytes.size());
                    picture.key = random() % 2 == 0;
                }
                Play(holder, codec, stream, [&](auto&&...) { ASSERT_LE(holder.InFlight(), 2u + 32); });
            }
            holder.Reset(false);
            int last = -1;
            Play(holder, codec, clean, [&](auto&, const DecodedFrame* frame) { last = std::max(last, Stamp(frame)); });
            EXPECT_GE(last, 4);
        }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The n-th platform call fails, or all from the n-th on, or the n-th allocation, n rising until all goes well: the road
// goes on, one failure loses one picture of a stream of key frames, and afterwards a good stream plays.
TEST(Damage, FailedCallsLoseNoMoreThanAGroup) {
    enum Failing { Call, AllCalls, Allocation };
    for (const uint32_t codec : kCodecs)
        for (const Failing failing : {Call, AllCalls, Allocation}) {
            VideoSpec spec{.streamType = codec, .width = 96, .height = 64, .frames = 4, .gop = 2};
            if (codec == CORVANE_STREAM_JPEG)
                spec.sampling = test::Sampling::Yuv422;    // converted on the way
            const Stream stream = test::MakeVideo(spec);
            bool failed = true;
            for (uint64_t n = 1; failed; ++n) {
                SCOPED_TRACE(testing::Message() << codec << " failing " << failing << " at " << n);
                ASSERT_LT(n, 1000u);
                VideoDecoderHolder holder;
                size_t pictures = 0;
                const auto count = [&](auto&, const DecodedFrame* frame) { pictures += frame != nullptr; };
                if (failing == Allocation)
                    test::allocation::FailAt(n);
                else
                    failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), n, failing == AllCalls);
                try {
                    Play(holder, codec, stream, count);
                } catch (const std::bad_alloc&) {    // of the test's own frames, or of the holder's queue
                    pictures = stream.size() - 1;
                }
                failed = failing == Allocation ? test::allocation::Stop() >= n : failure::Hits() >= n;
                failure::Disarm();
                EXPECT_GE(pictures + (!failed                        ? 0
                                      : failing == AllCalls          ? 4
                                      : codec == CORVANE_STREAM_JPEG ? 1
                                                                     : 2),
                          4u);
                int last = -1;
                Play(holder, codec, stream, [&](auto&, const DecodedFrame* frame) { last = Stamp(frame); });
                EXPECT_GE(last, 2);    // a picture that could not be fetched in its turn comes one later
            }
        }
}

}    // namespace
}    // namespace corvane
