// Choice, replacement, fall-back and pairing, with scripted decoders and with real streams.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "decoders/VideoDecoderHolder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedPicture;
using test::MakeFrame;
using test::VideoSpec;

// What the fake decoders do; one test at a time.
struct Script {
    std::string made;                     // the factory that was called last, with its arguments
    bool null = false;                    // factories give nothing
    bool throws = false;                  // decoders and factories throw
    bool fails = false;                   // decoders fail
    uint32_t delay = 0;                   // units before the first picture
    uint32_t silent_from = UINT32_MAX;    // unit from which no picture comes
    bool bad_picture = false;
    int alive = 0;
};
Script script;

class FakeDecoder final : public DecoderContext {
public:
    FakeDecoder() { ++script.alive; }
    int32_t DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit*) override {
        if (script.throws)
            throw std::runtime_error("decoder");
        if (script.fails)
            return -1;
        const uint32_t unit = m_units++;
        *got = unit >= script.delay && unit < script.silent_from ? 1 : 0;
        *out = DecodedFrame{{m_pixels, m_pixels, nullptr}, {16, 16, 0}, 16, 2, nullptr, nullptr, nullptr, {}};
        if (script.bad_picture)
            out->strides[0] = 15;
        return 0;
    }
    int32_t DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) override { return -1; }
    void Destroy() override {
        --script.alive;
        delete this;
    }
    int32_t ShareFrame(DecodedFrame*, int32_t) override { return -1; }

private:
    uint32_t m_units = 0;
    uint8_t m_pixels[48] = {};
};

template <typename... Arguments>
DecoderContext* Made(const char* name, Arguments... arguments) {
    script.made = name;
    ((script.made += " " + std::to_string(arguments)), ...);
    if (script.throws)
        throw std::runtime_error("factory");
    return script.null ? nullptr : new FakeDecoder();
}

// `first` and `size` of a payload or blob: its first byte stands for it.
DecoderFactories AllFactories() {
    DecoderFactories f;
    f.GetDecoderIsolated_Dahua = [] { return Made("dahua"); };
    f.GetDecoderIsolated_Hikvision = [](const uint8_t* b, uint32_t n) {
        return Made("hikvision", n == 0 ? 0 : b[0], n);
    };
    f.GetDecoderIsolated_CUVID_MP4V = [] { return Made("cuvid mp4v"); };
    f.GetDecoderIsolated_CUVID_H264 = [] { return Made("cuvid h264"); };
    f.GetDecoderIsolated_CUVID_HEVC = [] { return Made("cuvid hevc"); };
    f.GetDecoderIsolated_CUVID_MP4V_v2 = [](uint32_t a) { return Made("cuvid2 mp4v", a); };
    f.GetDecoderIsolated_CUVID_H264_v2 = [](uint32_t a) { return Made("cuvid2 h264", a); };
    f.GetDecoderIsolated_CUVID_HEVC_v2 = [](uint32_t a) { return Made("cuvid2 hevc", a); };
    f.GetDecoderIsolated_DXVA2Native = [](uint32_t w, uint32_t h, const uint8_t* d, uint32_t n) {
        return Made("dxva h264", w, h, d[0], n);
    };
    f.GetDecoderIsolated_DXVA2Native_HEVC = [](uint32_t w, uint32_t h) { return Made("dxva hevc", w, h); };
    f.GetDecoderIsolated_DXVA2_v2 = [](uint32_t a, uint32_t w, uint32_t h, const uint8_t* d, uint32_t n) {
        return Made("dxva2 h264", a, w, h, d[0], n);
    };
    f.GetDecoderIsolated_DXVA2_HEVC_v2 = [](uint32_t a, uint32_t w, uint32_t h) { return Made("dxva2 hevc", a, w, h); };
    f.GetDecoderIsolated_QuickSync = [] { return Made("quicksync h264"); };
    f.GetDecoderIsolated_QuickSync_HEVC = [] { return Made("quicksync hevc"); };
    return f;
}

