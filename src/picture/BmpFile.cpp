#include "picture/BmpFile.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "base/Limits.h"
#include "corvane/corvane.h"

namespace corvane {

namespace {

constexpr uint32_t kFileHeaderBytes = 14;
constexpr uint32_t kOldHeaderBytes = 12;
constexpr uint32_t kInfoHeaderBytes = 40;
constexpr uint32_t kBmpHeaderBytes = kFileHeaderBytes + kInfoHeaderBytes;
constexpr uint32_t kMaskBytes = 16;
constexpr uint32_t kMaskHeaderBytes = 52;    // from this size on the masks are in the header itself
constexpr uint32_t kOs2HeaderBytes = 64;     // which has other fields in their place

enum Compression : uint32_t { kPlain = 0, kRle8 = 1, kRle4 = 2, kBitFields = 3, kAlphaBitFields = 6 };

// Little-endian reads; bytes after the end are 0.
class Bytes {
public:
    explicit Bytes(std::span<const uint8_t> bytes) : m_bytes(bytes) {}
    uint32_t Read(uint64_t at, uint32_t count) const {
        uint32_t value = 0;
        for (uint32_t i = 0; i < count && at + i < m_bytes.size(); ++i)
            value |= uint32_t{m_bytes[at + i]} << 8 * i;
        return value;
    }
    uint64_t Size() const { return m_bytes.size(); }
    std::span<const uint8_t> From(uint64_t at) const { return m_bytes.subspan(std::min<uint64_t>(at, Size())); }

private:
    std::span<const uint8_t> m_bytes;
};

// A contiguous field of a pixel, scaled to 8 bits.
class Field {
public:
    Field() = default;
    explicit Field(uint32_t mask)
        : m_mask(mask), m_shift(mask == 0 ? 0 : static_cast<uint32_t>(std::countr_zero(mask))) {}
    uint32_t Of(uint32_t pixel) const {
        const uint32_t value = (pixel & m_mask) >> m_shift;
        const uint32_t most = m_mask >> m_shift;
        return most == 255 || most == 0 ? value : static_cast<uint32_t>((value * uint64_t{255} + most / 2) / most);
    }

private:
    uint32_t m_mask = 0;
    uint32_t m_shift = 0;
};

struct Layout {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bits = 0;
    uint32_t compression = kPlain;
    bool topDown = false;
    Field red, green, blue;
    uint32_t palette[256] = {};    // 0x00RRGGBB, black where the file has none
    std::span<const uint8_t> pixels;

