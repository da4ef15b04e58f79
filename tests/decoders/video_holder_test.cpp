// Choice, replacement, fall-back and pairing, with scripted decoders and with real streams.

#include <stdexcept>

#include "decoders/FieldMarker.h"
#include "decoders/VideoDecoderHolder.h"
#include "platform/Library.h"
#include "support/FieldStream.h"
#include "support/GuardedBytes.h"
#include "support/ScriptedDecoder.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

using Plugin = ScriptedDecoder;

FramePtr Fake(uint32_t streamType, bool key, uint32_t width = 640, uint32_t height = 480) {
    return MakeFrame(streamType, {42, 2, 3}, key, 0, width, height);
}

class VideoHolder : public testing::Test {
protected:
    VideoHolder() { Renew(3); }
    void Renew(uint32_t kind) {
        Plugin::Begin();
        m_holder = std::make_unique<VideoDecoderHolder>();
        m_holder->SetFactories(
            {.GetDecoderIsolated_QuickSync = Plugin::Make, .GetDecoderIsolated_QuickSync_HEVC = Plugin::Make});
        m_holder->SetH264Kind(kind);
        m_holder->SetHevcKind(kind);
    }
    int32_t Decode(const FramePtr& frame) { return m_holder->Decode(frame, &m_got); }
    int32_t Decode(const EncodedPicture& picture, uint32_t width = 0, uint32_t height = 0) {
        return Decode(MakeFrame(8, picture.bytes, picture.key, picture.ptsMs, width, height));
    }

    std::unique_ptr<VideoDecoderHolder> m_holder;
    uint32_t m_got = 0;
};