DecoderFactories WithoutAdapter() {
    DecoderFactories f = AllFactories();
    f.GetDecoderIsolated_CUVID_MP4V_v2 = f.GetDecoderIsolated_CUVID_H264_v2 = f.GetDecoderIsolated_CUVID_HEVC_v2 =
        nullptr;
    f.GetDecoderIsolated_DXVA2_v2 = nullptr;
    f.GetDecoderIsolated_DXVA2_HEVC_v2 = nullptr;
    return f;
}

FramePtr Tagged(uint32_t stream_type, const std::string& tag, bool key = true, uint32_t width = 640,
                uint32_t height = 480) {
    const std::vector<uint8_t> payload{42, 2, 3};
    MediaFrameHeader header = test::VideoHeader(stream_type, payload, key, 0, width, height);
    std::vector<uint8_t> extension{0, 0, 0, 0, 105, 4};
    extension.insert(extension.end(), tag.begin(), tag.end());
    extension.insert(extension.end(), {108, 2, 77, 78});
    if (!tag.empty()) {
        header.extension = extension.data();
        header.extensionSize = static_cast<uint32_t>(extension.size());
    }
    return std::make_shared<MediaFrameImpl>(header);
}

FramePtr Plain(uint32_t stream_type, bool key, uint32_t width = 640, uint32_t height = 480) {
    return Tagged(stream_type, "", key, width, height);
}

class VideoHolder : public testing::Test {
protected:
    void SetUp() override { script = Script{}; }
    void TearDown() override { EXPECT_EQ(script.alive, 0); }
};

TEST_F(VideoHolder, ChoosesByStreamKindAndTag) {
    constexpr uint32_t kNone = 99;    // no decoder
    const struct {
        uint32_t stream_type;
        const char* tag;
        uint32_t kind;
        const char* made;          // with all factories
        const char* made_older;    // without those that take the adapter
        uint32_t active;           // kNone: no decoder
    } rows[] = {
        {2, "DAHU", 1, "dahua", "dahua", 0},
        {2, "HIKV", 0, "hikvision 77 2", "hikvision 77 2", 0},
        {2, "QMRX", 1, "", "", kNone},
        {2, "ELSE", 1, "", "", kNone},
        {4, "", 1, "cuvid2 mp4v 5", "cuvid mp4v", 1},
        {4, "", 2, "", "", 0},
        {4, "DAHU", 0, "", "", 0},
        {8, "", 0, "", "", 0},
        {8, "", 1, "cuvid2 h264 5", "cuvid h264", 1},
        {8, "", 2, "dxva2 h264 5 640 480 42 3", "dxva h264 640 480 42 3", 2},
        {8, "", 3, "quicksync h264", "quicksync h264", 3},
        {8, "", 4, "", "", 0},
        {16, "", 1, "cuvid2 hevc 5", "cuvid hevc", 1},
        {16, "", 2, "dxva2 hevc 5 640 480", "dxva hevc 640 480", 2},
        {16, "", 3, "quicksync hevc", "quicksync hevc", 3},
        {1, "", 1, "", "", 0},
        {255, "", 1, "", "", 0},
        {256, "", 1, "", "", kNone},
    };
    enum Slots { All, Older, Empty, Null, Throwing };
    for (const auto& row : rows)
        for (const Slots slots : {All, Older, Empty, Null, Throwing}) {
            SCOPED_TRACE(std::to_string(row.stream_type) + row.tag + " kind " + std::to_string(row.kind) + " slots " +
                         std::to_string(slots));
            script = Script{};
            script.null = slots == Null;
            script.throws = slots == Throwing;
            VideoDecoderHolder holder;
            holder.SetFactories(slots == Empty   ? DecoderFactories{}
                                : slots == Older ? WithoutAdapter()
                                                 : AllFactories());
            holder.SetH264Kind(row.kind);
            holder.SetMpeg4Kind(row.kind);
            holder.SetHevcKind(row.kind);
            holder.SetAdapter(5);
            uint32_t got = 0;
            const int32_t result = holder.Decode(Tagged(row.stream_type, row.tag), &got);
            EXPECT_EQ(script.made, slots == Empty ? "" : slots == Older ? row.made_older : row.made);
            const bool plugin = slots <= Older && row.made[0] != '\0';
            const bool none = row.active == kNone || (row.stream_type == 2 && !plugin);
            EXPECT_EQ(result, none ? -1 : 0);
            EXPECT_EQ(holder.ActiveKind(), plugin ? row.active : 0u);
            EXPECT_EQ(got, plugin ? 1u : row.stream_type == 255 ? 2u : 0u);
        }
}