    uint32_t* Row(const PictureView& to, uint64_t row) const {
        const uint64_t y = topDown ? row : height - 1 - row;
        return reinterpret_cast<uint32_t*>(to.Row(static_cast<int64_t>(y)));
    }
};

bool Readable(const Layout& layout, uint32_t headerBytes) {
    switch (layout.compression) {
    case kPlain:
        return layout.bits == 1 || layout.bits == 4 || layout.bits == 8 || layout.bits == 16 || layout.bits == 24 ||
               layout.bits == 32;
    case kRle8:
        return layout.bits == 8;
    case kRle4:
        return layout.bits == 4;
    case kBitFields:
    case kAlphaBitFields:
        return headerBytes != kOs2HeaderBytes && (layout.bits == 16 || layout.bits == 32);
    default:
        return false;
    }
}

// Sizes and kind. False where the file cannot be read.
bool ReadSizes(const Bytes& file, uint32_t headerBytes, Layout& layout) {
    int64_t width;
    int64_t height;
    if (headerBytes == kOldHeaderBytes) {
        width = file.Read(18, 2);
        height = file.Read(20, 2);
        layout.bits = file.Read(24, 2);
    } else {
        width = static_cast<int32_t>(file.Read(18, 4));
        height = static_cast<int32_t>(file.Read(22, 4));
        layout.bits = file.Read(28, 2);
        layout.compression = file.Read(30, 4);
    }
    layout.topDown = height < 0;
    height = std::abs(height);
    if (width <= 0 || !limits::FitsPicture(static_cast<uint64_t>(width), static_cast<uint64_t>(height)))
        return false;
    layout.width = static_cast<uint32_t>(width);
    layout.height = static_cast<uint32_t>(height);
    return Readable(layout, headerBytes);
}

// Masks, palette and where the pixels begin.
void ReadTables(const Bytes& file, uint32_t headerBytes, Layout& layout) {
    uint64_t at = kFileHeaderBytes + uint64_t{headerBytes};
    const bool masks = layout.compression == kBitFields || layout.compression == kAlphaBitFields;
    if (masks) {
        const uint64_t from = kFileHeaderBytes + kInfoHeaderBytes;
        layout.red = Field(file.Read(from, 4));
        layout.green = Field(file.Read(from + 4, 4));
        layout.blue = Field(file.Read(from + 8, 4));
        if (headerBytes < kMaskHeaderBytes)
            at = from + (layout.compression == kBitFields ? 12 : 16);
    } else if (layout.bits == 16) {
        layout.red = Field(0x7C00);
        layout.green = Field(0x03E0);
        layout.blue = Field(0x001F);
    } else {
        layout.red = Field(0xFF0000);
        layout.green = Field(0x00FF00);
        layout.blue = Field(0x0000FF);
    }
    const bool old = headerBytes == kOldHeaderBytes;
    const uint32_t entryBytes = old ? 3 : 4;
    const uint32_t most = layout.bits <= 8 ? 1u << layout.bits : 0;
    const uint32_t stated = old ? 0 : file.Read(46, 4);
    const uint64_t entries = stated == 0 ? most : stated;
    uint64_t pixelsAt = file.Read(10, 4);
    if (pixelsAt < at)    // not stated
        pixelsAt = at + entries * entryBytes;
    for (uint64_t i = 0; i < std::min<uint64_t>(entries, most) && at + entryBytes <= pixelsAt; ++i, at += entryBytes)
        layout.palette[i] = file.Read(at, 3);
    layout.pixels = file.From(pixelsAt);
}

// Pixel `x` of a row of 1, 4 or 8 bits a pixel.
uint32_t IndexAt(const uint8_t* row, uint32_t x, uint32_t bits) {
    const uint32_t bit = x * bits;
    return row[bit / 8] >> (8 - bits - bit % 8) & ((1u << bits) - 1);
}

// Rows of whole double words. Pixels that the file does not reach stay black.
void ReadRows(const Layout& layout, const PictureView& to) {
    const uint64_t rowBytes = (uint64_t{layout.width} * layout.bits + 31) / 32 * 4;
    for (uint64_t row = 0; row < layout.height && row * rowBytes < layout.pixels.size(); ++row) {
        const std::span<const uint8_t> bytes = layout.pixels.subspan(row * rowBytes);
        const auto width = static_cast<uint32_t>(std::min<uint64_t>(layout.width, bytes.size() * 8 / layout.bits));
        uint32_t* const out = layout.Row(to, row);
        for (uint32_t x = 0; x < width; ++x) {
            if (layout.bits <= 8) {
                out[x] = layout.palette[IndexAt(bytes.data(), x, layout.bits)];
                continue;
            }
            uint32_t pixel = 0;
            std::memcpy(&pixel, bytes.data() + size_t{x} * (layout.bits / 8), layout.bits / 8);
            out[x] = layout.red.Of(pixel) << 16 | layout.green.Of(pixel) << 8 | layout.blue.Of(pixel);
        }
    }
}

// Runs of 4 or 8 bit pixels. Pixels that no run reaches stay black; pixels outside the picture are dropped.
class RunReader {
public:
    RunReader(const Layout& layout, const PictureView& to) : m_layout(layout), m_to(to), m_rest(layout.pixels) {}

    void Read() {
        while (m_y < m_layout.height && m_rest.size() >= 2) {
            const uint32_t count = m_rest[0];
            const uint32_t code = m_rest[1];
            m_rest = m_rest.subspan(2);
            if (count > 0) {
                for (uint32_t i = 0; i < count; ++i)
                    Put(m_layout.bits == 8 ? code : code >> (i % 2 == 0 ? 4 : 0) & 15);
            } else if (!Escape(code)) {
                return;
            }
        }
    }

private:
    // False at the end of the picture.
    bool Escape(uint32_t code) {
        switch (code) {
        case 0:
            m_x = 0;
            ++m_y;
            return true;
        case 1:
            return false;
        case 2:
            if (m_rest.size() < 2)
                return false;
            m_x += m_rest[0];
            m_y += m_rest[1];
            m_rest = m_rest.subspan(2);
            return true;
        default:
            Literal(code);
            return true;
        }
    }

