// The decode path: two bytes choose codec, threads and direction, the rest is cut into frames for a holder.
//
//   byte 0   bits 0-2 codec, bits 3-4 threads less one, bit 5 backward play, bit 6 all frames are key frames
//   byte 1   bits 0-2 audio channels less one; bit 7: cut at every 64 bytes and not at stated lengths
//
// Then frames, each after two bytes: 15 bits of length, and the high bit set for a key frame.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "base/Limits.h"
#include "decoders/AccessUnitAssembler.h"
#include "decoders/AudioDecoderHolder.h"
#include "decoders/VideoDecoderHolder.h"

namespace {

using namespace corvane;

constexpr size_t kMaxInput = 64 * 1024;    // bytes; larger ones find nothing more and take longer
constexpr uint32_t kCodecs[8] = {CORVANE_STREAM_H264,        CORVANE_STREAM_H265, CORVANE_STREAM_MPEG4,
                                 CORVANE_STREAM_JPEG,        CORVANE_STREAM_AMR,  CORVANE_STREAM_ALAW,
                                 CORVANE_STREAM_PLACEHOLDER, CORVANE_STREAM_H263};

void Require(bool holds) {
    if (!holds)
        std::abort();
}

// Reads the ends of the rows of the current picture, where a wrong size is an access out of bounds.
void ReadPicture(const DecodedFrame& frame) {
    uint32_t sum = 0;
    for (int plane = 0; plane < 3; ++plane) {
        const uint32_t columns = plane == 0 ? frame.width : (frame.width + 1) / 2;
        const uint32_t rows = plane == 0 ? frame.height : (frame.height + 1) / 2;
        for (uint32_t y = 0; y < rows; y += 7)
            sum += frame.planes[plane][size_t{y} * frame.strides[plane]] +
                   frame.planes[plane][size_t{y} * frame.strides[plane] + columns - 1];
    }
    volatile uint32_t sink = sum;
    static_cast<void>(sink);
}

// Units of backward play come newest first. `last` is the place of the input of the one before.
void CheckUnits(AccessUnitAssembler& assembler, AccessUnitAssembler::Unit unit, int64_t& last) {
    for (; unit.input != nullptr; unit = assembler.Next()) {
        Require(unit.input->ArrivedAt() > last);
        last = unit.input->ArrivedAt();
        for (uint32_t i = 0; i < limits::kPicturePadding; ++i)
            Require(unit.encoded.data[unit.encoded.size + i] == 0);
    }
}

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2 || size > kMaxInput)
        return 0;
    const uint32_t codec = kCodecs[data[0] & 7];
    const uint32_t threads = (data[0] >> 3 & 3) + 1;
    const bool chunks = (data[1] & 0x80) != 0;
    VideoDecoderHolder video;
    AudioDecoderHolder audio;
    video.SetThreads(threads);
    video.Reset((data[0] & 0x20) != 0);
    std::vector<uint8_t> pcm(4096);
    AccessUnitAssembler backward(true);
    int64_t lastUnit = -1;
    for (size_t at = 2; at < size;) {
        size_t length = std::min<size_t>(64, size - at);
        bool key = at == 2;
        if (!chunks) {
            if (size - at < 2)
                break;
            key = (data[at] & 0x80) != 0;
            length = size_t{data[at] & 0x7Fu} << 8 | data[at + 1];
            at += 2;
            length = std::min(length, size - at);
        }
        MediaFrameHeader header{};
        header.recordSize = sizeof header;
        header.data = data + at;
        header.payloadSize = static_cast<uint32_t>(length);
        header.streamType = codec;
        header.frameType = key || (data[0] & 0x40) != 0 ? 0 : 1;
        header.audioBlockCount = 1;
        header.audioSampleRate = 8000;
        header.audioChannels = static_cast<uint8_t>((data[1] & 7) + 1);
        at += length;
        const auto frame = std::make_shared<MediaFrameImpl>(header);
        if (codec == CORVANE_STREAM_AMR || codec == CORVANE_STREAM_ALAW) {
            auto bytes = static_cast<uint32_t>(pcm.size());
            audio.Decode(pcm.data(), &bytes, *frame);
            Require(bytes <= pcm.size());
            continue;
        }
        frame->SetArrival(static_cast<int64_t>(at));
        CheckUnits(backward, backward.Add(frame), lastUnit);
        uint32_t got = 0;
        const int32_t result = video.Decode(frame, &got);
        FramePtr input;
        Require(result == 0 || got == 0);
        Require(got == 0 || video.CurrentInput(input));
        Require((got != 0) == (video.LastOutcome() == DecodeOutcome::Picture));
        Require(video.InFlight() <= threads + 48);
        if (got != 0)
            ReadPicture(video.CurrentFrame());
    }
    CheckUnits(backward, backward.Finish(), lastUnit);
    return 0;
}