TEST_F(VideoHolder, ReplacesOnKeyFramesOnly) {
    const struct {
        const char* name;
        FramePtr frame;
        bool backward;
        bool replaced;
    } rows[] = {
        {"same key", Plain(8, true), false, false},
        {"width, key", Plain(8, true, 641), false, true},
        {"height, key", Plain(8, true, 640, 481), false, true},
        {"height, dependent", Plain(8, false, 640, 481), false, false},
        {"height, dependent, backward", Plain(8, false, 640, 481), true, true},
        {"tag, key", Tagged(8, "DAHU"), false, true},
        {"codec, key", Plain(16, true), false, true},
        {"codec, dependent", Plain(16, false), false, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        VideoDecoderHolder holder;
        holder.SetFactories(AllFactories());
        holder.SetH264Kind(3);
        holder.SetHevcKind(3);
        holder.Reset(row.backward);
        uint32_t got = 0;
        EXPECT_EQ(holder.Decode(Plain(8, false), &got), row.backward ? 0 : -1);    // nothing before the first key frame
        ASSERT_EQ(holder.Decode(Plain(8, true), &got), 0);
        script.made = "";
        ASSERT_EQ(holder.Decode(row.frame, &got), 0);
        EXPECT_EQ(script.made != "", row.replaced);
        FramePtr current;
        ASSERT_TRUE(holder.CurrentInput(current));
        EXPECT_EQ(current, row.frame);
        holder.Reset(false);
        EXPECT_FALSE(holder.CurrentInput(current));
        EXPECT_EQ(holder.CurrentFrame().planes[0], nullptr);
        EXPECT_EQ(holder.Decode(Plain(8, false), &got), -1);
        EXPECT_EQ(got, 0u);
    }
}

TEST_F(VideoHolder, AdapterDropsOnlyDecodersMadeForIt) {
    for (const uint32_t kind : {1u, 2u, 3u})
        for (const bool has_new : {true, false}) {
            VideoDecoderHolder holder;
            holder.SetFactories(has_new ? AllFactories() : WithoutAdapter());
            holder.SetH264Kind(kind);
            uint32_t got = 0;
            ASSERT_EQ(holder.Decode(Plain(8, true), &got), 0);
            holder.SetAdapter(0);
            EXPECT_EQ(holder.ActiveKind(), kind);    // unchanged
            holder.SetAdapter(1);
            EXPECT_EQ(holder.ActiveKind(), has_new && kind != 3 ? 0u : kind);
        }
}

TEST_F(VideoHolder, FallsBackToSoftware) {
    const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 6});
    enum Failing { Fails, Throws, BadPicture };
    for (const Failing failing : {Fails, Throws, BadPicture})
        for (const bool allowed : {true, false})
            for (const bool on_key : {true, false})
                for (const bool backward : {false, true}) {
                    SCOPED_TRACE(testing::Message() << failing << allowed << on_key << backward);
                    script = Script{};
                    VideoDecoderHolder holder;
                    holder.SetFactories(AllFactories());
                    holder.SetH264Kind(2);
                    holder.SetFallbackAllowed(allowed);
                    holder.Reset(backward);
                    const auto decode = [&](size_t index, uint32_t* got) {
                        return holder.Decode(MakeFrame(8, stream[index].bytes, stream[index].key, 0, 320, 240), got);
                    };
                    uint32_t got = 0;
                    ASSERT_EQ(decode(0, &got), 0);    // pictures are out when the failure comes
                    ASSERT_EQ(got, 1u);
                    script.fails = failing == Fails;
                    script.throws = failing == Throws;
                    script.bad_picture = failing == BadPicture;
                    const bool falls_back = allowed && (on_key || backward);
                    const size_t index = on_key ? 5 : 1;
                    EXPECT_EQ(decode(index, &got), falls_back ? 0 : -1);
                    EXPECT_EQ(holder.ActiveKind(), falls_back ? 0u : 2u);
                    EXPECT_EQ(holder.InFlight(), 1u);    // as before, or the frame itself
                    FramePtr current;
                    // A dependent frame alone is no picture of the new decoder, in which it would be the first.
                    EXPECT_EQ(holder.CurrentInput(current), falls_back && got != 0);
                    if (falls_back && on_key) {
                        EXPECT_EQ(test::ReadStamp(holder.CurrentFrame().planes[0], holder.CurrentFrame().strides[0]),
                                  5);
                    }
                }
}

