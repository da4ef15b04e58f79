// Chooses, replaces and feeds the video decoder of one channel, and pairs each picture with its input frame.
//
// Threads: the setters may be called from any thread and never wait for a decode. Everything else is used by one thread
// at a time, under the channel's decoder lock; CurrentFrame, ShareCurrent, CurrentInput and ActiveKind by several while
// none of the others runs.
#pragma once

#include <cstdint>
#include <deque>

#include "base/Mutex.h"
#include "base/SharedPicture.h"
#include "corvane/decoder.h"
#include "decoders/AccessUnitAssembler.h"
#include "decoders/DecodeOutcome.h"
#include "decoders/DecoderFactories.h"
#include "decoders/FFmpegDecoder.h"
#include "decoders/FieldMarker.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

class VideoDecoderHolder {
public:
    VideoDecoderHolder() = default;
    VideoDecoderHolder(const VideoDecoderHolder&) = delete;
    VideoDecoderHolder& operator=(const VideoDecoderHolder&) = delete;

    // Settings of the next decoder. Kinds: 0 software, 1 CUVID, 2 DXVA2, 3 QuickSync. Threads: 0 for automatic.
    void SetH264Kind(uint32_t kind) { Set(&Settings::h264Kind, kind); }
    void SetMpeg4Kind(uint32_t kind) { Set(&Settings::mpeg4Kind, kind); }
    void SetHevcKind(uint32_t kind) { Set(&Settings::hevcKind, kind); }
    void SetThreads(uint32_t threads) { Set(&Settings::threads, threads); }
    void SetBackwardMemoryMode(uint32_t mode) { Set(&Settings::backwardMemoryMode, mode); }
    void SetFallbackAllowed(bool allowed) { Set(&Settings::fallbackAllowed, allowed); }
    void SetFactories(const DecoderFactories& factories) { Set(&Settings::factories, factories); }

    // Makes or replaces the decoder where `frame` requires it, and decodes the unit that `frame` completes, if any. 0,
    // with *got 0 when this call gave no picture; -1 when there is no decoder (until the next key frame, in forward
    // play) or it failed. Raises std::bad_alloc.
    int32_t Decode(const FramePtr& frame, uint32_t* got);

    // The outcome of the last Decode; Failed also where it raised.
    DecodeOutcome LastOutcome() const { return m_outcome; }

    // Whether `frame` is the second field of a picture whose first field waits. Raises std::bad_alloc.
    bool Completes(const MediaFrameImpl& frame) { return m_units.Completes(frame); }

    // Index of the display adapter that shows the window; a decoder that was made for another one is dropped.
    void SetAdapter(uint32_t adapter);

    // Drops the decoder and all units in it.
    void Reset(bool backward);

    // The current picture, valid until the next Decode, SetAdapter or Reset; all zero when there is none.
    const DecodedFrame& CurrentFrame() const { return m_picture.Get(); }

    // The current picture with a reference of its own, where its decoder shares pictures; else valid as CurrentFrame
    // is.
    CORVANE_CALLS_PLUGIN SharedPicture ShareCurrent() const noexcept {
        return SharedPicture(m_picture.Get(), m_picture.Colours());
    }

    // Hardware kind of the current decoder, 0 when it is software or there is none.
    uint32_t ActiveKind() const { return m_activeKind; }

    // Threads of the current decoder; 1 for a plug-in, which does not report them; 0 when there is no decoder.
    uint32_t ThreadsInUse() const;

    // The input that the current picture came from; false when there is no picture.
    bool CurrentInput(FramePtr& out) const;

    // Frames that went in and have not been superseded by a later picture.
    size_t InFlight() const { return m_inFlight.size(); }

private:
    struct Settings {
        DecoderFactories factories;
        uint32_t h264Kind = 0;
        uint32_t mpeg4Kind = 0;
        uint32_t hevcKind = 0;
        uint32_t threads = 0;
        uint32_t backwardMemoryMode = 0;
        bool fallbackAllowed = false;
    };

    template <typename T>
    void Set(T Settings::*field, const T& value) EXCLUDES(m_settingsMutex) {
        MutexLock lock(m_settingsMutex);
        m_settings.*field = value;
    }
    Settings CopySettings() const EXCLUDES(m_settingsMutex);
    void ChooseDecoder(const MediaFrameImpl& frame);
    bool MakeSoftware(uint32_t codec, uint32_t vendorTag, uint32_t threads);
    DecoderPtr MakeFromPlugin(const Settings& settings, const MediaFrameImpl& frame, uint32_t* kind) const;
    bool FallBack(const MediaFrameImpl& frame);
    DecodeOutcome WithoutDecoder(const MediaFrameImpl& frame) const;
    DecodeOutcome WithoutPicture(const MediaFrameImpl& frame) const;
    DecodeOutcome OutcomeOfSilence() const;
    void RemoveEnded();
    size_t MostInFlight() const;
    int32_t DecodeUnit(const AccessUnitAssembler::Unit& unit, uint32_t* got);
    CORVANE_CALLS_PLUGIN SharedPicture TakeReference(const DecodedFrame& decoded, uint32_t got) noexcept;
    CORVANE_CALLS_PLUGIN int32_t CallDecoder(const EncodedUnit& unit, uint32_t* got, DecodedFrame* picture) noexcept;
    void ApplyFieldMarks(MediaFrameImpl& frame);
    void CarryLensRecord(MediaFrameImpl& frame);

    // Guarded by m_settingsMutex, which is taken last and held for a copy only.
    mutable Mutex m_settingsMutex;
    Settings m_settings GUARDED_BY(m_settingsMutex);

    // Used by one thread at a time.
    DecoderPtr m_decoder;
    const DecoderIsolated_FFmpeg* m_software = nullptr;    // m_decoder, where it is one of these
    bool m_none = false;                                   // the last key frame found no decoder
    DecodeOutcome m_outcome = DecodeOutcome::NoDecoder;
    uint32_t m_activeKind = 0;
    uint32_t m_threads = 1;    // of the current decoder
    uint32_t m_adapter = 0;
    bool m_backward = false;
    // Stream parameters that the current decoder was made for, all 0 when there is none.
    uint32_t m_codec = 0;
    uint32_t m_vendorTag = 0;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_lastGot = 0;     // *got of the last call that gave a picture; 0 when none has come yet
    SharedPicture m_picture;    // the current one, by reference where its decoder shares it
    AccessUnitAssembler m_units;
    FieldMarks m_marks;
    bool m_extensionSeen = false;
    LensRecord m_extension;    // of the latest key frame
    std::deque<FramePtr>
        m_inFlight;    // in order of input; its front belongs to the current picture, when there is one
};

}    // namespace corvane
