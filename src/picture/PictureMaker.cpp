#include "picture/PictureMaker.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/AlignedBuffer.h"
#include "base/PictureLayout.h"
#include "kernels/FullRangeBt601.h"
#include "picture/BmpFile.h"
#include "picture/jpeg/JpegPicture.h"

namespace corvane {

namespace {

bool IsPlanar(uint32_t format) {
    return format == PF_I420 || format == PF_YV12 || format == PF_NV12;
}

// The base of all makers: the lent buffer and the output. Where the pixels of the output lie as those of the buffer do,
// the buffer is a part of the output; its first byte is aligned, so that of the output need not be.
class PictureMaker : public IPictureMaker {
public:
    PictureMaker(uint32_t format, AlignedBuffer::Use use) : m_format(format), m_use(use) {}

    Status GetBuffer(PictureSize size, PictureView& out) override {
        const uint64_t bytes = PictureBytes(m_format, size.width, size.height);
        if (bytes == 0)
            return Status::Failed;
        if (!m_input || size != m_size || m_prefix != m_nextPrefix) {
            const uint64_t lead = IsInPlace(size) ? uint64_t{m_nextPrefix} + HeaderBytes() : 0;
            const uint64_t start = (lead + kAlignment - 1) / kAlignment * kAlignment;
            AlignedBuffer next;
            if (lead + bytes > UINT32_MAX || !next.Allocate(start + bytes, m_use))
                return Status::OutOfMemory;
            m_input = std::move(next);
            m_output.Free();
            m_start = start;
            m_prefix = m_nextPrefix;
            m_size = size;
            m_made = false;
        }
        out = Input();
        return Status::Ok;
    }
    bool TakesOverlay() const override { return m_format == PF_I420 || m_format == PF_BGR24_FLIP; }
    void NormaliseColours(const ColourSignal&) override {}
    void SetQuality(uint32_t) override {}
    void SetPrefix(uint32_t bytes) override { m_nextPrefix = bytes; }
    const uint8_t* GetData() const override {
        return m_made && IsInPlace(m_size) ? m_input.Data() + m_start - HeaderBytes() - m_prefix : m_output.Data();
    }
    uint32_t GetSize() const override {
        return m_made && IsInPlace(m_size) ? m_prefix + FixedSize(m_size) : static_cast<uint32_t>(m_output.Size());
    }
    uint32_t GetWidth() const override { return m_size.width; }
    uint32_t GetHeight() const override { return m_size.height; }
    Status Make() override {
        if (IsInPlace(m_size)) {
            WriteHeader(m_size, m_input.Data() + m_start - HeaderBytes());
        } else if (uint8_t* const out = Output(FixedSize(m_size)); out != nullptr) {
            MakeInto(out);
        } else {
            return Status::OutOfMemory;
        }
        m_made = true;
        return Status::Ok;
    }
    uint64_t MostBytes(PictureSize size) const override { return FixedSize(size); }
    PictureView Over(PictureSize size, uint8_t* to) const override {
        const uint32_t row = IsPlanar(m_format) ? size.width : size.width * PixelBytes(m_format);
        if (!IsInPlace(size) || RowBytes(m_format, size.width) != row)    // nobody would write the padding
            return {};
        std::memset(to, 0, m_nextPrefix);
        WriteHeader(size, to + m_nextPrefix);
        return LayOut(to + m_nextPrefix + HeaderBytes(), RowBytes(m_format, size.width), size, m_format);
    }

protected:
    static constexpr uint64_t kAlignment = 64;

    // Whether the output, after its header, is the picture as it lies in the buffer.
    virtual bool IsInPlace(PictureSize size) const = 0;
    virtual uint32_t HeaderBytes() const { return 0; }
    virtual void WriteHeader(PictureSize, uint8_t*) const {}