// The picture handed out belongs to the frame that went in `delay` calls before.
TEST_F(VideoHolder, PairsPicturesWithTheirInput) {
    for (const bool real : {false, true}) {
        const uint32_t delay = 2;
        script.delay = delay;
        const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 20, .gop = 7});
        VideoDecoderHolder holder;
        holder.SetFactories(AllFactories());
        holder.SetH264Kind(real ? 0 : 3);
        holder.SetThreads(delay + 1);
        for (size_t i = 0; i < stream.size(); ++i) {
            uint32_t got = 0;
            ASSERT_EQ(holder.Decode(MakeFrame(8, stream[i].bytes, stream[i].key, stream[i].pts_ms), &got), 0);
            FramePtr current;
            ASSERT_EQ(holder.CurrentInput(current), i >= delay);
            ASSERT_EQ(got != 0, i >= delay);
            if (got == 0)
                continue;
            EXPECT_EQ(TimeMs(*current), stream[i - delay].pts_ms);
            EXPECT_EQ(holder.InFlight(), delay + 1);
            if (real) {
                EXPECT_EQ(test::ReadStamp(holder.CurrentFrame().planes[0], holder.CurrentFrame().strides[0]),
                          static_cast<int>(i - delay));
            }
        }
    }
}

// A second thread shows as one picture of delay.
TEST_F(VideoHolder, TakesASecondThreadForLargePictures) {
    const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 3});
    const uint32_t many = std::thread::hardware_concurrency() == 1 ? 0 : 1;
    const struct {
        uint32_t width, height, threads, delay;
    } rows[] = {{0, 0, 0, 0},      {1279, 799, 0, 0}, {1280, 1, 0, many},
                {1, 800, 0, many}, {1280, 800, 1, 0}, {320, 240, 2, 1}};
    for (const auto& row : rows) {
        VideoDecoderHolder holder;
        holder.SetThreads(row.threads);
        for (size_t i = 0; i < stream.size(); ++i) {
            uint32_t got = 0;
            holder.Decode(MakeFrame(8, stream[i].bytes, stream[i].key, 0, row.width, row.height), &got);
            EXPECT_EQ(got != 0, i >= row.delay) << row.width << " " << row.height << " " << i;
        }
    }
}

