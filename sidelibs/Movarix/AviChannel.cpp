#include "AviChannel.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <utility>

#include "Compressors.h"
#include "Guard.h"

namespace movarix {

namespace {

constexpr uint32_t kOldRecordSize = 176;
constexpr uint64_t kMaxFrameBytes = 256 << 20;
constexpr uint32_t kMinStartSize = 16;    // bytes of MovarixStart up to its path

// As much of a record as its size says; the rest is 0.
template <typename Record>
Record ReadRecord(const void* caller, uint32_t size) {
    Record record{};
    std::memcpy(static_cast<void*>(&record), caller, size < sizeof record ? size : sizeof record);
    return record;
}

MediaFrameHeader ReadFrame(const void* caller) {
    uint32_t size;
    std::memcpy(&size, static_cast<const uint8_t*>(caller) + offsetof(MediaFrameHeader, recordSize), sizeof size);
    auto record = ReadRecord<MediaFrameHeader>(caller, size == 0 ? kOldRecordSize : size);
    record.recordSize = sizeof record;
    if (size == 0)    // its layout has no stream clock
        record.streamSeconds = record.timeSeconds;
    return record;
}

bool IsPicture(uint32_t type) {
    return type == CORVANE_STREAM_JPEG || type == CORVANE_STREAM_H263 || type == CORVANE_STREAM_MPEG4 ||
           type == CORVANE_STREAM_H264 || type == CORVANE_STREAM_H265;
}

// Of sound that a file can have as it is.
bool IsFileSound(uint32_t type) {
    return type == CORVANE_STREAM_AAC || type == CORVANE_STREAM_MULAW || type == CORVANE_STREAM_ALAW ||
           type == CORVANE_STREAM_G726;
}

bool IsDecodableSound(uint32_t type) {
    return type == CORVANE_STREAM_G7221 || type == CORVANE_STREAM_G729A || type == CORVANE_STREAM_AMR ||
           IsFileSound(type);
}

int64_t TimeMs(const MediaFrameHeader& header) {
    return int64_t{header.streamSeconds} * 1000 + header.timeMilliseconds;
}

// Of the first bytes of a header in a raw record, where the stream clock has no place.
MediaFrameHeader HeaderOf(const uint8_t (&bytes)[120]) {
    auto header = ReadRecord<MediaFrameHeader>(bytes, sizeof bytes);
    header.streamSeconds = header.timeSeconds;
    return header;
}

// The folder that is the working one now counts for all files of a recording.
bool MakeAbsolute(std::string& path) {
    char folder[PATH_MAX];
    if (path.empty() || path.front() == '/')
        return true;
    if (getcwd(folder, sizeof folder) == nullptr)
        return false;
    path = std::string(folder) + "/" + path;
    return true;
}

}    // namespace

AviChannel::AviChannel(const Host& host, const CompressorChoice& choice, bool live)
    : m_live(live),
      m_choice(choice),
      m_pictureDecoder(host, &AviChannel::OnDecoded, this),
      m_soundDecoder(host, &AviChannel::OnDecoded, this) {}

AviChannel::~AviChannel() {
    Stop();
}

uint32_t AviChannel::Start(const MovarixStart* start) {
    if (start == nullptr || start->recordSize < kMinStartSize || start->path == nullptr)
        return Status_InvalidArgument;
    const auto record = ReadRecord<MovarixStart>(start, start->recordSize);
    RecordingSettings settings{record.path, (record.flags & MOVARIX_START_REPLACE) != 0, m_live, record.maxBytes,
                               record.maxSeconds};
    if (!MakeAbsolute(settings.path))
        return MOVARIX_SYSTEM_ERROR(static_cast<uint32_t>(errno));
    const std::lock_guard lock(m_mutex);
    if (m_recording != nullptr && !Failed(m_recording->Status()))
        return Status_Failed;
    Finish();
    auto recording = std::make_unique<Recording>(std::move(settings));
    auto assembler = std::make_unique<UnitAssembler>();
    auto framer = std::make_unique<SoundFramer>();
    m_active = m_choice;
    MovarixCompressor pictures = m_active.pictures;
    if (pictures.type == kNoCompressor)
        pictures.type = CORVANE_STREAM_MPEG4;
    m_pictureCompressor = std::make_unique<PictureCompressor>(pictures);
    m_soundCompressor = m_active.sound.type == kPcm ? nullptr : std::make_unique<SoundCompressor>(m_active.sound.type);
    if (const uint32_t status = recording->Open(); Failed(status))
        return status;
    recording->ExpectPictures(m_pictures);
    m_recording = std::move(recording);
    m_assembler = std::move(assembler);
    m_framer = std::move(framer);
    m_bytes = 0;
    return Status_Ok;
}

uint32_t AviChannel::Finish() {
    if (m_recording == nullptr)
        return Status_Ok;
    const std::unique_ptr<Recording> recording = std::move(m_recording);
    const uint32_t status = recording->Finish();
    m_bytes = recording->FileBytes();
    m_pictureDecoder.Delete();
    m_soundDecoder.Delete();
    return status;
}

uint32_t AviChannel::Stop() {
    return Guard([&]() -> uint32_t {
        const std::lock_guard lock(m_mutex);
        if (m_recording == nullptr)
            return Status_Ok;
        AddPictures(m_assembler->Flush());
        m_pictureCompressor->Flush([&](const Picture& picture) { return m_recording->Add(picture); });
        return Finish();
    });
}

uint32_t AviChannel::Input(const MediaFrameHeader* frame) {
    if (frame == nullptr)
        return Status_InvalidArgument;
    const MediaFrameHeader header = ReadFrame(frame);
    if (!IsPicture(header.streamType) && !IsDecodableSound(header.streamType))
        return Status_UnsupportedMedia;
    if ((header.data == nullptr && (header.headerSize != 0 || header.payloadSize != 0)) ||
        uint64_t{header.headerSize} + header.payloadSize > kMaxFrameBytes)
        return Status_InvalidArgument;
    const std::lock_guard lock(m_mutex);
    if (m_recording == nullptr)
        return Status_ChannelNotStarted;
    if (Failed(m_recording->Status()))
        return m_recording->Status();
    const View payload{header.data == nullptr ? nullptr : header.data + header.headerSize, header.payloadSize};
    const uint32_t status = IsPicture(header.streamType) ? InputPicture(header, payload) : InputSound(header, payload);
    m_bytes = m_recording->FileBytes();
    return status;
}

uint32_t AviChannel::InputPicture(const MediaFrameHeader& header, const View& payload) {
    if (!m_pictures)
        return Status_Ok;
    if (m_active.pictures.type != kNoCompressor && m_active.pictures.type != header.streamType)
        return Transcode(m_pictureDecoder, header);
    Frame frame;
    frame.payload = payload;
    frame.type = header.streamType;
    frame.key = header.frameType == 0;
    frame.timeMs = TimeMs(header);
    frame.width = header.pictureWidth;
    frame.height = header.pictureHeight;
    const UnitAssembler::Pictures pictures = m_assembler->Add(frame);
    const uint32_t status = AddPictures(pictures);
    return Failed(status) || !pictures.isForeign ? status : Status_UnsupportedMedia;
}

uint32_t AviChannel::AddPictures(const UnitAssembler::Pictures& pictures) {
    uint32_t status = Status_Ok;
    for (uint32_t at = 0; at < pictures.count && !Failed(status); ++at)
        status = m_recording->Add(pictures.pictures[at]);
    return status;
}

uint32_t AviChannel::InputSound(const MediaFrameHeader& header, const View& payload) {
    const bool asIs =
        IsFileSound(header.streamType) && (!m_active.soundChosen || m_active.sound.type == header.streamType);
    if (!asIs && !m_active.soundChosen)
        return Status_UnsupportedMedia;
    if (!m_sound)
        return Status_Ok;
    if (!asIs)
        return Transcode(m_soundDecoder, header);
    const uint32_t status = m_framer->Split(header, payload, TimeMs(header), &m_sounds);
    return Failed(status) ? status : AddSounds();
}

uint32_t AviChannel::AddSounds() {
    uint32_t status = Status_Ok;
    for (const Sound& sound : m_sounds)
        if (status = m_recording->Add(sound); Failed(status))
            break;
    return status;
}

// The results come through OnDecoded, inside the call. The host's records have the wall clock alone: it is set to the
// stream clock.
uint32_t AviChannel::Transcode(HostDecoder& decoder, const MediaFrameHeader& header) {
    MediaFrameHeader frame = header;
    frame.timeSeconds = header.streamSeconds;
    m_decodedStatus = Status_Ok;
    const uint32_t status = decoder.Decode(frame);
    return Failed(m_decodedStatus) ? m_decodedStatus : status;
}

void AviChannel::OnDecoded(void* context, uint32_t code, void* record) {
    auto& channel = *static_cast<AviChannel*>(context);
    const uint32_t status = Guard([&]() -> uint32_t {
        if (code == CORVANE_RAW_PICTURE)
            return channel.AddDecoded(*static_cast<const RawPictureInfo*>(record));
        return code == CORVANE_RAW_SOUND ? channel.AddDecoded(*static_cast<const RawAudioInfo*>(record)) : Status_Ok;
    });
    if (Failed(status))
        channel.m_decodedStatus = status;
}

uint32_t AviChannel::AddDecoded(const RawPictureInfo& picture) {
    const int64_t timeMs = TimeMs(HeaderOf(picture.header));
    m_recording->PictureComes();
    return m_pictureCompressor->Add(picture, timeMs, m_recording->WantsKey(timeMs),
                                    [&](const Picture& encoded) { return m_recording->Add(encoded); });
}

uint32_t AviChannel::AddDecoded(const RawAudioInfo& sound) {
    const MediaFrameHeader header = HeaderOf(sound.header);
    if (sound.samples == nullptr && sound.size != 0)
        return Status_InvalidArgument;
    const uint32_t status = SoundFramer::SplitSamples(header.audioSampleRate, header.audioChannels,
                                                      {sound.samples, sound.size}, TimeMs(header), &m_sounds);
    if (Failed(status))
        return status;
    for (Sound& one : m_sounds)
        if (m_soundCompressor != nullptr)
            if (const uint32_t result = m_soundCompressor->Compress(one); Failed(result))
                return result;
    return AddSounds();
}

uint32_t AviChannel::InputDecoded(uint32_t kind, const void* record) {
    if (record == nullptr)
        return Status_InvalidArgument;
    if (kind != MOVARIX_DECODED_PICTURE && kind != MOVARIX_DECODED_SOUND)
        return Status_NotSupported;
    const std::lock_guard lock(m_mutex);
    if (m_recording == nullptr)
        return Status_ChannelNotStarted;
    uint32_t status = m_recording->Status();
    if (Failed(status))
        return status;
    if (kind == MOVARIX_DECODED_PICTURE)
        status = m_pictures ? AddDecoded(*static_cast<const RawPictureInfo*>(record)) : Status_Ok;
    else
        status = m_sound ? AddDecoded(*static_cast<const RawAudioInfo*>(record)) : Status_Ok;
    m_bytes = m_recording->FileBytes();
    return status;
}

uint32_t AviChannel::SetPictures(const MovarixCompressor& compressor) {
    if (!IsPictureCompressor(compressor.type))
        return Status_UnsupportedMedia;
    if (const uint32_t status = PictureCompressor::Check(compressor.type); Failed(status))
        return status;
    const std::lock_guard lock(m_mutex);
    m_choice.pictures = compressor;
    return Status_Ok;
}

uint32_t AviChannel::SetSound(const MovarixCompressor& compressor) {
    if (!IsSoundCompressor(compressor.type))
        return Status_UnsupportedMedia;
    const std::lock_guard lock(m_mutex);
    m_choice.sound = {compressor.type, 0, 0};
    m_choice.soundChosen = true;
    return Status_Ok;
}

CompressorChoice AviChannel::Choice() {
    const std::lock_guard lock(m_mutex);
    return m_choice;
}

uint32_t AviChannel::SetOption(uint32_t id, uint32_t value) {
    if (id != MOVARIX_OPTION_PICTURES && id != MOVARIX_OPTION_SOUND)
        return Status_NotSupported;
    const std::lock_guard lock(m_mutex);
    (id == MOVARIX_OPTION_PICTURES ? m_pictures : m_sound) = value != 0;
    if (m_recording != nullptr) {
        m_recording->ExpectPictures(m_pictures);
        if (!m_sound)
            m_recording->ForgetSound();
    }
    return Status_Ok;
}

}    // namespace movarix