    // Memory for an output of `size` bytes after the prefix. Null without memory; the old output is then unchanged.
    uint8_t* Output(uint64_t size) {
        const uint64_t whole = uint64_t{m_prefix} + size;
        if (!m_output || m_output.Size() != whole) {
            AlignedBuffer next;
            if (whole > UINT32_MAX || !next.Allocate(whole))
                return nullptr;
            m_output = std::move(next);
        }
        return m_output.Data() + m_prefix;
    }
    PictureView Input() const {
        return LayOut(m_input.Data() + m_start, RowBytes(m_format, m_size.width), m_size, m_format);
    }
    uint32_t InputBytes(PictureSize size) const {
        return static_cast<uint32_t>(PictureBytes(m_format, size.width, size.height));
    }

    const uint32_t m_format;    // of the input in memory
    const AlignedBuffer::Use m_use;
    AlignedBuffer m_input;
    AlignedBuffer m_output;    // not used in place
    uint64_t m_start = 0;      // of the picture in m_input
    PictureSize m_size;        // of the input
    uint32_t m_prefix = 0;     // of the last GetBuffer
    uint32_t m_nextPrefix = 0;
    bool m_made = false;
};

class CPictureMakerBMP final : public PictureMaker {
public:
    using PictureMaker::PictureMaker;
    uint32_t FixedSize(PictureSize size) const override { return HeaderBytes() + InputBytes(size); }
    void MakeInto(uint8_t* to) const override {
        WriteHeader(m_size, to);
        std::memcpy(to + HeaderBytes(), m_input.Data() + m_start, InputBytes(m_size));
    }

private:
    bool IsInPlace(PictureSize) const override { return true; }
    uint32_t HeaderBytes() const override { return BmpHeaderBytes(m_format); }
    void WriteHeader(PictureSize size, uint8_t* to) const override {
        WriteBmpHeader(m_format, size.width, size.height, InputBytes(size), to);
    }
};

class CPictureMakerRaw final : public PictureMaker {
public:
    using PictureMaker::PictureMaker;
    uint32_t FixedSize(PictureSize size) const override {
        const uint32_t pixels = size.width * size.height;
        return IsPlanar(m_format) ? pixels / 2 * 3 + pixels % 2 : pixels * PixelBytes(m_format);
    }
    void MakeInto(uint8_t* to) const override {
        const uint8_t* const end = to + FixedSize(m_size);
        const auto [width, height] = m_size;
        const PictureView input = Input();
        to = Pack(to, input, 0, size_t{width} * input.PixelBytes(), height);
        if (input.TwoPlanes())
            to = Pack(to, input, 1, width, height / 2);
        const bool vFirst = m_format == PF_YV12;
        for (int i = 1; i < 3 && input.ThreePlanes(); ++i)
            to = Pack(to, input, vFirst ? 3 - i : i, width / 2, height / 2);
        std::memset(to, 0, static_cast<size_t>(end - to));    // bytes that planes of odd sizes do not fill
    }

private:
    // Rows without padding, and planes of even sizes, have the same bytes in the buffer.
    bool IsInPlace(PictureSize size) const override {
        return FixedSize(size) == PictureBytes(m_format, size.width, size.height) &&
               (!IsPlanar(m_format) || (size.width % 2 == 0 && size.height % 2 == 0));
    }
    // `rows` of `bytes` of a plane, without padding. Returns the end.
    static uint8_t* Pack(uint8_t* to, const PictureView& input, int plane, size_t bytes, uint32_t rows) {
        const uint8_t* from = input.plane[plane];
        const ptrdiff_t stride = input.stride[plane];
        if (stride == static_cast<ptrdiff_t>(bytes)) {
            std::memcpy(to, from, bytes * rows);
            return to + bytes * rows;
        }
        for (; rows > 0; --rows, to += bytes, from += stride)
            std::memcpy(to, from, bytes);
        return to;
    }
};

class CPictureMakerJPEG final : public PictureMaker {
public:
    explicit CPictureMakerJPEG(AlignedBuffer::Use use) : PictureMaker(PF_I420, use) {}
    void NormaliseColours(const ColourSignal& from) override {
        PictureView picture = Input();
        picture.colours = from;
        kernels::ToFullRangeBt601(picture);
    }
    void SetQuality(uint32_t quality) override { m_quality = quality; }
    Status Make() override {
        JpegWriter writer;
        const uint64_t capacity = JpegPictureCapacity(m_size);
        uint8_t* const out = writer.Prepare(Input(), m_quality) ? Output(capacity) : nullptr;
        if (out == nullptr)
            return Status::OutOfMemory;
        m_outputBytes = m_prefix + writer.Write(out, capacity);
        return Status::Ok;
    }
    uint32_t GetSize() const override { return m_outputBytes; }
    uint32_t FixedSize(PictureSize) const override { return 0; }
    uint64_t MostBytes(PictureSize size) const override { return JpegPictureMost(size); }
    void MakeInto(uint8_t*) const override {}

private:
    bool IsInPlace(PictureSize) const override { return false; }

