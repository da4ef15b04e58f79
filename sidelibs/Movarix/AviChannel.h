// One channel of the contract: takes what a client gives, and hands pictures and sound to its recording. Any thread may
// call any function; one works at a time.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "HostDecoder.h"
#include "PictureCompressor.h"
#include "Recording.h"
#include "SoundCompressor.h"
#include "SoundFramer.h"
#include "UnitAssembler.h"
#include "Writer.h"

namespace movarix {

class AviChannel {
public:
    AviChannel(const Host& host, const CompressorChoice& choice, bool live);
    ~AviChannel();

    uint32_t Start(const MovarixStart* start);
    uint32_t Stop();
    uint32_t Input(const MediaFrameHeader* frame);
    uint32_t InputDecoded(uint32_t kind, const void* record);
    uint32_t SetPictures(const MovarixCompressor& compressor);
    uint32_t SetSound(const MovarixCompressor& compressor);
    CompressorChoice Choice();
    uint32_t SetOption(uint32_t id, uint32_t value);
    uint64_t FileSize() const { return m_bytes.load(std::memory_order_relaxed); }

private:
    static void OnDecoded(void* context, uint32_t code, void* record);

    uint32_t InputPicture(const MediaFrameHeader& header, const View& payload);
    uint32_t InputSound(const MediaFrameHeader& header, const View& payload);
    uint32_t Transcode(HostDecoder& decoder, const MediaFrameHeader& header);
    uint32_t AddDecoded(const RawPictureInfo& picture);
    uint32_t AddDecoded(const RawAudioInfo& sound);
    uint32_t AddPictures(const UnitAssembler::Pictures& pictures);
    uint32_t AddSounds();
    uint32_t Finish();

    const bool m_live;
    std::mutex m_mutex;
    std::atomic<uint64_t> m_bytes{0};    // of the current file

    // With m_mutex, as all that follows.
    CompressorChoice m_choice;    // of the next start
    bool m_pictures = true;       // options 1 and 2
    bool m_sound = true;

    // Of a recording: null outside one.
    std::unique_ptr<Recording> m_recording;
    CompressorChoice m_active;
    std::unique_ptr<UnitAssembler> m_assembler;
    std::unique_ptr<SoundFramer> m_framer;
    std::unique_ptr<PictureCompressor> m_pictureCompressor;
    std::unique_ptr<SoundCompressor> m_soundCompressor;    // null: PCM
    std::vector<Sound> m_sounds;                           // of the frame in hand

    HostDecoder m_pictureDecoder;
    HostDecoder m_soundDecoder;
    uint32_t m_decodedStatus = Status_Ok;    // of the results of the frame in hand
};

}    // namespace movarix
