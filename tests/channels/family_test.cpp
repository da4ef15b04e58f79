// The least that a kind of channel adds to the family.
#include "channels/StreamChannel.h"
#include "support/ScriptedDecoder.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

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

}    // namespace
}    // namespace corvane
