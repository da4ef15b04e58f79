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

// The base of all makers: the lent buffer and the output.
class PictureMaker : public IPictureMaker {
public:
    explicit PictureMaker(uint32_t format) : m_format(format) {}

    Status GetBuffer(PictureSize size, PictureView& out) override {
        if (!m_input || size != m_size) {
            const uint64_t bytes = PictureBytes(m_format, size.width, size.height);
            if (bytes == 0)
                return Status::Failed;
            AlignedBuffer next;
            if (!next.Allocate(bytes, AlignedBuffer::Use::Brief))
                return Status::OutOfMemory;
            m_input = std::move(next);
            m_size = size;
        }
        out = Input();
        return Status::Ok;
    }
    bool TakesOverlay() const override { return m_format == PF_I420 || m_format == PF_BGR24_FLIP; }
    void NormaliseColours(const ColourSignal&) override {}
    void SetQuality(uint32_t) override {}
    void SetPrefix(uint32_t bytes) override { m_prefix = bytes; }
    const uint8_t* GetData() const override { return m_output.Data(); }
    uint32_t GetSize() const override { return static_cast<uint32_t>(m_output.Size()); }
    uint32_t GetWidth() const override { return m_size.width; }
    uint32_t GetHeight() const override { return m_size.height; }
    Status Make() override {
        uint8_t* const out = Output(FixedSize());
        if (out == nullptr)
            return Status::OutOfMemory;
        MakeInto(out);
        return Status::Ok;
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
    PictureView Input() const { return LayOut(m_input.Data(), RowBytes(m_format, m_size.width), m_size, m_format); }

    const uint32_t m_format;    // of the input in memory
    AlignedBuffer m_input;
    AlignedBuffer m_output;
    PictureSize m_size;    // of the input
    uint32_t m_prefix = 0;
};

class CPictureMakerBMP final : public PictureMaker {
public:
    using PictureMaker::PictureMaker;
    uint32_t FixedSize() const override { return BmpHeaderBytes(m_format) + ImageBytes(); }
    void MakeInto(uint8_t* to) const override {
        const uint32_t image = ImageBytes();
        WriteBmpHeader(m_format, m_size.width, m_size.height, image, to);
        std::memcpy(to + BmpHeaderBytes(m_format), m_input.Data(), image);
    }

private:
    uint32_t ImageBytes() const { return static_cast<uint32_t>(PictureBytes(m_format, m_size.width, m_size.height)); }
};

class CPictureMakerRaw final : public PictureMaker {
public:
    using PictureMaker::PictureMaker;
    uint32_t FixedSize() const override {
        const uint32_t pixels = m_size.width * m_size.height;
        return Input().PlaneCount() > 1 ? pixels / 2 * 3 + pixels % 2 : pixels * PixelBytes(m_format);
    }
    void MakeInto(uint8_t* to) const override {
        const uint8_t* const end = to + FixedSize();
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
    CPictureMakerJPEG() : PictureMaker(PF_I420) {}
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
    uint32_t FixedSize() const override { return 0; }
    void MakeInto(uint8_t*) const override {}

private:
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
