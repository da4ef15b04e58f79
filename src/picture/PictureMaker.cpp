#include "picture/PictureMaker.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/AlignedBuffer.h"
#include "base/Status.h"
#include "corvane/corvane.h"
#include "filters/FilterChain.h"
#include "kernels/FullRangeBt601.h"
#include "picture/BmpFile.h"
#include "picture/jpeg/JpegPicture.h"

namespace corvane {

namespace {

// The base of all makers: the lent buffer and the output.
class PictureMaker : public IPictureMaker {
public:
    explicit PictureMaker(uint32_t format) : m_format(format) {}

    int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride, uint32_t* format) override {
        if (!m_input || width != m_width || height != m_height) {
            const uint64_t bytes = PictureBytes(m_format, width, height);
            if (bytes == 0)
                return -1;
            AlignedBuffer next;
            if (!next.Allocate(bytes, AlignedBuffer::Use::Brief))
                return static_cast<int32_t>(Status::OutOfMemory);
            m_input = std::move(next);
            m_stride = RowBytes(m_format, width);
            m_width = width;
            m_height = height;
        }
        *buffer = m_input.Data();
        *stride = m_stride;
        *format = m_format;
        return 0;
    }
    void NormaliseColours(const ColourSignal&) override {}
    void SetQuality(uint32_t) override {}
    void SetPrefix(uint32_t bytes) override { m_prefix = bytes; }
    const uint8_t* GetData() const override { return m_output.Data(); }
    uint32_t GetSize() const override { return static_cast<uint32_t>(m_output.Size()); }
    uint32_t GetWidth() const override { return m_width; }
    uint32_t GetHeight() const override { return m_height; }
    void Make() override {
        if (uint8_t* const out = Output(FixedSize()); out != nullptr)
            MakeInto(out);
    }

protected:
    // Memory for an output of `size` bytes after the prefix. Null without memory; the old output is then unchanged.
    uint8_t* Output(uint64_t size) {
        const uint64_t whole = m_prefix + size;
        if (!m_output || m_output.Size() != whole) {
            AlignedBuffer next;
            if (whole > UINT32_MAX || !next.Allocate(whole))
                return nullptr;
            m_output = std::move(next);
        }
        return m_output.Data() + m_prefix;
    }
    const uint32_t m_format;
    AlignedBuffer m_input;
    AlignedBuffer m_output;
    uint32_t m_stride = 0;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_prefix = 0;
};

class CPictureMakerBMP final : public PictureMaker {
public:
    using PictureMaker::PictureMaker;
    uint32_t FixedSize() const override { return BmpHeaderBytes(m_format) + m_stride * m_height; }
    void MakeInto(uint8_t* to) const override {
        const uint32_t image = m_stride * m_height;
        WriteBmpHeader(m_format, m_width, m_height, image, to);
        std::memcpy(to + BmpHeaderBytes(m_format), m_input.Data(), image);
    }
};

class CPictureMakerRaw final : public PictureMaker {
public:
    using PictureMaker::PictureMaker;
    uint32_t FixedSize() const override {
        const uint32_t pixels = m_width * m_height;
        return Planar() ? pixels / 2 * 3 + pixels % 2 : pixels * PixelBytes();
    }
    void MakeInto(uint8_t* to) const override {
        const uint8_t* const end = to + FixedSize();
        const uint8_t* const chroma = m_input.Data() + size_t{m_stride} * m_height;
        if (m_format == PF_NV12) {
            to = Pack(to, m_input.Data(), m_stride, m_width, m_height * 3 / 2);
        } else if (Planar()) {    // the order of the planes is that of the buffer
            to = Pack(to, m_input.Data(), m_stride, m_width, m_height);
            to = Pack(to, chroma, m_stride / 2, m_width / 2, m_height / 2);
            to = Pack(to, chroma + size_t{m_stride} * m_height / 4, m_stride / 2, m_width / 2, m_height / 2);
        } else {
            to = Pack(to, m_input.Data(), m_stride, size_t{m_width} * PixelBytes(), m_height);
        }
        std::memset(to, 0, static_cast<size_t>(end - to));    // bytes that planes of odd sizes do not fill
    }

private:
    bool Planar() const { return m_format == PF_I420 || m_format == PF_YV12 || m_format == PF_NV12; }
    uint32_t PixelBytes() const {
        switch (m_format) {
        case PF_BGR24:
        case PF_RGB24:
            return 3;
        case PF_BGRA32:
        case PF_RGBA32:
            return 4;
        default:
            return 2;
        }
    }
    static uint8_t* Pack(uint8_t* to, const uint8_t* from, size_t step, size_t bytes, uint32_t rows) {
        if (step == bytes) {
            std::memcpy(to, from, bytes * rows);
            return to + bytes * rows;
        }
        for (; rows > 0; --rows, to += bytes, from += step)
            std::memcpy(to, from, bytes);
        return to;
    }
};

class CPictureMakerJPEG final : public PictureMaker {
public:
    CPictureMakerJPEG() : PictureMaker(PF_I420) {}
    void NormaliseColours(const ColourSignal& from) override {
        const PictureView view = LayOut(m_input.Data(), m_stride, {m_width, m_height}, m_format);
        kernels::ToFullRangeBt601(
            {view.plane[0], view.plane[1], view.plane[2], view.stride[0], view.stride[1], m_width, m_height}, from);
    }
    void SetQuality(uint32_t quality) override { m_quality = quality; }
    void Make() override {
        JpegWriter writer;
        const uint64_t capacity = JpegPictureCapacity(m_width, m_height);
        if (!writer.Prepare({m_input.Data(), m_stride, m_width, m_height}, m_quality))
            return;
        if (uint8_t* const out = Output(capacity); out != nullptr)
            m_size = m_prefix + writer.Write(out, capacity);
    }
    uint32_t GetSize() const override { return m_size; }
    uint32_t FixedSize() const override { return 0; }
    void MakeInto(uint8_t*) const override {}

private:
    uint32_t m_quality = 0;
    uint32_t m_size = 0;    // of the last output with its prefix; the prefix alone after a failure
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

PictureMakerPtr MakePicture(uint32_t number) {
    const auto* const wanted = std::ranges::find(kStillFormats, number, &StillFormat::number);
    if (wanted == std::ranges::end(kStillFormats))
        return nullptr;
    switch (wanted->kind) {
    case Kind::Raw:
        return std::make_shared<CPictureMakerRaw>(wanted->input);
    case Kind::Bmp:
        return std::make_shared<CPictureMakerBMP>(wanted->input);
    case Kind::Jpeg:
        break;
    }
    return std::make_shared<CPictureMakerJPEG>();
}

}    // namespace corvane