    uint32_t m_quality = 0;
    uint32_t m_outputBytes =
        0;    // bytes of the last output with its prefix; those of the prefix alone after a failure
};

enum class Kind : uint8_t { Raw, Bmp, Jpeg };
struct StillFormat {
    uint32_t number;    // of CORVANE_PICTURE_*
    Kind kind;
    uint32_t input;    // PF_* of the lent buffer
};
constexpr StillFormat kStillFormats[] = {
    {CORVANE_PICTURE_YUY2, Kind::Raw, PF_YUY2},
    {CORVANE_PICTURE_RGB565, Kind::Raw, PF_RGB565},
    {CORVANE_PICTURE_BGR24, Kind::Raw, PF_BGR24},
    {CORVANE_PICTURE_BGRA32, Kind::Raw, PF_BGRA32},
    {CORVANE_PICTURE_BMP_RGB565, Kind::Bmp, PF_RGB565},
    {CORVANE_PICTURE_BMP_BGR24, Kind::Bmp, PF_BGR24_FLIP},
    {CORVANE_PICTURE_BMP_BGRA32, Kind::Bmp, PF_BGRA32_FLIP},
    {CORVANE_PICTURE_JPEG, Kind::Jpeg, PF_I420},
    {CORVANE_PICTURE_RGB555, Kind::Raw, PF_RGB555},
    {CORVANE_PICTURE_BMP_RGB555, Kind::Bmp, PF_RGB555},
    {CORVANE_PICTURE_I420, Kind::Raw, PF_I420},
    {CORVANE_PICTURE_BGR565, Kind::Raw, PF_BGR565},
    {CORVANE_PICTURE_RGB24, Kind::Raw, PF_RGB24},
    {CORVANE_PICTURE_RGBA32, Kind::Raw, PF_RGBA32},
    {CORVANE_PICTURE_BGR555, Kind::Raw, PF_BGR555},
    {CORVANE_PICTURE_YV12, Kind::Raw, PF_YV12},
    {CORVANE_PICTURE_UYVY, Kind::Raw, PF_UYVY},
    {CORVANE_PICTURE_NV12, Kind::Raw, PF_NV12},
};

}    // namespace

PictureMakerPtr MakePicture(uint32_t number, AlignedBuffer::Use use) {
    const auto* const wanted = std::ranges::find(kStillFormats, number, &StillFormat::number);
    if (wanted == std::ranges::end(kStillFormats))
        return nullptr;
    switch (wanted->kind) {
    case Kind::Raw:
        return std::make_shared<CPictureMakerRaw>(wanted->input, use);
    case Kind::Bmp:
        return std::make_shared<CPictureMakerBMP>(wanted->input, use);
    case Kind::Jpeg:
        break;
    }
    return std::make_shared<CPictureMakerJPEG>(use);
}

}    // namespace corvane
