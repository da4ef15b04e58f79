#include "decoders/PlaceholderDecoder.h"

#include <cstddef>
#include <cstring>
#include <new>

#include "base/Limits.h"
#include "base/Status.h"

namespace corvane {

DecoderIsolated_SDK_DMYV::DecoderIsolated_SDK_DMYV() {
    MakePicture(352, 288, 352);
}

DecoderIsolated_SDK_DMYV::DecoderIsolated_SDK_DMYV(uint32_t width, uint32_t height) {
    if (width == 0 || height == 0 || width > limits::kMaxPictureSide || height > limits::kMaxPictureSide ||
        uint64_t{width} * height > limits::kMaxPicturePixels)
        throw std::bad_alloc();
    MakePicture(width, height, (width + 31) & ~31u);
}

void DecoderIsolated_SDK_DMYV::MakePicture(uint32_t width, uint32_t height, uint32_t stride) {
    m_frame = QMRX::SDK::Utility::FrameReference<Frame>(m_frames.Get());
    const size_t lumaBytes = size_t{stride} * ((height + 1) & ~1u);
    if (!m_frame->pixels.Allocate(lumaBytes * 3 / 2))
        throw std::bad_alloc();
    uint8_t* pixels = m_frame->pixels.Data();    // luma is zero already
    std::memset(pixels + lumaBytes, 128, lumaBytes / 2);
    DecodedFrame& picture = m_frame->picture;
    picture.planes[0] = pixels;
    picture.planes[1] = pixels + lumaBytes;
    picture.planes[2] = pixels + lumaBytes + lumaBytes / 4;
    picture.strides[0] = stride;
    picture.strides[1] = picture.strides[2] = stride / 2;
    picture.width = width;
    picture.height = height;
}

int32_t DecoderIsolated_SDK_DMYV::DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit*) {
    std::memcpy(static_cast<void*>(out), &m_frame->picture, offsetof(DecodedFrame, owner));
    *got = 2;
    return 0;
}

int32_t DecoderIsolated_SDK_DMYV::DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) {
    return static_cast<int32_t>(Status::NotSupported);
}

int32_t DecoderIsolated_SDK_DMYV::ShareFrame(DecodedFrame* out, int32_t version) {
    if (version < 2)
        return static_cast<int32_t>(Status::VersionMismatch);
    m_frame->AddRef();
    out->owner = m_frame.Get();
    out->add_ref = &Frame::AddRefOwner;
    out->release = &Frame::ReleaseOwner;
    return 0;
}

DecoderPtr MakePlaceholderDecoder() noexcept {
    try {
        return DecoderPtr(new DecoderIsolated_SDK_DMYV());
    } catch (...) {
        return nullptr;
    }
}

}    // namespace corvane