TEST_F(VideoHolder, ReplacesOnKeyFramesOnly) {
    const struct {
        FramePtr frame;
        bool replaced, backward = false;
    } rows[] = {{Fake(8, true), false},
                {Fake(8, true, 641), true},
                {Fake(8, true, 640, 481), true},
                {Fake(8, false, 640, 481), false},
                {Fake(8, false, 641), true, true},
                {Fake(16, true), true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        m_holder->Reset(row.backward);
        EXPECT_EQ(Decode(Fake(8, false)), row.backward ? 0 : -1);    // nothing before the first key frame
        ASSERT_EQ(Decode(Fake(8, true)), 0);
        Plugin::made = 0;
        ASSERT_EQ(Decode(row.frame), 0);
        EXPECT_EQ(Plugin::made, row.replaced ? 1 : 0);
        FramePtr current;
        ASSERT_TRUE(m_holder->CurrentInput(current));
        EXPECT_EQ(current, row.frame);
        // In backward play a frame without a picture reaches the decoder too, which assembles units by itself.
        ASSERT_EQ(Decode(MakeFrame(8, FieldParameterSets(), false, 0, 640, 481)), 0);
        EXPECT_EQ(m_got != 0, row.backward);
        m_holder->Reset(false);
        EXPECT_FALSE(m_holder->CurrentInput(current));
    }
}

TEST_F(VideoHolder, FallsBackToSoftware) {
    const std::vector<EncodedPicture> stream = MakeVideo({.frames = 6});
    const std::function<void()> faults[] = {
        [] { Plugin::picture = [](const EncodedUnit&) -> DecodedFrame { throw std::runtime_error("decoder"); }; },
        [] { Plugin::result = -1; },
        [] {    // rows that overlap
            Plugin::picture = [good = Plugin::picture](const EncodedUnit& unit) {
                DecodedFrame picture = good(unit);
                picture.strides[0] = 15;
                return picture;
            };
        },
    };
    for (int mask = 0; mask < 24; ++mask) {
        const bool allowed = (mask & 1) != 0, onKey = (mask & 2) != 0, backward = (mask & 4) != 0;
        SCOPED_TRACE(mask);
        Renew(3);
        m_holder->SetFallbackAllowed(allowed);
        m_holder->Reset(backward);
        ASSERT_EQ(Decode(stream[0], 320, 240), 0);    // pictures are out when the failure comes
        ASSERT_EQ(m_got, 1u);
        faults[mask / 8]();
        const bool fallsBack = allowed && (onKey || backward);
        EXPECT_EQ(Decode(stream[onKey ? 5 : 1], 320, 240), fallsBack ? 0 : -1);
        EXPECT_EQ(m_holder->ActiveKind(), fallsBack ? 0u : 3u);
        // Refused, as before, or the frame itself. A dependent frame alone is no picture of the new decoder, in which
        // it would be the first.
        EXPECT_EQ(m_holder->InFlight(), fallsBack && m_got == 0 ? 0u : 1u);
        FramePtr current;
        EXPECT_EQ(m_holder->CurrentInput(current), fallsBack && m_got != 0);
        if (fallsBack && onKey)
            EXPECT_EQ(ReadStamp(m_holder->CurrentFrame().planes[0], m_holder->CurrentFrame().strides[0]), 5);
    }
}

TEST_F(VideoHolder, SharesWhatItsDecoderShares) {
    const struct {
        uint32_t got;
        int32_t answer;
        bool whole, throws, shared;
    } rows[] = {{2, 0, true, false, true},   {2, 7, true, false, true},   {1, 0, true, false, false},
                {2, -1, true, false, false}, {2, 0, false, false, false}, {2, 0, true, true, false}};
    static int references;
    for (const auto& row : rows) {
        references = 0;
        Plugin::got = row.got;
        Plugin::share = [&](DecodedFrame& out, int32_t version) {
            if (row.throws || version != 2)
                throw std::runtime_error("share");
            const auto release = [](void*) { --references; };
            out = {{}, {1, 1, 1}, 1, 1, &references, [](void*) { ++references; }, row.whole ? +release : nullptr, {}};
            references += row.answer >= 0 ? 1 : 0;
            return row.answer;
        };
        ASSERT_EQ(Decode(Fake(CORVANE_STREAM_H264, true)), 0);
        EXPECT_EQ(references, row.shared || !row.whole ? 1 : 0) << "once a decode";
        SharedPicture picture = m_holder->ShareCurrent();
        EXPECT_TRUE(picture.Shared() == row.shared && (picture.Get().owner != nullptr) == row.shared);
        EXPECT_EQ(picture.Get().planes[0], m_holder->CurrentFrame().planes[0]);
        EXPECT_EQ(picture.Get().width, 16u) << "only the reference is taken from the answer";
        m_holder->Reset(false);
        EXPECT_EQ(references, row.shared || !row.whole ? 1 : 0) << "that of the picture";
        picture = SharedPicture();
        EXPECT_EQ(references, row.shared || row.whole ? 0 : 1);
    }
    const DecoderPtr own = MakeVideoDecoder(FFmpegCodec::H264, 1);
    DecodedFrame none{};
    EXPECT_EQ(static_cast<uint32_t>(own->ShareFrame(&none, 1)), 0x80000005u);
    EXPECT_EQ(own->ShareFrame(&none, 2), -1);
}

// The colours that encoders signal, and the defaults where they do not; grey and RGB are as the scaler makes them.
TEST_F(VideoHolder, PicturesCarryTheColoursOfTheirStream) {
    using Matrix = ColourSignal::Matrix;
    const std::pair<VideoSpec, ColourSignal> rows[] = {
        {{.height = 718}, {Matrix::Bt601, false}},
        {{.height = 720}, {Matrix::Bt709, false}},
        {{.height = 720, .signal = ",colorspace=smpte240m"}, {Matrix::Bt709, false}},    // none of ours
        {{.signal = ",colorspace=bt709,color_range=pc"}, {Matrix::Bt709, true}},
        {{.sampling = Sampling::Yuv444, .signal = ",color_range=pc"}, {Matrix::Bt601, true}},
        {{.height = 720, .signal = ",colorspace=bt470bg,color_range=tv"}, {Matrix::Bt601, false}},
        {{.height = 720, .signal = ",colorspace=smpte170m"}, {Matrix::Bt601, false}},
        {{.streamType = kH265, .bitDepth = 10, .signal = ",colorspace=bt2020nc"}, {Matrix::Bt2020, false}},
        {{.streamType = kH265, .sampling = Sampling::Gray, .signal = ",color_range=pc"}, {Matrix::Bt601, false}},
        {{.streamType = kH265, .height = 720, .signal = ",pixel_format=gbrp"}, {Matrix::Bt601, false}},
        {{.streamType = kMpeg4}, {Matrix::Bt601, false}},
        {{.streamType = kJpeg, .height = 720}, {Matrix::Bt601, true}},
    };
    for (auto [spec, colours] : rows) {
        spec.frames = 1;
        VideoDecoderHolder holder;
        uint32_t got = 0;
        ASSERT_EQ(holder.Decode(MakeFrame(spec.streamType, MakeVideo(spec)[0].bytes, true, 0), &got), 0);
        EXPECT_TRUE(got != 0 && holder.ShareCurrent().Colours() == colours) << spec.streamType << spec.signal;
    }
    ASSERT_EQ(Decode(Fake(CORVANE_STREAM_H264, true)), 0);
    EXPECT_EQ(m_holder->ShareCurrent().Colours(), ColourSignal()) << "of a plug-in";
}

TEST_F(VideoHolder, DropsADecoderThatStopsAnswering) {
    for (const bool backward : {false, true}) {
        Renew(3);
        m_holder->Reset(backward);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(Decode(Fake(8, i == 0)), 0);
        Plugin::picture = [](const EncodedUnit&) { return DecodedFrame{}; };
        EXPECT_EQ(Decode(Fake(8, false)), 0);
        EXPECT_EQ(m_got, 0u);
        EXPECT_EQ(m_holder->LastOutcome(), backward ? DecodeOutcome::HeldBack : DecodeOutcome::Dropped);
        EXPECT_EQ(m_holder->ThreadsInUse(), backward ? 1u : 0u);
        EXPECT_EQ(m_holder->InFlight(), backward ? 1u : 0u);    // without the one that was shown
        EXPECT_EQ(m_holder->ActiveKind(), backward ? 3u : 0u);
        EXPECT_EQ(Decode(Fake(8, false)), backward ? 0 : -1);
    }
}

// Units are bounded by threads, and by pictures that a software decoder may hold for their order: the sequence lets it
// hold some, so that no picture is no failure. The units after it are of no known type.
TEST_F(VideoHolder, DropsADecoderThatNeverAnswers) {
    const auto stream = MakeVideo({.streamType = kH265, .frames = 5, .bFrames = 2});
    for (const auto& [kind, threads, most] : {std::tuple(3u, 4u, 36u), {0u, 1u, 49u}, {0u, 4u, 52u}}) {
        Renew(kind);
        Plugin::picture = [](const EncodedUnit&) { return DecodedFrame{}; };
        m_holder->SetThreads(threads);
        for (uint32_t units = 1; units <= most + 1; ++units) {
            Decode(MakeFrame(16, units == 1 ? stream[0].bytes : Bytes{0, 0, 1, 0x7E, 1, 2}, units == 1, 0));
            EXPECT_EQ(m_holder->LastOutcome() == DecodeOutcome::Dropped, units > most);
            EXPECT_EQ(m_holder->InFlight(), units % (most + 1));
        }
    }
}

TEST_F(VideoHolder, PlaceholdersAreBlack) {
    ASSERT_EQ(Decode(Fake(CORVANE_STREAM_PLACEHOLDER, true)), 0);
    const DecodedFrame& frame = m_holder->CurrentFrame();
    EXPECT_EQ(frame.width * 1000 + frame.height, 352288u);
    EXPECT_EQ(frame.planes[0][352 * 288 - 1] * 1000 + frame.planes[2][176 * 144 - 1], 128);
}

using std::string_literals::operator""s;

std::string App2(const std::string& text) {
    return "\xFF\xE2"s + '\0' + static_cast<char>(text.size() + 2) + text;
}

// Every payload ends at a page that cannot be read.
TEST(FieldMarker, FindsTheText) {
    const std::string fill(14, '\0');    // the bytes that must follow a segment
    const std::string soi = "\xFF\xD8"s, both = App2("FL_IL Mode") + fill;
    const std::string start = "\0\0\1\xB0"s, user = "\0\0\1\xB2"s;
    const struct {
        std::string payload;
        const char* marks;    // field mode and interlaced mode: 1 set, 0 cleared, - left as it was
    } rows[] = {
        {soi + both, "11"},
        {soi + App2("FM_PG Mode") + fill, "00"},
        {soi + App2("FX_IL Mode") + fill, "-1"},
        {soi + App2("FL_IG Mode") + fill, "1-"},
        {soi + App2("FL-IL Mode") + fill, "--"},
        {soi + App2("FL_IL mode") + fill, "--"},
        {soi + App2("FL_IL Mode and more") + fill, "11"},
        {soi + App2("FL_IL Mod") + fill, "--"},
        {soi + both.substr(0, both.size() - 1), "--"},    // 13 bytes after it
        {soi + App2("FL_IL Mode") + App2("FM_PG Mode") + fill, "00"},
        {soi + "\xFF\xDB\0\4ab"s + both, "--"},    // after a table
        {soi + "\xFF\xEF\0\2"s + both, "11"},      // after a length of 2
        {soi + "\xFF\xE0\xFF\xFF"s + both, "--"},
        {"\xFF\xD9"s + both, "--"},
        {soi + "\xFF\xE3\0\14FL_IL Mode"s + fill, "--"},    // another segment
        {start + user + "FL_IL Mode", "11"},
        {start + "x" + user + "FL_IL Mod", "--"},
        {start + "xyz\0"s + user + "FM_PG Mode" + fill, "00"},
        {start + "\0\0\1\xB5"s + user + "FL_IL Mode", "--"},    // after the visual object
        {start + user + "something else" + user + "FL_IL Mode", "--"},
        {"\0\0\1\xB6\xF5"s + user + "FL_IL Mode", "--"},
    };
    for (const auto& row : rows)
        for (const bool before : {false, true})
            for (size_t size = 0; size <= row.payload.size(); ++size) {    // no prefix is left
                const GuardedBytes guarded(row.payload.data(), size);
                FieldMarks marks{before, before};
                const auto read = row.payload[0] == '\0' ? &ReadMpeg4Marker : &ReadJpegMarker;
                read(guarded.Data(), static_cast<uint32_t>(size), marks);
                if (size < row.payload.size())
                    continue;
                const auto wanted = [&](char mark) { return mark == '-' ? before : mark == '1'; };
                EXPECT_EQ(marks.fieldLMode, wanted(row.marks[0])) << &row - rows;
                EXPECT_EQ(marks.interlacedMode, wanted(row.marks[1])) << &row - rows;
            }
}

TEST_F(VideoHolder, MarksStayUntilTheStreamSaysOtherwise) {
    const struct {
        uint32_t streamType;
        const char* text;
        int marks;    // 1 fields, 2 interlaced
    } steps[] = {{1, "", 0},           {1, "FL_IL Mode", 3}, {1, "", 3}, {4, "", 0},
                 {4, "FL_PG Mode", 1}, {4, "", 1},           {8, "", 0}, {4, "", 0}};
    Renew(0);
    for (const auto& step : steps) {
        Bytes bytes = MakeVideo({.streamType = step.streamType, .frames = 1})[0].bytes;
        const std::string head = step.streamType == 1 ? "\xFF\xE2\0\14"s : "\0\0\1\xB2"s;
        const std::string segment = step.text[0] == '\0' ? "" : head + step.text;
        bytes.insert(bytes.begin() + (step.streamType == 1 ? 2 : 5), segment.begin(), segment.end());
        const FramePtr frame = MakeFrame(step.streamType, bytes, true, 0);
        ASSERT_EQ(Decode(frame), 0);
        EXPECT_EQ(frame->FieldCoded() + 2 * frame->Interlaced(), step.marks) << &step - steps;
    }
}

TEST_F(VideoHolder, CarriesTheLensRecordOfTheLatestKeyFrame) {
    // K key, d dependent; R with a record of its own; + one is expected.
    for (const char* const step : {"K", "d", "KR+", "d+", "K", "d"}) {
        const FramePtr frame = Fake(8, step[0] == 'K');
        LensRecord record;
        record.values[0] = 11;
        if (step[1] == 'R')
            frame->SetLensRecord(record);
        ASSERT_EQ(Decode(frame), 0);
        EXPECT_EQ(frame->Lens() != nullptr && frame->Lens()->values[0] == 11, std::strchr(step, '+') != nullptr);
    }
}

// In C, loaded from a file.
TEST(Plugin, PlainCObjectDecodesBehindTheHolder) {
    Library library;
    ASSERT_TRUE(library.Open(PLAIN_C_DECODER));
    const auto factory = library.Find<std::remove_pointer_t<DecoderFactories::Plain>>("GetDecoderIsolated_QuickSync");
    const auto& live = *library.Find<const int32_t>("liveDecoders");
    VideoDecoderHolder holder;
    holder.SetFactories({.GetDecoderIsolated_QuickSync = factory});
    holder.SetH264Kind(3);
    uint32_t got = 0;
    ASSERT_EQ(holder.Decode(MakeFrame(8, {7, 1, 2}, true, 0), &got), 0);
    const DecodedFrame& frame = holder.CurrentFrame();
    EXPECT_EQ(frame.width * 1000 + frame.height, 16008u);
    EXPECT_EQ(frame.planes[0][16 * 8 - 1], 7);
    EXPECT_EQ(holder.Decode(MakeFrame(8, {}, false, 0), &got), -1);
    EXPECT_EQ(live, 1);
    holder.Reset(false);
    EXPECT_EQ(live, 0);
    [factory]() CORVANE_CALLS_PLUGIN {    // the entries that the holder did not use
        const DecoderPtr decoder(factory());
        DecodedFrame picture{};
        EXPECT_EQ(decoder->DecodeAudio(nullptr, nullptr, nullptr), 4);
        EXPECT_EQ(decoder->ShareFrame(&picture, 2), 2);
        EXPECT_EQ(picture.owner, decoder.get());
    }();
}

}    // namespace
}    // namespace corvane::test
