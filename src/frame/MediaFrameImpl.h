// The private copy of one encoded frame, with the contents of its extensions. Immutable after its construction, but for
// the marks that the decoding worker raises (atomics) and the lens record that it sets before the frame is presented.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <variant>

#include "corvane/corvane.h"
#include "frame/FrameExtension.h"

namespace corvane {

// Reference-counted block that holds the copied record and everything it points at.
class FrameBlock;

// `references` of a copied record points at this. The argument is that record; a reference keeps the record and all it
// points at, also after the end of the frame. Any thread.
struct FrameReferences {
    void (*add)(const MediaFrameHeader* record);
    void (*drop)(const MediaFrameHeader* record);    // frees the block with the last one
};

class MediaFrameImpl {
public:
    // Copies the record and all it points at: one allocation, and one for a vendor blob. Raises std::bad_alloc when
    // there is no memory (or the frame is above limits::kMaxFrameBytes), std::runtime_error("end of stream") when an
    // extension ends early, std::invalid_argument when `data` is null and a size is not 0. An extension or objects
    // without a pointer count as absent, and so does a vendor header that is longer than the frame header bytes.
    explicit MediaFrameImpl(const MediaFrameHeader& header);
    ~MediaFrameImpl();
    MediaFrameImpl(const MediaFrameImpl&) = delete;
    MediaFrameImpl& operator=(const MediaFrameImpl&) = delete;

    // The copied record; its pointers lead into the copy.
    const MediaFrameHeader& Header() const { return *m_header; }

    // The payload, 16-byte aligned, followed by at least 32 (in fact 64) zero bytes.
    const uint8_t* Payload() const { return m_header->data + m_header->headerSize; }
    uint32_t PayloadSize() const { return m_header->payloadSize; }

    bool IsKeyFrame() const { return m_header->frameType == 0; }

    const FrameTimeRecord& BaseTime() const { return m_extension.baseTime; }
    const FrameTimeRecord& PresentTime() const { return m_extension.presentTime; }
    bool PresentTimeGiven() const { return m_extension.presentTimeGiven; }

    // 1 fisheye calibration, 2 sensor layout, 3 lens record, 0 none.
    uint32_t ExtensionKind() const { return static_cast<uint32_t>(m_extension.kind); }
    const FisheyeCalibration* Fisheye() const { return std::get_if<FisheyeCalibration>(&m_extension.record); }
    const SensorLayout* Sensors() const { return std::get_if<SensorLayout>(&m_extension.record); }
    const LensRecord* Lens() const { return std::get_if<LensRecord>(&m_extension.record); }
    void SetLensRecord(const LensRecord& record);    // the worker, before the frame is presented

    bool Interlaced() const { return m_interlaced.load(std::memory_order_relaxed); }
    bool FieldCoded() const { return m_fieldCoded.load(std::memory_order_relaxed); }
    bool NotForDisplay() const { return m_extension.notForDisplay; }
    void RaiseInterlaced() { m_interlaced.store(true, std::memory_order_relaxed); }
    void RaiseFieldCoded() { m_fieldCoded.store(true, std::memory_order_relaxed); }

    // Four characters in memory order; "QMRX" where the frame names none.
    uint32_t VendorTag() const { return m_extension.vendorTag; }
    uint32_t VendorSubtype() const { return m_extension.vendorSubtype; }
    // Picture size in pixels as the frame states it; 0 when it does not.
    uint32_t DecodedWidth() const { return m_extension.decodedWidth; }
    uint32_t DecodedHeight() const { return m_extension.decodedHeight; }
    const uint8_t* VendorBlob() const { return m_extension.blob.get(); }
    uint32_t VendorBlobSize() const { return m_extension.blobLength; }

    // When the channel got the frame, ns of its clock; 0 where it was not set. Set before the frame is queued.
    int64_t ArrivedAt() const { return m_arrivedAt; }
    void SetArrival(int64_t now) { m_arrivedAt = now; }

    // Bytes of the block, for statistics.
    uint64_t MemoryBytes() const;

private:
    FrameBlock* m_block = nullptr;
    const MediaFrameHeader* m_header = nullptr;
    FrameExtension m_extension;
    int64_t m_arrivedAt = 0;
    std::atomic<bool> m_interlaced{false};
    std::atomic<bool> m_fieldCoded{false};
};

using FramePtr = std::shared_ptr<MediaFrameImpl>;

// The time by which queues and clocks order and pace frames, in milliseconds.
inline int64_t TimeMs(const MediaFrameImpl& frame) {
    return int64_t{frame.PresentTime().seconds} * 1000 + frame.PresentTime().milliseconds;
}

// The time zone of a record as FrameTimeRecord has it.
inline uint16_t TimeZoneCode(const MediaFrameHeader& header) {
    return static_cast<uint16_t>(48 - header.timeZoneSeconds / 900);
}

// Playing time of one audio frame in milliseconds, from its record; 0 for other types and for a zero divisor.
uint32_t AudioDurationMs(const MediaFrameHeader& header);

}    // namespace corvane
