#include "frame/MediaFrameImpl.h"

#include <cstring>
#include <new>
#include <stdexcept>

#include "base/Limits.h"

namespace corvane {

namespace {

constexpr uint64_t kUnit = 16;        // bytes; the payload begins on one, and the block's size is counted in them
constexpr uint64_t kZeroTail = 64;    // bytes after the payload: the padding that libavcodec requires
constexpr uint32_t kOldRecordSize = 176;

static_assert(sizeof(MediaFrameHeader) == 264 && alignof(MediaFrameHeader) == 8);
static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= kUnit);

constexpr uint64_t RoundUp(uint64_t value) {
    return (value + kUnit - 1) & ~(kUnit - 1);
}

// Offsets of the parts of the block, in bytes from its start.
struct Layout {
    uint64_t extension;
    uint64_t payload;    // a multiple of kUnit; the header bytes end here
    uint64_t objects;    // a multiple of kUnit
    uint64_t size;       // a multiple of kUnit
};

uint64_t ObjectBytes(const MediaFrameHeader& record) {
    return uint64_t{record.objectCount} * sizeof(ObjectRecord);
}

// The first `recordSize` bytes of the caller's record, widened with zeros; nothing else of it is read. Lengths without
// a pointer become 0.
MediaFrameHeader ReadRecord(const void* caller) {
    uint32_t size;
    std::memcpy(&size, static_cast<const uint8_t*>(caller) + offsetof(MediaFrameHeader, recordSize), sizeof size);
    if (size == 0)
        size = kOldRecordSize;
    MediaFrameHeader record{};
    std::memcpy(static_cast<void*>(&record), caller, size < sizeof record ? size : sizeof record);
    record.recordSize = sizeof record;
    if (record.data == nullptr && (record.headerSize != 0 || record.payloadSize != 0))
        throw std::invalid_argument("no data");
    if (record.extension == nullptr)
        record.extensionSize = 0;
    if (record.objects == nullptr)
        record.objectCount = 0;
    if (record.vendorHeaderSize > record.headerSize)
        record.vendorHeader = nullptr;
    if (record.vendorHeader == nullptr)
        record.vendorHeaderSize = 0;
    return record;
}

}    // namespace

// The count record, 16 bytes that stand in front of the copied record.
class alignas(kUnit) FrameBlock {
public:
    // A block with one reference. Raises std::bad_alloc.
    static FrameBlock* Copy(const MediaFrameHeader& record);

    void AddReference() { m_references.fetch_add(1, std::memory_order_relaxed); }
    void DropReference() {
        if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            this->~FrameBlock();
            ::operator delete(this);
        }
    }
    uint64_t Bytes() const { return uint64_t{m_units} * kUnit; }
    const MediaFrameHeader* Record() const {
        return reinterpret_cast<const MediaFrameHeader*>(reinterpret_cast<const uint8_t*>(this) + sizeof(FrameBlock));
    }
    static FrameBlock* Of(const MediaFrameHeader* record) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(record) - sizeof(FrameBlock);
        return reinterpret_cast<FrameBlock*>(const_cast<uint8_t*>(bytes));
    }

private:
    explicit FrameBlock(uint32_t units) : m_units(units) {}

    std::atomic<uint32_t> m_references{1};
    uint32_t m_units;    // of kUnit bytes
};

namespace {

static_assert(sizeof(FrameBlock) == kUnit);

constexpr FrameReferences kReferences = {
    [](const MediaFrameHeader* record) { FrameBlock::Of(record)->AddReference(); },
    [](const MediaFrameHeader* record) { FrameBlock::Of(record)->DropReference(); },
};

struct Dropper {
    void operator()(FrameBlock* block) const { block->DropReference(); }
};

Layout LayOut(const MediaFrameHeader& record) {
    const uint64_t pointedAt =
        uint64_t{record.headerSize} + record.payloadSize + record.extensionSize + ObjectBytes(record);
    if (pointedAt > limits::kMaxFrameBytes)
        throw std::bad_alloc();
    Layout layout;
    layout.extension = sizeof(FrameBlock) + sizeof(MediaFrameHeader);
    layout.payload = RoundUp(layout.extension + record.extensionSize + record.headerSize);
    layout.objects = RoundUp(layout.payload + record.payloadSize + kZeroTail);
    layout.size = layout.objects + ObjectBytes(record);
    return layout;
}

void CopyBytes(uint8_t* to, const void* from, size_t size) {
    if (size > 0)
        std::memcpy(to, from, size);
}

FrameTimeRecord BaseTimeOf(const MediaFrameHeader& record) {
    FrameTimeRecord time;
    time.seconds = record.streamSeconds;
    time.milliseconds = record.timeMilliseconds;
    time.timeZone = TimeZoneCode(record);
    time.daylight = record.daylight != 0 ? 1 : 0;
    return time;
}

}    // namespace

