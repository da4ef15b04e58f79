// Builds a frame whose frame header bytes and packet extension come from the input, and reads all that was found in
// them.
//
// Input: byte 0 chooses the stream type and the capture size, byte 1 is the length of the frame header bytes in units
// of 4, then those bytes; the rest is the packet extension.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "frame/MediaFrameImpl.h"

namespace {

using corvane::MediaFrameImpl;

// Copies of an exact size, so that a sanitizer sees any read beyond them.
std::unique_ptr<uint8_t[]> Exact(const uint8_t* bytes, size_t size) {
    auto copy = std::make_unique<uint8_t[]>(size);
    if (size > 0)
        std::memcpy(copy.get(), bytes, size);
    return copy;
}

uint64_t Sum(const void* bytes, size_t size) {
    uint64_t sum = 0;
    for (size_t i = 0; i < size; ++i)
        sum = sum * 31 + static_cast<const uint8_t*>(bytes)[i];
    return sum;
}

void ReadAll(const MediaFrameImpl& frame) {
    uint64_t sum = Sum(&frame.BaseTime(), sizeof(FrameTimeRecord)) + Sum(&frame.PresentTime(), sizeof(FrameTimeRecord));
    sum += Sum(frame.VendorBlob(), frame.VendorBlobSize()) + Sum(frame.Payload(), frame.PayloadSize() + 64);
    sum += frame.DecodedWidth() + frame.DecodedHeight() + frame.VendorTag() + frame.VendorSubtype();
    sum += static_cast<uint64_t>(corvane::TimeMs(frame)) + corvane::AudioDurationMs(frame.Header());
    sum += frame.Interlaced() + frame.FieldCoded() + frame.NotForDisplay();
    const uint32_t kind = frame.ExtensionKind();
    if ((frame.Fisheye() != nullptr) != (kind == 1) || (frame.Sensors() != nullptr) != (kind == 2) ||
        (frame.Lens() != nullptr) != (kind == 3))
        std::abort();
    if (const auto* fisheye = frame.Fisheye())
        sum += Sum(fisheye, sizeof *fisheye);
    if (const auto* sensors = frame.Sensors())
        sum += Sum(sensors->sensorCrop, sizeof sensors->sensorCrop);
    if (const auto* lens = frame.Lens())
        sum += Sum(lens->words, sizeof lens->words);
    [[maybe_unused]] static volatile uint64_t sink;
    sink = sum;
}

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2)
        return 0;
    constexpr uint32_t kTypes[] = {1, 2, 4, 8, 16, 255, 256, 0x20000};
    const size_t headerSize = std::min<size_t>(data[1] * size_t{4}, size - 2);
    const size_t extensionSize = size - 2 - headerSize;
    const auto headerBytes = Exact(data + 2, headerSize);
    const auto extension = Exact(data + 2 + headerSize, extensionSize);

    MediaFrameHeader record{};
    record.recordSize = sizeof record;
    record.streamType = kTypes[data[0] & 7];
    record.captureWidth = (data[0] & 8) != 0 ? 1920 : 1280;
    record.captureHeight = (data[0] & 8) != 0 ? 1080 : 720;
    record.data = headerBytes.get();
    record.headerSize = static_cast<uint32_t>(headerSize);
    record.vendorHeader = headerBytes.get();
    record.vendorHeaderSize = data[0];
    record.extension = extension.get();
    record.extensionSize = static_cast<uint32_t>(extensionSize);
    try {
        ReadAll(MediaFrameImpl(record));
    } catch (const std::runtime_error&) {    // the only thing that the bytes may cause
    }
    return 0;
}
