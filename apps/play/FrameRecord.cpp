#include "FrameRecord.h"

#include <time.h>

StreamFacts FactsOf(const MediaSource& source) {
    const int64_t stated = source.WallStartSeconds();
    return {source.StreamType(), static_cast<uint32_t>(source.FrameHeader().size()),
            stated != 0 ? stated : time(nullptr)};
}

MediaFrameHeader RecordOf(const Reel::Picture& frame, const StreamFacts& stream) {
    const SoundFormat& sound = frame.sound;
    MediaFrameHeader header{};
    header.recordSize = sizeof(header);
    header.data = frame.bytes.data();
    header.headerSize = sound.type != 0 ? 0 : stream.headerSize;
    header.payloadSize = static_cast<uint32_t>(frame.bytes.size()) - header.headerSize;
    header.streamType = sound.type != 0 ? sound.type : stream.type;
    if (sound.type != 0) {
        header.audioSampleRate = sound.rate;
        header.audioChannels = sound.channels;
        header.audioBlockCount = 1;
        header.detail.audio.audioBitRate = sound.bitRate;
        header.detail.audio.audioPacking = sound.mostSignificantFirst ? 1 : 0;
    }
    header.frameType = frame.key ? 0 : 1;
    header.streamSeconds = static_cast<uint32_t>(frame.timeMs / 1000);
    header.timeMilliseconds = static_cast<uint32_t>(frame.timeMs % 1000);
    header.timeSeconds = static_cast<uint32_t>(stream.wallStart + frame.timeMs / 1000);
    return header;
}

int64_t StreamMs(const MediaFrameHeader& header) {
    return int64_t{header.streamSeconds} * 1000 + header.timeMilliseconds;
}
