// Baseline JPEG streams out of planar pictures. What options, requests and failures mean stands in corvane/jpegenc.h;
// here the same operations on an object. For the picture makers and for the exports.
//
// Memory: one block of kBlockBytes that may begin on any address, with the packer behind it when the client gave the
// memory. OneFrame needs some 20 KB of stack. Threads: one encodes; with a pool one more may take, look and quit
// meanwhile.
#pragma once

#include <cstdint>
#include <memory>

#include "base/Status.h"
#include "corvane/jpegenc.h"
#include "picture/jpeg/BitPacker.h"
#include "picture/jpeg/JpegHuffman.h"
#include "picture/jpeg/JpegScan.h"

namespace corvane {

#pragma pack(push, 4)
class JpegEncoder {
public:
    static constexpr uint32_t kBlockBytes = 3498;

    struct Deleter {
        void operator()(JpegEncoder* encoder) const noexcept { Release(encoder); }
    };
    using Pointer = std::unique_ptr<JpegEncoder, Deleter>;

    // Bytes for JPEGEncOptions::Memory; all ones when they pass 32 bits.
    static uint32_t MemoryBytes(const JPEGEncOptions& options) noexcept;
    // Null for whatever JPEGEnc_Initial refuses.
    static Pointer Create(const JPEGEncOptions& options) noexcept;
    static void Release(JpegEncoder* encoder) noexcept;

    // Encodes and commits one picture; EncodedBytes is 0 on failure.
    Status OneFrame(JPEGEncFrame& frame) noexcept;
    Status SetOptions(const JPEGEncRequest& request) noexcept;
    Status TakeData(uint8_t* destination, uint32_t count) noexcept { return m_packer->GetBytes(destination, count); }
    uint32_t FilledBytes() const noexcept { return m_packer->Fullness(); }
    void Quit() noexcept { m_packer->Stop(); }

    // Scans are written by this from now on. For tests, which compare with the plainest one.
    using ScanWriter = Status (*)(BitPacker&, jpeg::Scan&);
    void WriteScansBy(ScanWriter writer) noexcept { m_writeScan = writer; }

private:
    struct Component {
        uint32_t width, height, stride;
    };
    struct QuantSet {
        uint8_t divisors[64];
        uint16_t reciprocals[64];
    };

    JpegEncoder() = default;
    void Keep(const JPEGEncOptions& options) noexcept;
    void SetPlanes(const uint8_t* y, const uint8_t* u, const uint8_t* v) noexcept;
    void PlacePlanes() noexcept;
    uint64_t PlaneOffset(uint32_t plane) const noexcept;
    void SetComponents(uint32_t width, uint32_t height) noexcept;
    void SetStrides() noexcept;
    void BuildQuantTables() noexcept;
    Status SetInputSize(uint32_t width, uint32_t height) noexcept;
    Status SetOffsets(uint32_t horizontal, uint32_t vertical) noexcept;
    bool CanEncode(const JPEGEncFrame& frame) const noexcept;
    Status WriteHeaders(const JPEGEncFrame& frame) noexcept;
    Status WriteComment(uint32_t size) noexcept;
    Status WriteQuantTables() noexcept;
    Status WriteHuffmanTables() noexcept;
    Status WriteFrameHeader() noexcept;
    Status WriteScans() noexcept;
    Status WriteScanHeader(uint32_t first, uint32_t count) noexcept;
    Status WriteOneScan(uint32_t first, uint32_t count, const jpeg::CodeTables* codes) noexcept;
    bool InColour() const noexcept { return m_colour == 1; }
    bool Is422() const noexcept { return m_subsampling == 2; }

    BitPacker* m_packer;
    void* m_ownBlock;                   // null in the client's memory
    const uint8_t* m_givenPlanes[3];    // null until given
    const uint8_t* m_planes[3];         // first byte to encode, by what held when they or the offsets were given
    const uint8_t* m_comment;
    Component m_components[3];
    uint32_t m_inputWidth, m_inputHeight, m_horzOffset, m_vertOffset;
    uint32_t m_quality, m_quantTable, m_colour, m_subsampling, m_modeTag;
    uint32_t m_restartInterval, m_interleaved, m_optimizeHuffman, m_jfifHeader;
    ScanWriter m_writeScan;
    QuantSet m_quant[2];
    jpeg::HuffmanSet m_huffman[2];
};
#pragma pack(pop)

}    // namespace corvane