    // `count` pixels as they are, on an even number of bytes.
    void Literal(uint32_t count) {
        const uint32_t bits = m_layout.bits;
        for (uint32_t i = 0; i < count && size_t{i} * bits / 8 < m_rest.size(); ++i)
            Put(IndexAt(m_rest.data(), i, bits));
        m_rest = m_rest.subspan(std::min<size_t>(m_rest.size(), (size_t{count} * bits + 15) / 16 * 2));
    }

    void Put(uint32_t index) {
        if (m_x < m_layout.width)
            m_layout.Row(m_to, m_y)[m_x] = m_layout.palette[index];
        ++m_x;
    }

    const Layout& m_layout;
    const PictureView& m_to;
    std::span<const uint8_t> m_rest;
    uint64_t m_x = 0;
    uint64_t m_y = 0;    // rows of the file
};

}    // namespace

Status ReadBmp(std::span<const uint8_t> bytes, Raster& out) {
    const Bytes file(bytes);
    const uint32_t headerBytes = file.Read(kFileHeaderBytes, 4);
    if (file.Read(0, 2) != 0x4D42 || (headerBytes != kOldHeaderBytes && headerBytes < kInfoHeaderBytes) ||
        kFileHeaderBytes + uint64_t{headerBytes} > file.Size())
        return Status::Failed;
    Layout layout;
    if (!ReadSizes(file, headerBytes, layout))
        return Status::Failed;
    ReadTables(file, headerBytes, layout);
    if (layout.pixels.empty())
        return Status::Failed;
    Raster picture;
    if (!picture.Resize(layout.width, layout.height))
        return Status::OutOfMemory;
    if (layout.compression == kRle8 || layout.compression == kRle4)
        RunReader(layout, picture.View()).Read();
    else
        ReadRows(layout, picture.View());
    out = std::move(picture);
    return Status::Ok;
}

uint64_t BmpBytes(uint32_t width, uint32_t height) {
    return kBmpHeaderBytes + uint64_t{width} * height * 4;
}

uint32_t BmpHeaderBytes(uint32_t format) {
    return format == PF_RGB555 || format == PF_RGB565 ? kBmpHeaderBytes + kMaskBytes : kBmpHeaderBytes;
}

void WriteBmpHeader(uint32_t format, uint32_t width, uint32_t height, uint32_t image, uint8_t* out) {
    const uint32_t header = BmpHeaderBytes(format);
    const bool masks = header != kBmpHeaderBytes;
    const uint32_t bits = masks ? 16 : format == PF_BGR24_FLIP ? 24 : 32;
    std::memset(out, 0, header);
    const auto put = [&](size_t at, uint32_t value) { std::memcpy(out + at, &value, 4); };
    put(0, 0x4D42);
    put(2, header + image);
    put(10, header);
    put(14, header - kFileHeaderBytes);
    put(18, width);
    put(22, masks ? 0 - height : height);    // negative: the first row is the top
    put(26, 1 | bits << 16);                 // one plane
    put(30, masks ? kBitFields : kPlain);
    put(34, image);
    if (masks) {
        put(54, format == PF_RGB565 ? 0xF800 : 0x7C00);
        put(58, format == PF_RGB565 ? 0x7E0 : 0x3E0);
        put(62, 0x1F);
    }
}

void WriteBmp(const ConstPictureView& picture, uint8_t* out) {
    const auto [width, height] = picture.size;
    WriteBmpHeader(PF_BGRA32_FLIP, width, height, width * height * 4, out);
    out += kBmpHeaderBytes;
    for (uint32_t row = 0; row < height; ++row) {
        const uint8_t* from = picture.Row(height - 1 - row);
        for (uint32_t x = 0; x < width; ++x, from += 4, out += 4) {
            uint32_t pixel;
            std::memcpy(&pixel, from, 4);
            pixel &= 0xFFFFFFu;
            std::memcpy(out, &pixel, 4);
        }
    }
}

}    // namespace corvane
