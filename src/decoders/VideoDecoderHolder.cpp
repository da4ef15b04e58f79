#include "decoders/VideoDecoderHolder.h"

#include <algorithm>
#include <thread>
#include <utility>

#include "base/Limits.h"
#include "decoders/PayloadFault.h"
#include "decoders/PlaceholderDecoder.h"

namespace corvane {

namespace {

constexpr uint32_t kCanBeShared = 2;    // *got of a decode; 1: a picture that cannot
constexpr uint32_t kKindCuvid = 1;
constexpr uint32_t kKindDxva2 = 2;
constexpr uint32_t kKindQuickSync = 3;
constexpr uint32_t kMostThreads = 32;        // that any decoder uses
constexpr uint32_t kMostReordered = 16;      // pictures that any of the standards lets a decoder hold for their order
constexpr uint32_t kUsuallyReordered = 5;    // at most, in streams of usual encoders

uint32_t ThreadCount(uint32_t asked, uint32_t width, uint32_t height) {
    if (asked != 0)
        return std::min(asked, kMostThreads);
    if (std::thread::hardware_concurrency() == 1)
        return 1;
    return width >= 1280 || height >= 800 ? 2 : 1;
}

FFmpegDecoderPtr MakeFFmpeg(uint32_t codec, uint32_t vendorTag, uint32_t threads) {
    switch (codec) {
    case CORVANE_STREAM_JPEG:
        return MakeVideoDecoder(FFmpegCodec::Mjpeg, 0);
    case CORVANE_STREAM_H263:    // the streams of other vendors are not the Recommendation's
        return vendorTag == FourCharacters("QMRX") ? MakeVideoDecoder(FFmpegCodec::H263, 0) : nullptr;
    case CORVANE_STREAM_MPEG4:
        return MakeVideoDecoder(FFmpegCodec::Mpeg4, 0);
    case CORVANE_STREAM_H264:
        return MakeVideoDecoder(FFmpegCodec::H264, threads);
    case CORVANE_STREAM_H265:
        return MakeVideoDecoder(FFmpegCodec::Hevc, threads);
    default:
        return nullptr;
    }
}

// The form of a factory that knows the display adapter, where the plug-in has it, else the older one.
template <typename NewFactory, typename OldFactory, typename... Arguments>
DecoderPtr CallEither(NewFactory withAdapter, uint32_t adapter, OldFactory without, Arguments... arguments) {
    return withAdapter != nullptr ? CallFactory(withAdapter, adapter, arguments...)
                                  : CallFactory(without, arguments...);
}

// Checks the planes that a plug-in states before anything reads the pixels.
bool PlanesAreValid(const DecodedFrame& picture) {
    const uint64_t chromaRow = (uint64_t{picture.width} + 1) / 2 * (picture.strides[2] == 0 ? 2 : 1);
    return picture.planes[0] != nullptr && picture.planes[1] != nullptr &&
           (picture.strides[2] == 0 || picture.planes[2] != nullptr) && picture.strides[0] >= picture.width &&
           picture.strides[1] >= chromaRow && (picture.strides[2] == 0 || picture.strides[2] >= chromaRow);
}

}    // namespace

VideoDecoderHolder::Settings VideoDecoderHolder::CopySettings() const {
    MutexLock lock(m_settingsMutex);
    return m_settings;
}

void VideoDecoderHolder::SetAdapter(uint32_t adapter) {
    if (adapter == m_adapter)
        return;
    m_adapter = adapter;
    const DecoderFactories factories = CopySettings().factories;
    const bool dependsOnAdapter =
        (m_activeKind == kKindCuvid && factories.GetDecoderIsolated_CUVID_MP4V_v2 != nullptr) ||
        (m_activeKind == kKindDxva2 && factories.GetDecoderIsolated_DXVA2_v2 != nullptr);
    if (dependsOnAdapter)
        Reset(m_backward);
}

void VideoDecoderHolder::Reset(bool backward) {
    m_decoder.reset();
    m_software = nullptr;
    m_none = false;
    m_activeKind = 0;
    m_codec = m_vendorTag = m_width = m_height = 0;
    m_lastGot = 0;
    m_picture = SharedPicture();
    m_marks = FieldMarks{};
    m_extensionSeen = false;
    m_backward = backward;
    m_inFlight.clear();
    m_units = AccessUnitAssembler();
}

bool VideoDecoderHolder::CurrentInput(FramePtr& out) const {
    if (CurrentFrame().planes[0] == nullptr || m_inFlight.empty())
        return false;
    out = m_inFlight.front();
    return true;
}

void VideoDecoderHolder::ChooseDecoder(const MediaFrameImpl& frame) {
    if (!m_backward && !frame.IsKeyFrame())
        return;
    const uint32_t codec = frame.Header().streamType;
    // Damage can make a delay grow for good, to as much as 16 pictures.
    const bool late = m_software != nullptr && m_software->DelayGrowth() > kUsuallyReordered;
    if (m_codec == codec && m_vendorTag == frame.VendorTag() && m_width == frame.DecodedWidth() &&
        m_height == frame.DecodedHeight() && !late)
        return;
    // Parameter sets that came by themselves are for this frame.
    AccessUnitAssembler units = m_codec == codec ? std::move(m_units) : AccessUnitAssembler();
    Reset(m_backward);
    m_units = std::move(units);
    const Settings settings = CopySettings();
    const uint32_t threads = ThreadCount(settings.threads, frame.DecodedWidth(), frame.DecodedHeight());
    uint32_t kind = 0;
    m_decoder = MakeFromPlugin(settings, frame, &kind);
    const bool software = m_decoder == nullptr;
    m_none = software && !MakeSoftware(codec, frame.VendorTag(), threads);
    if (m_none)
        return;
    // Backward play, once there is such a decoder, wraps m_decoder here and in FallBack (not for JPEG and
    // placeholders). Until then m_decoder gets each frame as it comes.
    m_activeKind = software ? 0 : kind;
    m_threads = threads;
    m_codec = codec;
    m_vendorTag = frame.VendorTag();
    m_width = frame.DecodedWidth();
    m_height = frame.DecodedHeight();
}

// Replaces the decoder; false, with the old one kept, when there is none for `codec` of that vendor.
bool VideoDecoderHolder::MakeSoftware(uint32_t codec, uint32_t vendorTag, uint32_t threads) {
    FFmpegDecoderPtr ffmpeg = MakeFFmpeg(codec, vendorTag, threads);
    const DecoderIsolated_FFmpeg* const software = ffmpeg.get();
    DecoderPtr decoder = std::move(ffmpeg);
    if (codec == CORVANE_STREAM_PLACEHOLDER)
        decoder = MakePlaceholderDecoder();
    if (decoder == nullptr)
        return false;
    m_decoder = std::move(decoder);
    m_software = software;
    return true;
}

// *kind is that of the plug-in's hardware, where the result is not null.
DecoderPtr VideoDecoderHolder::MakeFromPlugin(const Settings& settings, const MediaFrameImpl& frame,
                                              uint32_t* kind) const {
    const DecoderFactories& factories = settings.factories;
    const uint32_t width = frame.DecodedWidth();
    const uint32_t height = frame.DecodedHeight();
    switch (frame.Header().streamType) {
    case CORVANE_STREAM_H263:    // vendors' own streams; their decoders are no hardware
        if (frame.VendorTag() == FourCharacters("DAHU"))
            return CallFactory(factories.GetDecoderIsolated_Dahua);
        if (frame.VendorTag() == FourCharacters("HIKV"))
            return CallFactory(factories.GetDecoderIsolated_Hikvision, frame.VendorBlob(), frame.VendorBlobSize());
        return nullptr;
    case CORVANE_STREAM_MPEG4:
        *kind = settings.mpeg4Kind;
        if (*kind == kKindCuvid)
            return CallEither(factories.GetDecoderIsolated_CUVID_MP4V_v2, m_adapter,
                              factories.GetDecoderIsolated_CUVID_MP4V);
        return nullptr;
    case CORVANE_STREAM_H264:
        *kind = settings.h264Kind;
        if (*kind == kKindCuvid)
            return CallEither(factories.GetDecoderIsolated_CUVID_H264_v2, m_adapter,
                              factories.GetDecoderIsolated_CUVID_H264);
        if (*kind == kKindDxva2)
            return CallEither(factories.GetDecoderIsolated_DXVA2_v2, m_adapter,
                              factories.GetDecoderIsolated_DXVA2Native, width, height, frame.Payload(),
                              frame.PayloadSize());
        if (*kind == kKindQuickSync)
            return CallFactory(factories.GetDecoderIsolated_QuickSync);
        return nullptr;
    case CORVANE_STREAM_H265:
        *kind = settings.hevcKind;
        if (*kind == kKindCuvid)
            return CallEither(factories.GetDecoderIsolated_CUVID_HEVC_v2, m_adapter,
                              factories.GetDecoderIsolated_CUVID_HEVC);
        if (*kind == kKindDxva2)
            return CallEither(factories.GetDecoderIsolated_DXVA2_HEVC_v2, m_adapter,
                              factories.GetDecoderIsolated_DXVA2Native_HEVC, width, height);
        if (*kind == kKindQuickSync)
            return CallFactory(factories.GetDecoderIsolated_QuickSync_HEVC);
        return nullptr;
    default:
        return nullptr;
    }
}

bool VideoDecoderHolder::FallBack(const MediaFrameImpl& frame) {
    if ((!m_backward && !frame.IsKeyFrame()) || m_activeKind == 0)
        return false;
    const Settings settings = CopySettings();
    if (!settings.fallbackAllowed ||
        (m_codec != CORVANE_STREAM_MPEG4 && m_codec != CORVANE_STREAM_H264 && m_codec != CORVANE_STREAM_H265))
        return false;
    const uint32_t threads = ThreadCount(settings.threads, m_width, m_height);
    if (!MakeSoftware(m_codec, m_vendorTag, threads))
        return false;
    m_inFlight.clear();
    m_lastGot = 0;    // the new decoder has given no picture, so its first one takes nothing from m_inFlight
    m_threads = threads;
    m_activeKind = 0;
    return true;
}

// Negative also for an exception and for an impossible picture.
int32_t VideoDecoderHolder::CallDecoder(const EncodedUnit& unit, uint32_t* got, DecodedFrame* picture) noexcept {
    const Thread::ScopedOwner scope(Thread::PluginCode());    // also of our own decoders, which call no exports
    try {
        const int32_t result = m_decoder->DecodeVideo(picture, got, &unit);
        if (result < 0 || *got == 0)
            return result;
        if (*got > kCanBeShared)
            return -1;
        if (!limits::FitsPicture(picture->width, picture->height))
            m_outcome = DecodeOutcome::Size;
        else if (PlanesAreValid(*picture))
            return result;
        return -1;
    } catch (...) {
        return -1;
    }
}

// The holder's own reference on the decoded picture; none where the decoder does not share it. Plug-ins and
// placeholders signal no colours: theirs count as full-range BT.601.
SharedPicture VideoDecoderHolder::TakeReference(const DecodedFrame& decoded, uint32_t got) noexcept {
    constexpr int32_t kVersion = 2;
    DecodedFrame told{};
    DecodedFrame picture = decoded;
    picture.owner = nullptr;
    const Thread::ScopedOwner scope(Thread::PluginCode());
    try {
        if (got == kCanBeShared && m_decoder->ShareFrame(&told, kVersion) >= 0) {
            picture.owner = told.owner;
            picture.add_ref = told.add_ref;
            picture.release = told.release;
        }
    } catch (...) {    // not shared
    }
    return {picture, SharedPicture::TakenReference(), m_software != nullptr ? m_software->Colours() : ColourSignal()};
}

uint32_t VideoDecoderHolder::ThreadsInUse() const {
    if (m_software != nullptr)
        return m_software->Threads();
    return m_decoder != nullptr ? 1 : 0;
}

DecodeOutcome VideoDecoderHolder::WithoutDecoder(const MediaFrameImpl& frame) const {
    return m_none || m_backward || frame.IsKeyFrame() ? DecodeOutcome::NoDecoder : DecodeOutcome::AwaitsKeyFrame;
}

// The outcome so far, or a mistake of the sender that explains it better.
DecodeOutcome VideoDecoderHolder::WithoutPicture(const MediaFrameImpl& frame) const {
    if (m_outcome == DecodeOutcome::Dropped)
        return m_outcome;
    switch (FindPayloadFault(m_codec, frame.Payload(), frame.PayloadSize())) {
    case PayloadFault::NoStartCode:
        return DecodeOutcome::NoStartCode;
    case PayloadFault::WrongType:
        return DecodeOutcome::WrongType;
    case PayloadFault::None:
        break;
    }
    return m_outcome;
}

int32_t VideoDecoderHolder::Decode(const FramePtr& frame, uint32_t* got) {
    *got = 0;
    m_outcome = DecodeOutcome::Failed;
    ChooseDecoder(*frame);
    if (m_decoder == nullptr) {
        m_outcome = WithoutDecoder(*frame);
        return -1;
    }
    int32_t result = 0;
    // A backward decoder gets each frame, and assembles the units of a GOP by itself.
    const AccessUnitAssembler::Unit unit = m_backward ? AccessUnitAssembler::Alone(frame) : m_units.Add(frame);
    if (unit.input != nullptr)
        result = DecodeUnit(unit, got);
    else
        m_outcome = DecodeOutcome::HeldBack;
    if (*got == 0)
        m_outcome = WithoutPicture(*frame);
    return result;
}

int32_t VideoDecoderHolder::DecodeUnit(const AccessUnitAssembler::Unit& unit, uint32_t* got) {
    *got = 0;
    m_outcome = DecodeOutcome::Failed;
    m_inFlight.push_back(unit.input);    // first, since it may raise
    m_picture = SharedPicture();         // the last picture ends with the next call on its decoder
    DecodedFrame picture{};
    if (CallDecoder(unit.encoded, got, &picture) < 0) {
        m_inFlight.pop_back();
        *got = 0;
        if (m_software != nullptr && m_software->LastEnd() == UnitEnd::Size)
            m_outcome = DecodeOutcome::Size;
        return FallBack(*unit.input) ? DecodeUnit(unit, got) : -1;    // once: the fall-back is software
    }
    if (m_lastGot != 0)
        m_inFlight.pop_front();    // it was shown, and its picture is over
    if (*got != 0) {
        m_outcome = DecodeOutcome::Picture;
        m_picture = TakeReference(picture, *got);
        while (m_software != nullptr && m_inFlight.size() > size_t{m_software->Delay()} + 1)
            m_inFlight.pop_front();    // its picture would have come by now
        ApplyFieldMarks(*m_inFlight.front());
        CarryLensRecord(*m_inFlight.front());
    } else {
        m_outcome = OutcomeOfSilence();
        RemoveEnded();
    }
    const bool stopped = *got == 0 && m_lastGot != 0 && m_software == nullptr && !m_backward;
    m_lastGot = *got;
    if (stopped || m_inFlight.size() > MostInFlight()) {
        Reset(m_backward);    // the next key frame brings a new one
        *got = 0;
        m_outcome = DecodeOutcome::Dropped;
    }
    return 0;
}

// Removes the unit that the software decoder has finished without a picture.
void VideoDecoderHolder::RemoveEnded() {
    const std::optional<uint32_t> since = m_software != nullptr ? m_software->UnitsSinceEnded() : std::nullopt;
    if (since && *since < m_inFlight.size())
        m_inFlight.erase(m_inFlight.end() - 1 - static_cast<ptrdiff_t>(*since));
}

size_t VideoDecoderHolder::MostInFlight() const {
    return m_threads + limits::kInFlightSlack + (m_software != nullptr ? kMostReordered : 0);
}

// After a call that succeeded and gave no picture.
DecodeOutcome VideoDecoderHolder::OutcomeOfSilence() const {
    if (m_software == nullptr)
        return DecodeOutcome::HeldBack;    // a plug-in reports no more
    switch (m_software->LastEnd()) {
    case UnitEnd::Taken:
        return DecodeOutcome::HeldBack;
    case UnitEnd::Nothing:
        return DecodeOutcome::NoPicture;
    case UnitEnd::Size:
        return DecodeOutcome::Size;
    case UnitEnd::Refused:
        break;
    }
    return DecodeOutcome::Failed;
}

void VideoDecoderHolder::ApplyFieldMarks(MediaFrameImpl& frame) {
    const uint32_t codec = frame.Header().streamType;
    if (codec == CORVANE_STREAM_JPEG)
        ReadJpegMarker(frame.Payload(), frame.PayloadSize(), m_marks);
    else if (codec == CORVANE_STREAM_MPEG4)
        ReadMpeg4Marker(frame.Payload(), frame.PayloadSize(), m_marks);
    else
        return;
    if (m_marks.fieldLMode)
        frame.RaiseFieldCoded();
    if (m_marks.interlacedMode)
        frame.RaiseInterlaced();
}

// A camera sends its lens record with key frames only.
void VideoDecoderHolder::CarryLensRecord(MediaFrameImpl& frame) {
    const LensRecord* record = frame.Lens();
    if (frame.IsKeyFrame()) {
        m_extensionSeen = record != nullptr;
        if (record != nullptr)
            m_extension = *record;
    } else if (m_extensionSeen) {
        frame.SetLensRecord(m_extension);
    }
}

}    // namespace corvane