TEST_F(VideoHolder, DropsADecoderThatStopsAnswering) {
    for (const bool backward : {false, true}) {
        script.silent_from = 3;
        VideoDecoderHolder holder;
        holder.SetFactories(AllFactories());
        holder.SetH264Kind(3);
        holder.Reset(backward);
        uint32_t got = 0;
        for (int i = 0; i < 4; ++i)
            EXPECT_EQ(holder.Decode(Plain(8, i == 0), &got), 0);
        EXPECT_EQ(got, 0u);
        EXPECT_EQ(holder.ActiveKind(), backward ? 3u : 0u);
        EXPECT_EQ(holder.Decode(Plain(8, false), &got), backward ? 0 : -1);
    }
    // One that never answers is bounded: one frame a thread and some.
    script.silent_from = 0;
    VideoDecoderHolder holder;
    holder.SetFactories(AllFactories());
    holder.SetH264Kind(3);
    holder.SetThreads(4);
    uint32_t got = 0;
    size_t most = 0;
    for (int i = 0; i < 200; ++i) {
        EXPECT_EQ(holder.Decode(Plain(8, true), &got), 0);
        most = std::max(most, holder.InFlight());
    }
    EXPECT_EQ(most, 36u);
}

TEST_F(VideoHolder, MarksStayUntilTheStreamSaysOtherwise) {
    const std::vector<EncodedPicture> jpeg = test::MakeVideo({.stream_type = 1, .frames = 1});
    const std::vector<EncodedPicture> mpeg4 = test::MakeVideo({.stream_type = 4, .frames = 1});
    const std::vector<EncodedPicture> h264 = test::MakeVideo({.frames = 1});
    const auto with_text = [&](uint32_t stream_type, const std::string& text) {
        std::vector<uint8_t> bytes = (stream_type == 1 ? jpeg : stream_type == 4 ? mpeg4 : h264)[0].bytes;
        if (text.empty())
            return MakeFrame(stream_type, bytes, true, 0);
        std::string segment("\0\0\1\xB2", 4);
        if (stream_type == 1)
            segment = std::string("\xFF\xE2\0\14", 4);
        segment += text;
        bytes.insert(bytes.begin() + (stream_type == 1 ? 2 : 5), segment.begin(), segment.end());
        return MakeFrame(stream_type, bytes, true, 0);
    };
    const struct {
        uint32_t stream_type;
        const char* text;
        bool field_coded, interlaced;
    } steps[] = {
        {1, "", false, false},          {1, "FL_IL Mode", true, true}, {1, "", true, true},
        {1, "FM_?? Mode", false, true}, {1, "", false, true},          {4, "", false, false},
        {4, "FL_PG Mode", true, false}, {4, "", true, false},          {8, "", false, false},
        {4, "", false, false},
    };
    VideoDecoderHolder holder;
    for (const auto& step : steps) {
        const FramePtr frame = with_text(step.stream_type, step.text);
        uint32_t got = 0;
        ASSERT_EQ(holder.Decode(frame, &got), 0);
        ASSERT_EQ(got, 2u);
        EXPECT_EQ(frame->FieldCoded(), step.field_coded) << step.stream_type << step.text;
        EXPECT_EQ(frame->Interlaced(), step.interlaced) << step.stream_type << step.text;
    }
}

TEST_F(VideoHolder, CarriesTheLensRecordOfTheLatestKeyFrame) {
    LensRecord record;
    record.values[0] = 11;
    VideoDecoderHolder holder;
    holder.SetFactories(AllFactories());
    holder.SetH264Kind(3);
    const struct {
        bool key, own, expected;
    } steps[] = {{true, false, false}, {false, false, false}, {true, true, true},   {false, false, true},
                 {false, false, true}, {true, false, false},  {false, false, false}};
    for (const auto& step : steps) {
        const FramePtr frame = Plain(8, step.key);
        if (step.own)
            frame->SetLensRecord(record);
        uint32_t got = 0;
        ASSERT_EQ(holder.Decode(frame, &got), 0);
        ASSERT_EQ(frame->Lens() != nullptr, step.expected);
        EXPECT_EQ(frame->ExtensionKind(), step.expected ? 3u : 0u);
        if (step.expected) {
            EXPECT_EQ(frame->Lens()->values[0], 11u);
        }
    }
}

}    // namespace
}    // namespace corvane
