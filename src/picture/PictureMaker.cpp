#include "picture/PictureMaker.h"

#include <array>
#include <cstring>
#include <utility>

#include "base/AlignedBuffer.h"
#include "base/Status.h"
#include "corvane/corvane.h"
#include "filters/FilterChain.h"
#include "picture/BmpFile.h"
#include "picture/JpegPicture.h"

namespace corvane {

namespace {

// What the kinds of makers share: the lent buffer and the output.
class PictureMaker : public IPictureMaker {
public:
    explicit PictureMaker(uint32_t format) : m_format(format) {}

    int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride, uint32_t* format) override {
        if (!m_input || width != m_width || height != m_height) {
            const uint64_t bytes = PictureBytes(m_format, width, height);
            if (bytes == 0)
                return -1;
            AlignedBuffer next;
            if (!next.Allocate(bytes))
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
    void SetQuality(uint32_t) override {}
    void SetPrefix(uint32_t bytes) override { m_prefix = bytes; }
    const uint8_t* GetData() const override { return m_output.Data(); }
    uint32_t GetSize() const override { return static_cast<uint32_t>(m_output.Size()); }
    uint32_t GetWidth() const override { return m_width; }
    uint32_t GetHeight() const override { return m_height; }

protected:
    // The output of `size` bytes behind the prefix; null where there is no memory, and the old output then stays.
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
    const uint8_t* Row(uint32_t row) const { return m_input.Data() + size_t{m_stride} * row; }

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
    void Make() override {
        const uint32_t header = BmpHeaderBytes(m_format);
        const uint32_t image = m_stride * m_height;
        uint8_t* const out = Output(uint64_t{header} + image);
        if (out == nullptr)
            return;
        WriteBmpHeader(m_format, m_width, m_height, image, out);
        std::memcpy(out + header, m_input.Data(), image);
    }
};

class CPictureMakerRaw final : public PictureMaker {
public:
    using PictureMaker::PictureMaker;
    void Make() override {
        const size_t pixels = size_t{m_width} * m_height;
        switch (m_format) {
        case PF_I420:
        case PF_YV12:
            PackPlanar(Output(pixels * 3 / 2));
            break;
        case PF_NV12:
            PackRows(Output(pixels * 3 / 2), m_width, m_height * 3 / 2);
            break;
        case PF_BGR24:
        case PF_RGB24:
            PackRows(Output(3 * pixels), 3 * m_width, m_height);
            break;
        case PF_BGRA32:
        case PF_RGBA32:
            PackRows(Output(4 * pixels), 4 * m_width, m_height);
            break;
        default:
            PackRows(Output(2 * pixels), 2 * m_width, m_height);
        }
    }

private:
    static uint8_t* Pack(uint8_t* to, const uint8_t* from, size_t step, size_t bytes, uint32_t rows) {
        for (; rows > 0; --rows, to += bytes, from += step)
            std::memcpy(to, from, bytes);
        return to;
    }
    void PackRows(uint8_t* to, uint32_t bytes, uint32_t rows) const {
        if (to != nullptr)
            Pack(to, m_input.Data(), m_stride, bytes, rows);
    }
    // The planes stay in the order that they have in memory.
    void PackPlanar(uint8_t* to) const {
        if (to == nullptr)
            return;
        const size_t luma = size_t{m_stride} * m_height;
        to = Pack(to, m_input.Data(), m_stride, m_width, m_height);
        to = Pack(to, m_input.Data() + luma, m_stride / 2, m_width / 2, m_height / 2);
        Pack(to, m_input.Data() + luma + luma / 4, m_stride / 2, m_width / 2, m_height / 2);
    }
};

class CPictureMakerJPEG final : public PictureMaker {
public:
    CPictureMakerJPEG() : PictureMaker(PF_I420) {}
    void SetQuality(uint32_t quality) override { m_quality = quality; }
    void Make() override {
        const uint64_t capacity = JpegPictureCapacity(m_width, m_height);
        uint8_t* const out = Output(capacity);
        if (out == nullptr)
            return;
        const JpegPicture picture{m_input.Data(), m_stride, m_width, m_height};
        m_encoded = WriteJpegPicture(picture, m_quality, out, capacity);
    }
    uint32_t GetSize() const override { return m_output ? m_prefix + m_encoded : 0; }

private:
    uint32_t m_quality = 0;
    uint32_t m_encoded = 0;    // bytes of the last output, 0 where it failed
};

enum class Kind : uint8_t { Raw, Bmp, Jpeg };
struct PublicFormat {
    Kind kind;
    uint32_t format;
};
constexpr std::array<PublicFormat, 18> kPublicFormats{{{Kind::Raw, PF_YUY2},
                                                       {Kind::Raw, PF_RGB565},
                                                       {Kind::Raw, PF_BGR24},
                                                       {Kind::Raw, PF_BGRA32},
                                                       {Kind::Bmp, PF_RGB565},
                                                       {Kind::Bmp, PF_BGR24_FLIP},
                                                       {Kind::Bmp, PF_BGRA32_FLIP},
                                                       {Kind::Jpeg, PF_I420},
                                                       {Kind::Raw, PF_RGB555},
                                                       {Kind::Bmp, PF_RGB555},
                                                       {Kind::Raw, PF_I420},
                                                       {Kind::Raw, PF_BGR565},
                                                       {Kind::Raw, PF_RGB24},
                                                       {Kind::Raw, PF_RGBA32},
                                                       {Kind::Raw, PF_BGR555},
                                                       {Kind::Raw, PF_YV12},
                                                       {Kind::Raw, PF_UYVY},
                                                       {Kind::Raw, PF_NV12}}};

}    // namespace

PictureMakerPtr MakePicture(uint32_t number) {
    if (number < 1 || number > kPublicFormats.size())
        return nullptr;
    const PublicFormat& wanted = kPublicFormats[number - 1];
    switch (wanted.kind) {
    case Kind::Raw:
        return std::make_shared<CPictureMakerRaw>(wanted.format);
    case Kind::Bmp:
        return std::make_shared<CPictureMakerBMP>(wanted.format);
    case Kind::Jpeg:
        break;
    }
    return std::make_shared<CPictureMakerJPEG>();
}

}    // namespace corvane
