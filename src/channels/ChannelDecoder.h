// The channel that decodes on the thread of its caller and gives the result back: no queue, no worker, no window.
//
// One call at a time: a second one, from the channel's own callback or from another thread, is refused and changes
// nothing. What the whole call does counts as a callback of the channel, so that it cannot be deleted from inside.
// Settings may be changed at any time; they count from the next output on.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "base/Limits.h"
#include "base/Mutex.h"
#include "base/PictureSize.h"
#include "base/Status.h"
#include "base/Thread.h"
#include "channels/IChannel.h"
#include "corvane/corvane.h"
#include "decoders/AudioDecoderHolder.h"
#include "decoders/VideoDecoderHolder.h"
#include "filters/FilterChain.h"
#include "frame/ChannelCounters.h"
#include "picture/PictureMaker.h"
#include "platform/Clock.h"
#include "present/PictureRun.h"
#include "present/RawClient.h"

namespace corvane {

class CChannelDecoder final : public IChannel {
public:
    // May raise std::bad_alloc.
    CChannelDecoder(const DecoderChannelSettings& settings, bool fallbackAllowed);

    ChannelType GetChannelType() const override { return ChannelType::Decoder; }
    bool Close() override { return !m_inside.exchange(true, std::memory_order_acquire); }
    void End() override {}

    // ---- One at a time; Status::Failed while one of them runs. They may raise std::bad_alloc ----

    Status DecodeVideo(const MediaFrameHeader& header, DecodedVideoInfo& out, uint32_t& size);
    Status DecodeAudio(const MediaFrameHeader& header, DecodedAudioInfo& out, uint32_t& size);
    Status DecodeVideoOnly(const MediaFrameHeader& header, DecodedPictureSize& out, uint32_t& size);
    Status GetDecodedVideoFrame(uint32_t format, uint32_t prefix, DecodedVideoInfo& out, uint32_t& size);
    Status Input(const MediaFrameHeader& header);

    // ---- Any thread, at any time ----

    Status SetOption(int32_t id, uint64_t value, uint64_t extra);
    void SetFactories(const DecoderFactories& factories) { m_videoDecoder.SetFactories(factories); }
    void SetDecodeSize(PictureSize size) { Change(&Settings::decodeSize, size); }
    void SetQuality(uint32_t quality) { Change(&Settings::quality, quality); }
    void SetSignalledColours(bool on) { Change(&Settings::signalledColours, on); }
    void SetDeinterlace(bool on);
    void SetResizeType(uint32_t type);
    // Status::Failed: it is inserted already.
    Status InsertFilter(QMRX::Filter::IFilter* filter);
    // Waits for a running call of the filter, not inside a callback.
    void RemoveFilter(QMRX::Filter::IFilter* filter);
    // All but recordSize.
    void GetStatistics(ChannelStatistics& out) const { m_counters.Fill(out); }

private:
    struct Settings {
        ChainSettings chain;
        PictureSize decodeSize;    // both sides above 0: that of every output, else the picture's own
        uint32_t quality = 0;
        bool signalledColours = false;
    };
    // Memory of the caller that an output may be written to.
    struct CallersMemory {
        uint8_t* data = nullptr;
        uint64_t size = 0;
    };

    template <typename T>
    void Change(T Settings::*field, const T& value) {
        MutexLock lock(m_settingsMutex);
        m_settings.*field = value;
    }
    Settings CopySettings() const;
    template <typename Body>
    Status Alone(Body&& body);
    template <typename Body>
    Status WithVideo(const MediaFrameHeader& header, Body&& body);

    Status DecodeStep(const MediaFrameHeader& header);
    Status DecodeSound(const MediaFrameHeader& header);
    Status MakeOutput(uint32_t format, uint32_t prefix, const CallersMemory& memory);
    Status Run(const FramePtr& frame, const Settings& settings, PictureSize size, PictureTarget& target);
    Status Deliver(uint32_t format, uint32_t prefix, DecodedVideoInfo& out, uint32_t& size);
    Status PushPicture(const RawSettings& first);
    Status Call(const ClientCallback<CorvaneRawCallback>& callback, uint32_t code, void* record);
    void UseMaker(uint32_t format);
    void NoteHandedOver();

    ChannelCounters m_counters{Clock::System()};
    std::atomic<bool> m_inside{false};    // a call runs, or the channel is closed
    RawClient m_client;                   // brings its own lock
    ClientFilterCalls m_filters;          // likewise
    mutable Mutex m_settingsMutex;        // a leaf, held for a copy
    Settings m_settings GUARDED_BY(m_settingsMutex);

    // Only inside a call. They end in the reverse order.
    AudioDecoderHolder m_audioDecoder;
    VideoDecoderHolder m_videoDecoder;    // its setters on any thread
    PictureRun m_run;
    PictureMakerPtr m_maker;
    uint32_t m_makerFormat = 0;    // of m_maker
    uint32_t m_got = 0;            // of the last decode
    bool m_unfetched = false;      // its picture was not handed to the client yet
    RawPictureInfo m_picture{};    // the last output
    RawAudioInfo m_sound{};
    uint8_t m_pcm[limits::kSoundBytes];    // not touched before the first sound
};

}    // namespace corvane
