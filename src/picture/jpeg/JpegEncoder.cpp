#include "picture/jpeg/JpegEncoder.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>

namespace corvane {

namespace {

static_assert(sizeof(JPEGEncOptions) == 152 && offsetof(JPEGEncOptions, Quality) == 28 &&
              offsetof(JPEGEncOptions, JFIFHeader) == 44 && offsetof(JPEGEncOptions, ModeTag) == 60 &&
              offsetof(JPEGEncOptions, PackerMode) == 80 && offsetof(JPEGEncOptions, FullCallback) == 88 &&
              offsetof(JPEGEncOptions, Memory) == 112 && offsetof(JPEGEncOptions, PlaneY) == 120 &&
              offsetof(JPEGEncOptions, Comment) == 144);
static_assert(sizeof(JPEGEncFrame) == 8 && sizeof(JPEGEncRequest) == 32 && offsetof(JPEGEncRequest, Value0) == 8);

constexpr uint32_t kMaxSide = 65535;
constexpr uint32_t kMaxRestartInterval = 65535;
constexpr uint32_t kMaxModeTag = 4;
constexpr uint32_t kMaxQuality = (UINT32_MAX - 25) / 121;    // 121: the highest entry of the tables

constexpr uint32_t Half(uint32_t value) {
    return value / 2 + value % 2;
}

PBInitial PackerOptions(const JPEGEncOptions& options) {
    PBInitial initial{};
    initial.Version = PB_VERSION;
    initial.PoolSize = options.PoolSize;
    initial.RetryLimit = options.RetryLimit;
    initial.LockContext = options.LockContext;
    initial.FullContext = options.FullContext;
    initial.Mode = options.PackerMode;
    initial.FullCallback = options.FullCallback;
    initial.LockCallback = options.LockCallback;
    initial.UnlockCallback = options.UnlockCallback;
    return initial;
}

bool InLimits(const JPEGEncOptions& options) {
    return (options.Version & 0xFF00FF) == 11 && (options.Version & 0xFF00) == 0 && options.EncodingWidth <= kMaxSide &&
           options.EncodingHeight <= kMaxSide && options.RestartInterval <= kMaxRestartInterval &&
           options.ModeTag <= kMaxModeTag && options.Quality <= kMaxQuality &&
           uint64_t{options.InputWidth} * options.InputHeight <= UINT32_MAX;
}

bool RangeFits(const JPEGEncOptions& options) {
    if (uint64_t{options.HorzOffset} + options.EncodingWidth > options.InputWidth) {
        std::fputs("Error: Encoding range (EncodingWidth+HorzOffset) exceeds the input width !!\n", stderr);
        return false;
    }
    if (uint64_t{options.VertOffset} + options.EncodingHeight > options.InputHeight) {
        std::fputs("Error: Encoding range (EncodingHeight+VertOffset) exceeds the input height !!\n", stderr);
        return false;
    }
    return true;
}

const uint8_t* Moved(const uint8_t* pointer, uint64_t offset) {
    return pointer == nullptr ? nullptr
                              : reinterpret_cast<const uint8_t*>(reinterpret_cast<uintptr_t>(pointer) + offset);
}

const uint8_t* Address(uint64_t value) {
    return reinterpret_cast<const uint8_t*>(static_cast<uintptr_t>(value));
}

}    // namespace

uint32_t JpegEncoder::MemoryBytes(const JPEGEncOptions& options) noexcept {
    const uint64_t packer = BitPacker::MemoryBytes(PackerOptions(options));
    return static_cast<uint32_t>(std::min<uint64_t>(packer + kBlockBytes, UINT32_MAX));
}

JpegEncoder::Pointer JpegEncoder::Create(const JPEGEncOptions& options) noexcept {
    constexpr uintptr_t kSlack = alignof(JpegEncoder) - 1;
    static_assert(sizeof(JpegEncoder) + kSlack <= kBlockBytes);
    PBInitial initial = PackerOptions(options);
    // All of it before the client's memory is touched, whose size follows from these values.
    if (!InLimits(options) || !BitPacker::Accepts(initial) || !RangeFits(options))
        return nullptr;
    const bool own = options.Memory == nullptr;
    const uint32_t bytes = own ? kBlockBytes : MemoryBytes(options);
    void* const block = own ? ::operator new(bytes, std::nothrow) : options.Memory;
    if (block == nullptr)
        return nullptr;
    std::memset(block, 0, bytes);
    const uintptr_t address = (reinterpret_cast<uintptr_t>(block) + kSlack) & ~kSlack;
    auto* const encoder = ::new (reinterpret_cast<void*>(address)) JpegEncoder();
    encoder->m_ownBlock = own ? block : nullptr;
    initial.Memory = own ? nullptr : encoder + 1;
    encoder->m_packer = BitPacker::Create(initial);
    Pointer result(encoder);
    if (encoder->m_packer == nullptr)
        return nullptr;
    encoder->Keep(options);
    return result;
}

void JpegEncoder::Keep(const JPEGEncOptions& options) noexcept {
    m_comment = static_cast<const uint8_t*>(options.Comment);
    m_inputWidth = options.InputWidth;
    m_inputHeight = options.InputHeight;
    m_horzOffset = options.HorzOffset;
    m_vertOffset = options.VertOffset;
    m_quality = options.Quality;
    m_quantTable = options.QuantTable;
    m_colour = options.Colour;
    m_subsampling = options.Subsampling;
    m_modeTag = options.ModeTag;
    m_restartInterval = options.RestartInterval;
    m_interleaved = options.Interleaved;
    m_optimizeHuffman = options.OptimizeHuffman;
    m_jfifHeader = options.JFIFHeader;
    m_writeScan = jpeg::WriteScan;
    SetPlanes(static_cast<const uint8_t*>(options.PlaneY), static_cast<const uint8_t*>(options.PlaneU),
              static_cast<const uint8_t*>(options.PlaneV));
    SetComponents(options.EncodingWidth, options.EncodingHeight);
    SetStrides();
    BuildQuantTables();
    m_huffman[0] = jpeg::HuffmanSet(0);
    m_huffman[1] = jpeg::HuffmanSet(1);
}

void JpegEncoder::Release(JpegEncoder* encoder) noexcept {
    if (encoder == nullptr)
        return;
    BitPacker::Release(encoder->m_packer);
    ::operator delete(encoder->m_ownBlock);
}

// Of the first pixel to encode, from the start of a plane.
uint64_t JpegEncoder::PlaneOffset(uint32_t plane) const noexcept {
    if (plane == 0)
        return uint64_t{m_inputWidth} * m_vertOffset + m_horzOffset;
    return uint64_t{m_inputWidth / 2} * (Is422() ? m_vertOffset : m_vertOffset / 2) + m_horzOffset / 2;
}

void JpegEncoder::SetPlanes(const uint8_t* y, const uint8_t* u, const uint8_t* v) noexcept {
    m_givenPlanes[0] = y;
    m_givenPlanes[1] = u;
    m_givenPlanes[2] = v;
    PlacePlanes();
}

void JpegEncoder::PlacePlanes() noexcept {
    for (uint32_t i = 0; i < 3; ++i)
        m_planes[i] = Moved(m_givenPlanes[i], PlaneOffset(i));
}

void JpegEncoder::SetComponents(uint32_t width, uint32_t height) noexcept {
    for (uint32_t i = 0; i < 3; ++i) {
        m_components[i].width = i == 0 ? width : Half(width);
        m_components[i].height = i == 0 || Is422() ? height : Half(height);
    }
}

void JpegEncoder::SetStrides() noexcept {
    for (uint32_t i = 0; i < 3; ++i)
        m_components[i].stride = i == 0 ? m_inputWidth : Half(m_inputWidth);
}

void JpegEncoder::BuildQuantTables() noexcept {
    for (uint32_t set = 0; set < 2; ++set) {
        const jpeg::DivisorTable& base = set == 0 ? jpeg::LumaDivisors(m_quantTable) : jpeg::ChromaDivisors();
        for (size_t i = 0; i < 64; ++i) {
            const uint32_t divisor = std::clamp((base[i] * m_quality + 25) / 50, 2u, 255u);
            m_quant[set].divisors[i] = static_cast<uint8_t>(divisor);
            m_quant[set].reciprocals[i] = jpeg::Reciprocal(divisor);
        }
    }
}

Status JpegEncoder::SetInputSize(uint32_t width, uint32_t height) noexcept {
    if (width < m_components[0].width || width < m_horzOffset || height < m_components[0].height ||
        height < m_vertOffset || uint64_t{width} * height > UINT32_MAX)
        return Status::Failed;
    m_inputWidth = width;
    m_inputHeight = height;
    SetStrides();
    return Status::Ok;
}

Status JpegEncoder::SetOffsets(uint32_t horizontal, uint32_t vertical) noexcept {
    if (uint64_t{m_inputWidth} * vertical > UINT32_MAX)
        return Status::Failed;
    m_horzOffset = horizontal;
    m_vertOffset = vertical;
    PlacePlanes();
    return Status::Ok;
}

Status JpegEncoder::SetOptions(const JPEGEncRequest& request) noexcept {
    const auto first = static_cast<uint32_t>(request.Value0);
    const auto second = static_cast<uint32_t>(request.Value1);
    switch (request.Code) {
    case JPEGENC_CONTINUE:
        m_packer->Continue();
        return Status::Ok;
    case JPEGENC_PLANES:
        SetPlanes(Address(request.Value0), Address(request.Value1), Address(request.Value2));
        return Status::Ok;
    case JPEGENC_OUTPUT:
        static_cast<void>(m_packer->SetNewBuf(const_cast<uint8_t*>(Address(request.Value0)), second));
        return Status::Ok;
    case JPEGENC_FLUSH:
        m_packer->FlushPool();
        return Status::Ok;
    case JPEGENC_COMMENT:
        m_comment = Address(request.Value0);
        return Status::Ok;
    case JPEGENC_QUALITY:
        if (first > kMaxQuality)
            return Status::Failed;
        m_quality = first;
        BuildQuantTables();
        return Status::Ok;
    case JPEGENC_SUBSAMPLING:
        m_subsampling = first;
        return Status::Ok;
    case JPEGENC_COLOUR:
        m_colour = first;
        return Status::Ok;
    case JPEGENC_ENCODING_SIZE:
        if (first > kMaxSide || second > kMaxSide)
            return Status::Failed;
        SetComponents(first, second);
        return Status::Ok;
    case JPEGENC_INPUT_SIZE:
        return SetInputSize(first, second);
    case JPEGENC_OFFSETS:
        return SetOffsets(first, second);
    case JPEGENC_MODE_TAG:
        if (first > kMaxModeTag)
            return Status::Failed;
        m_modeTag = first;
        return Status::Ok;
    case JPEGENC_QUANT_TABLE:
        m_quantTable = first;
        BuildQuantTables();
        return Status::Ok;
    default:
        return Status::Failed;
    }
}

}    // namespace corvane
