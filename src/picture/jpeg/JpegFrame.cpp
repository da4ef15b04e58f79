// One picture: the segments in front of the scans, the scans, the end.
#include <cstring>

#include "picture/jpeg/JpegEncoder.h"

namespace corvane {

namespace {

constexpr uint32_t kMaxCommentBytes = 65523;
constexpr uint32_t kModeTagBytes = 10;
constexpr char kModeTags[][kModeTagBytes + 1] = {"FM_PG Mode", "FL_PG Mode", "FM_IL Mode", "FL_IL Mode"};

// Writes on until something fails, and then nothing more.
class Segment {
public:
    explicit Segment(BitPacker& packer) : m_packer(packer) {}
    Segment& Word(uint32_t value) { return Number(2, value); }
    Segment& Byte(uint32_t value) { return Number(1, value); }
    Segment& Bytes(const void* bytes, size_t size) {
        if (Ok(m_status))
            m_status = m_packer.PutBytes(static_cast<const uint8_t*>(bytes), static_cast<uint32_t>(size));
        return *this;
    }
    Status Result() const { return m_status; }

private:
    Segment& Number(uint32_t bytes, uint32_t value) {
        if (Ok(m_status))
            m_status = m_packer.SpliceBytes(bytes, value);
        return *this;
    }
    BitPacker& m_packer;
    Status m_status = Status::Ok;
};

}    // namespace

bool JpegEncoder::CanEncode(const JPEGEncFrame& frame) const noexcept {
    if (frame.CommentSize > kMaxCommentBytes || (frame.CommentSize != 0 && m_comment == nullptr))
        return false;
    if (m_components[0].width == 0 || m_components[0].height == 0)
        return true;
    return m_planes[0] != nullptr && (!InColour() || (m_planes[1] != nullptr && m_planes[2] != nullptr));
}

Status JpegEncoder::OneFrame(JPEGEncFrame& frame) noexcept {
    frame.EncodedBytes = 0;
    if (!CanEncode(frame))
        return Status::Failed;
    if (const Status status = WriteHeaders(frame); !Ok(status))
        return status;
    if (m_optimizeHuffman == 1)
        for (jpeg::HuffmanSet& set : m_huffman)
            set.ClearCounts();
    if (const Status status = WriteScans(); !Ok(status))
        return status;
    if (m_optimizeHuffman == 1) {
        m_huffman[0].SortByCounts();
        if (InColour())
            m_huffman[1].SortByCounts();
    }
    if (const Status status = m_packer->SpliceStuffing(); !Ok(status))
        return status;
    if (const Status status = m_packer->SpliceBytes(2, 0xFFD9); !Ok(status))
        return status;
    frame.EncodedBytes = m_packer->EncBytes();
    m_packer->UpdateByteCount();
    return Status::Ok;
}

Status JpegEncoder::WriteHeaders(const JPEGEncFrame& frame) noexcept {
    Segment start(*m_packer);
    start.Word(0xFFD8);
    if (m_jfifHeader == 1)
        // Version 1.02, dots per inch, 72 x 72, no thumbnail.
        start.Word(0xFFE0).Word(16).Bytes("JFIF", 5).Word(0x0102).Byte(1).Word(72).Word(72).Word(0);
    if (!Ok(start.Result()))
        return start.Result();
    if (frame.CommentSize != 0 || m_modeTag != 0)
        if (const Status status = WriteComment(frame.CommentSize); !Ok(status))
            return status;
    if (const Status status = WriteQuantTables(); !Ok(status))
        return status;
    if (const Status status = WriteHuffmanTables(); !Ok(status))
        return status;
    if (const Status status = WriteFrameHeader(); !Ok(status))
        return status;
    Segment restart(*m_packer);
    if (m_restartInterval != 0)
        restart.Word(0xFFDD).Word(4).Word(m_restartInterval);
    return restart.Result();
}

Status JpegEncoder::WriteComment(uint32_t size) noexcept {
    Segment segment(*m_packer);
    segment.Word(0xFFE2).Word(size + 2 + (m_modeTag != 0 ? kModeTagBytes : 0));
    if (m_modeTag != 0)
        segment.Bytes(kModeTags[m_modeTag - 1], kModeTagBytes);
    if (size != 0)
        segment.Bytes(m_comment, size);
    return segment.Result();
}

Status JpegEncoder::WriteQuantTables() noexcept {
    Segment segment(*m_packer);
    segment.Word(0xFFDB).Word(InColour() ? 132 : 67);
    for (uint32_t set = 0; set < (InColour() ? 2u : 1u); ++set) {
        uint8_t divisors[64];
        for (size_t k = 0; k < 64; ++k)
            divisors[k] = m_quant[set].divisors[kernels::kZigzag[k]];
        segment.Byte(set).Bytes(divisors, sizeof divisors);
    }
    return segment.Result();
}

Status JpegEncoder::WriteHuffmanTables() noexcept {
    const uint32_t sets = InColour() ? 2 : 1;
    Segment segment(*m_packer);
    segment.Word(0xFFC4).Word(sets == 2 ? 0x01A2 : 0x00D2);
    for (uint32_t set = 0; set < sets; ++set)
        segment.Byte(set)
            .Bytes(m_huffman[set].DcBits().data(), 16)
            .Bytes(m_huffman[set].DcList().data(), jpeg::kDcSymbols);
    for (uint32_t set = 0; set < sets; ++set)
        segment.Byte(0x10 + set)
            .Bytes(m_huffman[set].AcBits().data(), 16)
            .Bytes(m_huffman[set].AcList().data(), jpeg::kAcSymbols);
    return segment.Result();
}

Status JpegEncoder::WriteFrameHeader() noexcept {
    Segment segment(*m_packer);
    segment.Word(0xFFC0).Word(InColour() ? 17 : 11).Byte(8);
    segment.Word(m_components[0].height).Word(m_components[0].width).Byte(InColour() ? 3 : 1);
    segment.Byte(1).Byte(Is422() ? 0x21 : 0x22).Byte(0);
    for (uint32_t component = 2; InColour() && component <= 3; ++component)
        segment.Byte(component).Byte(0x11).Byte(1);
    return segment.Result();
}

Status JpegEncoder::WriteScanHeader(uint32_t first, uint32_t count) noexcept {
    constexpr uint32_t kSelectors[] = {0x0100, 0x0211, 0x0311};    // component, its DC and AC table
    if (const Status status = m_packer->SpliceAlign(); !Ok(status))
        return status;
    Segment segment(*m_packer);
    segment.Word(0xFFDA).Word(6 + 2 * count).Byte(count);
    for (uint32_t i = 0; i < count; ++i)
        segment.Word(kSelectors[first + i]);
    segment.Byte(0).Byte(63).Byte(0);
    return segment.Result();
}

Status JpegEncoder::WriteOneScan(uint32_t first, uint32_t count, const jpeg::CodeTables* codes) noexcept {
    if (const Status status = WriteScanHeader(first, count); !Ok(status))
        return status;
    jpeg::Scan scan{};
    scan.count = count;
    scan.restartInterval = m_restartInterval;
    for (uint32_t i = 0; i < count; ++i) {
        const Component& from = m_components[first + i];
        const uint32_t set = first + i == 0 ? 0 : 1;
        jpeg::ScanComponent& to = scan.components[i];
        to.samples = m_planes[first + i];
        to.step = from.stride;
        to.width = from.width;
        to.height = from.height;
        to.columns = count == 3 && i == 0 ? 2 : 1;
        to.rows = count == 3 && i == 0 && !Is422() ? 2 : 1;
        to.reciprocals = m_quant[set].reciprocals;
        to.codes = &codes[set];
        to.counted = m_optimizeHuffman == 1 ? &m_huffman[set] : nullptr;
    }
    const uint32_t mcuWidth = 8 * scan.components[0].columns;
    const uint32_t mcuHeight = 8 * scan.components[0].rows;
    scan.mcuColumns = (scan.components[0].width + mcuWidth - 1) / mcuWidth;
    scan.mcuRows = (scan.components[0].height + mcuHeight - 1) / mcuHeight;
    return m_writeScan(*m_packer, scan);
}

Status JpegEncoder::WriteScans() noexcept {
    jpeg::CodeTables codes[2];
    codes[0].Make(m_huffman[0]);
    codes[1].Make(m_huffman[1]);
    if (!InColour() || m_interleaved == 1)
        return WriteOneScan(0, InColour() ? 3 : 1, codes);
    for (uint32_t component = 0; component < 3; ++component)
        if (const Status status = WriteOneScan(component, 1, codes); !Ok(status))
            return status;
    return Status::Ok;
}

}    // namespace corvane
