// The least that a kind of channel adds to the family, and the services of the family.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <climits>

#include "channels/Options.h"
#include "channels/StreamChannel.h"
#include "support/Latch.h"
#include "support/ScriptedDecoder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

// Shows one frame for each step, and refuses all but key frames.
class SteppingChannel final : public StreamChannel {
public:
    SteppingChannel() : StreamChannel(0, 0, Clock::System(), BuiltRenderers()) {}
    ChannelType GetChannelType() const override { return ChannelType::Playback; }
    void Step() {
        MutexLock lock(m_mutex);
        ++m_steps;
        m_frameReady.NotifyAll();
    }

private:
    void Work() override {
        FramePtr frame;
        SharedPicture picture;
        m_video.BeginRun();
        MutexLock lock(m_mutex);
        while (m_run == Run::Running) {
            if (m_steps == 0 || m_queue.Pop(frame) < 0) {
                m_frameReady.WaitOnce(lock);
                continue;
            }
            --m_steps;
            lock.Unlock();
            if (m_video.Decode(frame, 0, picture))
                m_render.PresentFrame(frame, picture, true);
            lock.Lock();
        }
    }
    Status Admit(const FramePtr& frame, MutexLock&) override REQUIRES(m_mutex) {
        if (m_run != Run::Running)
            return Status::ChannelNotStarted;
        return frame->IsKeyFrame() && m_queue.Push(frame) ? Status::Ok : Status::UnsupportedMedia;
    }

    int m_steps GUARDED_BY(m_mutex) = 0;
};

TEST(StreamChannel, AKindBringsItsWorkerAndWhatItAdmits) {
    uint8_t pixels[16 * 24] = {};
    test::ScriptedDecoder::picture = [&](const EncodedUnit&) {
        return DecodedFrame{{pixels, pixels, nullptr}, {16, 16, 0}, 16, 16, nullptr, nullptr, nullptr, {}};
    };
    std::atomic<int> shown{0};
    SteppingChannel channel;
    channel.SetFactories({.GetDecoderIsolated_QuickSync = &test::ScriptedDecoder::Make});
    EXPECT_EQ(channel.SetOption(CORVANE_OPTION_H264_DECODER, 3, 0), Status::Ok);
    channel.Render().SetPictureCallback(
        {[](void* context, const PseudoFrame*) { ++*static_cast<std::atomic<int>*>(context); }, &shown}, PF_I420);
    const std::vector<uint8_t> payload{0, 0, 1, 0x65};
    const auto feed = [&](bool key, int64_t timeMs) {
        return channel.Input(test::VideoHeader(CORVANE_STREAM_H264, payload, key, timeMs));
    };
    EXPECT_EQ(feed(true, 0), Status::ChannelNotStarted);
    EXPECT_EQ(channel.Start(false), Status::Ok);
    EXPECT_EQ(feed(false, 40), Status::UnsupportedMedia);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(feed(true, 100 * i), Status::Ok);
    for (int steps = 1; steps <= 3; ++steps) {
        channel.Step();
        EXPECT_TRUE(test::Eventually([&] { return shown == steps; }));
    }
    PictureBuffer still{};
    EXPECT_EQ(channel.Stills().Snapshot(CORVANE_PICTURE_BGRA32, false, still), Status::Ok);
    free(still.data);
    channel.End();    // stopped with a frame in its queue, while the worker waits for a step
    channel.End();
    EXPECT_EQ(channel.Start(false), Status::Failed);
    EXPECT_EQ(shown, 3);
}

// Each number of the table is accepted by its kinds only, and no other number by any.
TEST(Options, EachNumberIsKnownToItsKinds) {
    SteppingChannel channel;
    OptionTargets targets{.stream = &channel};
    const auto apply = [&](ChannelType type, int32_t id) { return ApplyOption(type, targets, id, 0, 0); };
    const auto row = [](int32_t id) {
        const auto table = OptionTable();
        const auto found = std::ranges::find(table, id, &OptionRow::id);
        return found != table.end() ? &*found : nullptr;
    };
    std::vector<int32_t> ids{INT_MIN, INT_MAX};
    for (int32_t id = -2; id <= 70; ++id)
        ids.push_back(id);
    for (const OptionRow& each : OptionTable())
        ids.push_back(each.id);
    for (const int32_t id : ids)
        for (const ChannelType type :
             {ChannelType::Live, ChannelType::Playback, ChannelType::Decoder, ChannelType::Avi}) {
            const bool known = row(id) != nullptr && (row(id)->kinds & KindBit(type)) != 0;
            EXPECT_EQ(apply(type, id) != Status::NotSupported, known) << id;
        }
    EXPECT_EQ(row(CORVANE_OPTION_COLOURS)->kinds, kStreamKinds);
    EXPECT_TRUE(std::ranges::is_sorted(OptionTable(), std::ranges::less_equal(), &OptionRow::id));
}

}    // namespace
}    // namespace corvane