FrameBlock* FrameBlock::Copy(const MediaFrameHeader& record) {
    const Layout layout = LayOut(record);
    auto* start = static_cast<uint8_t*>(::operator new(layout.size));
    auto* block = new (start) FrameBlock(static_cast<uint32_t>(layout.size / kUnit));

    auto* copy = new (start + sizeof(FrameBlock)) MediaFrameHeader(record);
    uint8_t* extension = start + layout.extension;
    uint8_t* payload = start + layout.payload;
    uint8_t* data = payload - record.headerSize;
    uint8_t* objects = start + layout.objects;
    CopyBytes(extension, record.extension, record.extensionSize);
    std::memset(extension + record.extensionSize, 0, static_cast<size_t>(data - extension) - record.extensionSize);
    CopyBytes(data, record.data, size_t{record.headerSize} + record.payloadSize);
    std::memset(payload + record.payloadSize, 0, static_cast<size_t>(objects - payload) - record.payloadSize);
    CopyBytes(objects, record.objects, ObjectBytes(record));

    copy->data = data;
    copy->references = &kReferences;
    copy->extension = record.extension != nullptr ? extension : nullptr;
    copy->motionInfo = record.motionInfo != nullptr ? copy->motionState : nullptr;
    copy->vendorHeader = record.vendorHeader != nullptr ? payload - record.vendorHeaderSize : nullptr;
    copy->objects = record.objects != nullptr ? reinterpret_cast<const ObjectRecord*>(objects) : nullptr;
    return block;
}

MediaFrameImpl::MediaFrameImpl(const MediaFrameHeader& header) {
    std::unique_ptr<FrameBlock, Dropper> block(FrameBlock::Copy(ReadRecord(&header)));
    const MediaFrameHeader& record = *block->Record();
    ParseHeaderExtension(record, m_extension);
    m_extension.baseTime = BaseTimeOf(record);
    m_extension.presentTime = m_extension.baseTime;
    ParsePacketExtension(record, m_extension);

    m_interlaced.store(m_extension.interlaced, std::memory_order_relaxed);
    m_fieldCoded.store(m_extension.fieldCoded, std::memory_order_relaxed);
    m_header = &record;
    m_block = block.release();
}

MediaFrameImpl::~MediaFrameImpl() {
    m_block->DropReference();
}

void MediaFrameImpl::SetLensRecord(const LensRecord& record) {
    m_extension.record = record;
    m_extension.kind = ExtensionKind::Lens;
}

uint64_t MediaFrameImpl::MemoryBytes() const {
    return m_block->Bytes();
}

uint32_t AudioDurationMs(const MediaFrameHeader& header) {
    const auto divide = [](uint64_t dividend, uint32_t divisor) {
        return divisor == 0 ? 0 : static_cast<uint32_t>(dividend / divisor);
    };
    switch (header.streamType) {
    case CORVANE_STREAM_G7221:
    case 2048:    // a block codec that no input accepts
    case CORVANE_STREAM_AMR:
        return static_cast<uint32_t>(uint64_t{header.audioBlockCount} * 20);
    case CORVANE_STREAM_G729A:
        return static_cast<uint32_t>(uint64_t{header.audioBlockCount} * 10);
    case CORVANE_STREAM_AAC:
        return divide(1'024'000, header.audioSampleRate);
    case CORVANE_STREAM_MULAW:
    case CORVANE_STREAM_ALAW:
        return divide(uint64_t{header.payloadSize} * 8000, 64000);
    case CORVANE_STREAM_G726:
        return divide(uint64_t{header.payloadSize} * 8000, header.detail.audio.audioBitRate);
    default:
        return 0;
    }
}

}    // namespace corvane
