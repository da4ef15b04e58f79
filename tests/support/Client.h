// A small client of the exports: one instance, one channel, and the records of its callbacks.
#pragma once

#include "corvane/corvane.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {

inline ChannelStatistics StatisticsOf(void* channel) {
    ChannelStatistics statistics{.recordSize = sizeof statistics};
    EXPECT_EQ(Corvane_GetChannelStatistics(channel, &statistics), Status_Ok);
    return statistics;
}

// Of a channel that is stopped, or whose worker waits for frames: all of them are accounted for.
inline void ExpectSums(const ChannelStatistics& s) {
    EXPECT_EQ(s.framesTaken, s.queueFrames + s.framesEmptied + s.framesSkippedLate + s.framesThinned +
                                 s.metadataFrames + s.soundFrames + s.unitsWithoutDecoder + s.unitsAwaitingKeyFrame +
                                 s.unitsFailed + s.unitsWithoutPicture + s.picturesDecoded);
    const uint64_t waiting =
        s.picturesDecoded - s.picturesNotForDisplay - s.picturesLost - s.picturesReplaced - s.picturesTaken;
    EXPECT_LE(waiting, 1u);
    const uint64_t open = s.picturesTaken - s.picturesPut - s.picturesHandedOver - s.picturesNotPutBusy -
                          s.picturesNotPutNowhere - s.picturesNotPutOff;
    EXPECT_LE(open, 1u);
}

inline void* NewInstance() {
    void* instance = nullptr;
    EXPECT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
    return instance;
}
inline void* NewChannel(void* instance, const ChannelSettings* settings = nullptr) {
    void* channel = nullptr;
    EXPECT_EQ(Corvane_CreateChannel(instance, &channel, settings), Status_Ok);
    return channel;
}

inline std::vector<uint8_t> OneJpeg() {
    return MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 80, .height = 32, .frames = 1})[0].bytes;
}

inline uint32_t FeedHeader(void* channel, const MediaFrameHeader& header) {
    return Corvane_InputEncodedMediaFrame(channel, &header);
}
// A key frame.
inline uint32_t Feed(void* channel, const std::vector<uint8_t>& bytes, int64_t timeMs, uint32_t type = kJpeg) {
    return FeedHeader(channel, VideoHeader(type, bytes, true, timeMs));
}

class Client {
public:
    struct Shown {
        int stamp;    // -1 when the picture carries none
        uint32_t width, height, milliseconds, seconds;
        std::vector<uint8_t> pixels;
    };

    // `kind` as of Corvane_RegisterRawDataCallback. Pixels are kept with `keepPixels` only.
    explicit Client(uint32_t kind = 11, bool keepPixels = false, uint32_t bottomUp = 0)
        : m_kind(kind), m_keepPixels(keepPixels) {
        EXPECT_EQ(Corvane_RegisterRawDataCallback(channel, &Client::OnPicture, this, kind, bottomUp), Status_Ok);
    }
    ~Client() { EXPECT_EQ(Corvane_Release(&instance), Status_Ok); }

    void Start() { EXPECT_EQ(Corvane_StartChannel(channel, 0), Status_Ok); }
    void Set(int32_t option, uint64_t value, uint64_t extra = 0) {
        EXPECT_EQ(Corvane_SetChannelOption(channel, option, value, extra), Status_Ok);
    }

    uint32_t Feed(uint32_t type, const std::vector<uint8_t>& bytes, bool key, int64_t timeMs, uint32_t width = 0,
                  uint32_t height = 0) {
        return FeedHeader(channel, VideoHeader(type, bytes, key, timeMs, width, height));
    }
    // Of H.264.
    uint32_t Feed(const EncodedPicture& picture, int64_t timeMs, bool hidden = false) {
        return FeedHeader(channel, Hidden(VideoHeader(kH264, picture.bytes, picture.key, timeMs), hidden));
    }

    std::vector<int> Stamps() {
        const std::lock_guard lock(m_mutex);
        std::vector<int> stamps;
        for (const Shown& shown : m_shown)
            stamps.push_back(shown.stamp);
        return stamps;
    }
    std::vector<Shown> Take() {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_shown, {});
    }
    // The first of those that come, or came since the last call.
    Shown Next() {
        std::vector<Shown> shown;
        EXPECT_TRUE(Eventually([&] { return !(shown = Take()).empty(); }));
        return shown.empty() ? Shown{} : shown[0];
    }
    bool WaitForStamp(int stamp) {
        return Eventually([&] {
            const std::lock_guard lock(m_mutex);
            return !m_shown.empty() && m_shown.back().stamp == stamp;
        });
    }

    void* instance = NewInstance();
    void* channel = NewChannel(instance);

    static void OnPicture(void* context, const PseudoFrame* frame) {
        auto& self = *static_cast<Client*>(context);
        const uint32_t stride = (frame->width + 63) & ~63u;
        Shown shown{-1, frame->width, frame->height, frame->milliseconds, frame->seconds, {}};
        if (self.m_kind == 11 && frame->width >= static_cast<uint32_t>(kStampWidth) &&
            frame->height >= static_cast<uint32_t>(kStampHeight))
            shown.stamp = ReadStamp(frame->data, stride);
        if (self.m_keepPixels)
            shown.pixels.assign(frame->data, frame->data + frame->size);
        const std::lock_guard lock(self.m_mutex);
        self.m_shown.push_back(std::move(shown));
    }

private:
    const uint32_t m_kind;
    const bool m_keepPixels;
    std::mutex m_mutex;
    std::vector<Shown> m_shown;
};

}    // namespace corvane::test
