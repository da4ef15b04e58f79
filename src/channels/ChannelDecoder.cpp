#include "channels/ChannelDecoder.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

#include "channels/CountUnit.h"
#include "channels/Options.h"
#include "frame/StreamType.h"
#include "present/MakerTarget.h"

namespace corvane {

namespace {

constexpr size_t kHeadBytes = 112;    // of a frame's record, in the records of the caller; 8 more follow at their end

static_assert(sizeof(DecoderChannelSettings) == 24 && offsetof(DecoderChannelSettings, format) == 16);
static_assert(sizeof(DecodedVideoInfo) == 160 && offsetof(DecodedVideoInfo, header) == 40 &&
              offsetof(DecodedVideoInfo, headerTail) == 152);
static_assert(sizeof(DecodedAudioInfo) == 144 && offsetof(DecodedAudioInfo, header) == 24 &&
              offsetof(DecodedAudioInfo, headerTail) == 136);

bool IsVideo(const MediaFrameHeader& header) {
    return ClassOf(header.streamType) == StreamClass::Video;
}

bool IsSound(const MediaFrameHeader& header) {
    return ClassOf(header.streamType) == StreamClass::Audio;
}

Status CopyFrame(const MediaFrameHeader& header, FramePtr& frame) {
    try {
        frame = std::make_shared<MediaFrameImpl>(header);
        return Status::Ok;
    } catch (const std::bad_alloc&) {
        return Status::OutOfMemory;
    } catch (const std::exception&) {
        return Status::Failed;
    }
}

// Bytes of a picture in a format, of CORVANE_PICTURE_*, as clients of old versions expect to be told.
uint64_t TableBytes(uint32_t format, PictureSize size) {
    const uint64_t pixels = uint64_t{size.width} * size.height;
    switch (format) {
    case CORVANE_PICTURE_YUY2:
    case CORVANE_PICTURE_RGB565:
    case CORVANE_PICTURE_RGB555:
    case CORVANE_PICTURE_BGR565:
    case CORVANE_PICTURE_BGR555:
    case CORVANE_PICTURE_UYVY:
        return pixels * 2;
    case CORVANE_PICTURE_BGR24:
    case CORVANE_PICTURE_RGB24:
        return pixels * 3;
    case CORVANE_PICTURE_BGRA32:
    case CORVANE_PICTURE_JPEG:
    case CORVANE_PICTURE_RGBA32:
        return pixels * 4;
    case CORVANE_PICTURE_BMP_RGB565:
        return pixels * 2 + 66;
    case CORVANE_PICTURE_BMP_BGR24:
        return (pixels + 18) * 3;
    case CORVANE_PICTURE_BMP_BGRA32:
        return pixels * 4 + 54;
    case CORVANE_PICTURE_BMP_RGB555:
        return pixels * 2 + 54;
    default:
        return pixels * 3 / 2;
    }
}

// The size of an output of a picture of `own` size. Wraps to 0, which no maker takes, beyond 32 bits.
PictureSize OutputSize(PictureSize asked, PictureSize own) {
    const auto even = [](uint32_t side) { return (side + 1) & ~1u; };
    return asked.Empty() ? own : PictureSize{even(asked.width), even(asked.height)};
}

}    // namespace

CChannelDecoder::CChannelDecoder(const DecoderChannelSettings& settings, bool fallbackAllowed) {
    m_videoDecoder.SetFallbackAllowed(fallbackAllowed);
    m_client.Set(&RawSettings::first, {settings.callback, settings.context});
    m_client.Set(&RawSettings::format, settings.format);
    SetQuality(settings.quality);
}

// ---- Settings ----

Status CChannelDecoder::SetOption(int32_t id, uint64_t value, uint64_t extra) {
    OptionTargets targets{.decoder = this, .raw = &m_client, .video = &m_videoDecoder};
    return ApplyOption(ChannelType::Decoder, targets, id, value, extra);
}

CChannelDecoder::Settings CChannelDecoder::CopySettings() const {
    MutexLock lock(m_settingsMutex);
    return m_settings;
}

void CChannelDecoder::SetDeinterlace(bool on) {
    MutexLock lock(m_settingsMutex);
    m_settings.chain.deinterlaceEnabled = on;
}

void CChannelDecoder::SetResizeType(uint32_t type) {
    if (type > CORVANE_RESIZE_LANCZOS)
        return;
    MutexLock lock(m_settingsMutex);
    m_settings.chain.resizeType = type;
}

Status CChannelDecoder::InsertFilter(QMRX::Filter::IFilter* filter) {
    MutexLock lock(m_settingsMutex);
    auto& filters = m_settings.chain.clientFilters;
    if (std::ranges::find(filters, filter) != filters.end())
        return Status::Failed;
    filters.push_back(filter);
    return Status::Ok;
}

void CChannelDecoder::RemoveFilter(QMRX::Filter::IFilter* filter) {
    {
        MutexLock lock(m_settingsMutex);
        std::erase(m_settings.chain.clientFilters, filter);
    }
    m_filters.gate.WaitForRunning();
}

// ---- Calls ----

template <typename Body>
Status CChannelDecoder::Alone(Body&& body) {
    if (!Close())
        return Status::Failed;
    struct Opener {
        std::atomic<bool>& inside;
        ~Opener() { inside.store(false, std::memory_order_release); }
    };
    const Opener atEnd{m_inside};
    const Thread::ScopedOwner scoped(Handle());
    return body();
}

// For a frame of video, where pictures are wanted.
template <typename Body>
Status CChannelDecoder::WithVideo(const MediaFrameHeader& header, Body&& body) {
    return Alone([&] {
        if (!IsVideo(header))
            return Status::UnsupportedMedia;
        const RawSettings wanted = m_client.Settings();
        return wanted.pictures ? body(wanted) : Status::Ok;
    });
}

Status CChannelDecoder::DecodeVideo(const MediaFrameHeader& header, DecodedVideoInfo& out, uint32_t& size) {
    return WithVideo(header, [&](const RawSettings& wanted) {
        if (out.buffer == nullptr && out.capacity != 0)
            return Status::InvalidArgument;
        CORVANE_RETURN_IF_FAILED(DecodeStep(header));
        return m_got != 0 ? Deliver(wanted.format, wanted.prefix, out, size) : Status::Ok;
    });
}

Status CChannelDecoder::DecodeVideoOnly(const MediaFrameHeader& header, DecodedPictureSize& out, uint32_t& size) {
    return WithVideo(header, [&](const RawSettings& wanted) {
        const Status status = DecodeStep(header);
        if (m_got == 0)
            return status;
        const DecodedFrame& decoded = m_videoDecoder.CurrentFrame();
        const PictureSize whole = OutputSize(CopySettings().decodeSize, {decoded.width, decoded.height});
        if (!limits::FitsPicture(whole.width, whole.height))
            return Status::Failed;
        UseMaker(wanted.format);
        const uint64_t most = m_maker != nullptr ? m_maker->MostBytes(whole) : 0;
        const uint64_t told = TableBytes(wanted.format, whole);
        // The table counts too little for some outputs; a JPEG is that large only where the picture is tiny.
        size = static_cast<uint32_t>(std::max(told, most));
        out = {whole.width, whole.height};
        return status;
    });
}

Status CChannelDecoder::GetDecodedVideoFrame(uint32_t format, uint32_t prefix, DecodedVideoInfo& out, uint32_t& size) {
    return Alone([&] {
        if (out.buffer == nullptr && out.capacity != 0)
            return Status::InvalidArgument;
        return m_got != 0 ? Deliver(format, prefix, out, size) : Status::Ok;
    });
}

Status CChannelDecoder::DecodeAudio(const MediaFrameHeader& header, DecodedAudioInfo& out, uint32_t& size) {
    return Alone([&] {
        if (!IsSound(header))
            return Status::UnsupportedMedia;
        if (!m_client.Settings().sound)
            return Status::Ok;
        if (out.pcm == nullptr && out.capacity != 0)
            return Status::InvalidArgument;
        CORVANE_RETURN_IF_FAILED(DecodeSound(header));
        if (out.capacity < m_sound.size)
            return Status::BufferTooSmall;
        if (m_sound.size != 0)
            std::memcpy(out.pcm, m_pcm, m_sound.size);
        size = m_sound.size;
        out.duration = m_sound.duration;
        out.timeSeconds = m_sound.timeSeconds;
        out.timeMilliseconds = m_sound.timeMilliseconds;
        std::memcpy(out.header, m_sound.header, kHeadBytes);
        std::memcpy(&out.headerTail, m_sound.header + kHeadBytes, sizeof out.headerTail);
        return Status::Ok;
    });
}

Status CChannelDecoder::Input(const MediaFrameHeader& header) {
    return Alone([&] {
        const RawSettings wanted = m_client.Settings();
        if (IsSound(header)) {
            if (!wanted.sound)
                return Status::Ok;
            CORVANE_RETURN_IF_FAILED(DecodeSound(header));
            return wanted.Callback() ? Call(wanted.Callback(), CORVANE_RAW_SOUND, &m_sound) : Status::Ok;
        }
        if (!IsVideo(header))
            return Status::UnsupportedMedia;
        if (!wanted.pictures)
            return Status::Ok;
        const Status status = DecodeStep(header);
        return m_got != 0 && wanted.Callback() ? PushPicture(wanted) : status;
    });
}

// ---- Decoding ----

Status CChannelDecoder::DecodeStep(const MediaFrameHeader& header) {
    m_got = 0;
    FramePtr frame;
    CORVANE_RETURN_IF_FAILED(CopyFrame(header, frame));
    if (std::exchange(m_unfetched, false))
        m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
    m_counters.Add(Counter::FramesTaken);
    CountAtEnd fate(m_counters, Counter::UnitsFailed, CORVANE_CAUSE_OUT_OF_MEMORY);
    uint32_t got = 0;
    const int32_t result = m_videoDecoder.Decode(frame, &got);
    m_counters.NoteDecoder(m_videoDecoder.ActiveKind(), m_videoDecoder.ThreadsInUse());
    CountUnit(fate, m_videoDecoder.LastOutcome());
    m_got = got;
    m_unfetched = got != 0;
    return static_cast<Status>(result);
}

Status CChannelDecoder::DecodeSound(const MediaFrameHeader& header) {
    FramePtr frame;
    CORVANE_RETURN_IF_FAILED(CopyFrame(header, frame));
    m_counters.Add(Counter::FramesTaken);
    m_counters.Add(Counter::SoundFrames);
    CountAtEnd fate(m_counters, Counter::SoundLostDecoder, CORVANE_CAUSE_NONE);
    uint32_t size = sizeof m_pcm;
    CORVANE_RETURN_IF_FAILED(static_cast<Status>(m_audioDecoder.Decode(m_pcm, &size, *frame)));
    fate.Is(Counter::SoundHeard);
    m_sound.duration = AudioDurationMs(frame->Header());
    m_sound.size = size;
    m_sound.samples = m_pcm;
    m_sound.timeSeconds = frame->Header().timeSeconds;
    m_sound.timeMilliseconds = frame->Header().timeMilliseconds;
    std::memcpy(m_sound.header, &frame->Header(), sizeof m_sound.header);
    return Status::Ok;
}

// ---- Outputs ----

void CChannelDecoder::UseMaker(uint32_t format) {
    if (m_maker != nullptr && m_makerFormat == format)
        return;
    m_maker = MakePicture(format, AlignedBuffer::Use::Kept);
    m_makerFormat = format;
}

void CChannelDecoder::NoteHandedOver() {
    if (!std::exchange(m_unfetched, false))
        return;
    m_counters.Add(Counter::PicturesTaken);
    m_counters.Add(Counter::PicturesHandedOver);
}

// Where the chain fails the picture is not delivered.
Status CChannelDecoder::Run(const FramePtr& frame, const Settings& settings, PictureSize size, PictureTarget& target) {
    const SharedPicture decoded = m_videoDecoder.ShareCurrent();
    ConstPictureView picture = decoded.View();
    if (!settings.signalledColours)
        picture.colours.reset();
    const RunResult result = m_run.Carry({.frame = *frame, .picture = picture, .size = size}, settings.chain, target);
    if (picture.colours && !result.Lost())
        m_maker->NormaliseColours(*picture.colours);
    if (m_unfetched && result.smoothing == Smoothing::Done)
        m_counters.Add(Counter::PicturesSmoothed);
    return result.fate == RunResult::Fate::Carried && result.smoothing != Smoothing::Refused ? Status::Ok
                                                                                             : Status::Failed;
}

// Makes an output of the current picture in `memory`, where it has room and the pixels lie there as the chain writes
// them, else in the maker. m_picture says where it is.
Status CChannelDecoder::MakeOutput(uint32_t format, uint32_t prefix, const CallersMemory& memory) {
    UseMaker(format);
    if (m_maker == nullptr)
        return Status::UnknownPictureFormat;
    FramePtr frame;
    (void)m_videoDecoder.CurrentInput(frame);
    const DecodedFrame& decoded = m_videoDecoder.CurrentFrame();
    const PictureSize own{decoded.width, decoded.height};
    const CallGate::Scope call(m_filters.gate);    // enter the gate, then look at the filters
    const Settings settings = CopySettings();
    const PictureSize size = OutputSize(settings.decodeSize, own);
    if (!limits::FitsPicture(size.width, size.height))
        return Status::Failed;
    m_maker->SetQuality(settings.quality);
    m_maker->SetPrefix(prefix);
    const uint32_t fixed = m_maker->FixedSize(size);
    const bool fits = fixed != 0 && memory.data != nullptr && uint64_t{prefix} + fixed <= memory.size;
    // A scaler and filters of clients get memory of our own: they may write whole vectors, and expect aligned rows.
    uint8_t* const over = fits && size == own && settings.chain.clientFilters.empty() ? memory.data : nullptr;
    MakerTarget target(*m_maker, over);
    const Status ran = Run(frame, settings, size, target);
    if (!Ok(target.Result()))
        return target.Result();
    const bool inPlace = over != nullptr && target.LentOver();
    if (inPlace) {
        m_picture.buffer = over;
    } else if (fits && Ok(ran)) {
        std::memset(memory.data, 0, prefix);
        m_maker->MakeInto(memory.data + prefix);
        m_picture.buffer = memory.data;
    } else {
        CORVANE_RETURN_IF_FAILED(m_maker->Make());
        m_picture.buffer = m_maker->GetData();
    }
    CORVANE_RETURN_IF_FAILED(ran);
    m_picture.size = m_picture.buffer == memory.data && fits ? prefix + fixed : m_maker->GetSize();
    m_picture.width = size.width;
    m_picture.height = size.height;
    m_picture.prefix = prefix;
    m_picture.pixels = m_picture.buffer + prefix;
    std::memcpy(m_picture.header, &frame->Header(), sizeof m_picture.header);
    return Status::Ok;
}

Status CChannelDecoder::Deliver(uint32_t format, uint32_t prefix, DecodedVideoInfo& out, uint32_t& size) {
    CORVANE_RETURN_IF_FAILED(MakeOutput(format, prefix, {out.buffer, out.capacity}));
    if (out.capacity < m_picture.size)
        return Status::BufferTooSmall;
    if (m_picture.buffer != out.buffer)
        std::memcpy(out.buffer, m_picture.buffer, m_picture.size);
    size = m_picture.size;
    out.width = m_picture.width;
    out.height = m_picture.height;
    out.pixels = out.buffer + prefix;
    out.prefix = prefix;
    std::memcpy(out.header, m_picture.header, kHeadBytes);
    std::memcpy(&out.headerTail, m_picture.header + kHeadBytes, sizeof out.headerTail);
    NoteHandedOver();
    return Status::Ok;
}

// Calls the callback of `first` once, and the second one again while it asks for it.
Status CChannelDecoder::PushPicture(const RawSettings& first) {
    m_picture.count = 0;
    m_picture.requestedFormat = first.format;
    do {
        CORVANE_RETURN_IF_FAILED(MakeOutput(m_picture.requestedFormat, m_client.Settings().prefix, {}));
        ++m_picture.count;
        m_picture.format = m_picture.requestedFormat;
        m_picture.repeat = 0;
        NoteHandedOver();
        CORVANE_RETURN_IF_FAILED(Call(first.Callback(), CORVANE_RAW_PICTURE, &m_picture));
    } while (m_picture.repeat != 0 && first.second);
    return Status::Ok;
}

// A setter of the callback, on another thread, waits for the turn. A callback that was replaced since is not called.
Status CChannelDecoder::Call(const ClientCallback<CorvaneRawCallback>& callback, uint32_t code, void* record) {
    const RawClient::Turn turn(m_client, [] { return true; });
    if (m_client.Settings().Callback() != callback) {
        m_picture.repeat = 0;
        return Status::Ok;
    }
    try {
        callback(code, record);
        return Status::Ok;
    } catch (...) {
        return Status::Failed;
    }
}

}    // namespace corvane
