// Exports of the JPEG encoder: null tests, then the object.
#include "corvane/jpegenc.h"
#include "entry/Handle.h"
#include "picture/jpeg/JpegEncoder.h"

namespace {

using corvane::JpegEncoder;

// The result of `body` as a word; JPEGENC_FAILED for a null handle.
template <typename Body>
uint32_t OnEncoder(void* handle, Body&& body) noexcept {
    auto* const encoder = corvane::PlainObjectOf<JpegEncoder>(handle);
    return encoder == nullptr ? JPEGENC_FAILED : static_cast<uint32_t>(body(*encoder));
}

}    // namespace

extern "C" {

uint32_t JPEGEnc_QueryMemSize(const JPEGEncOptions* options) {
    return options == nullptr ? JPEGENC_FAILED : JpegEncoder::MemoryBytes(*options);
}

uint32_t JPEGEnc_Initial(void** handle, const JPEGEncOptions* options) {
    if (handle == nullptr)
        return JPEGENC_FAILED;
    *handle = options == nullptr ? nullptr : JpegEncoder::Create(*options).release();
    return *handle == nullptr ? JPEGENC_FAILED : 0;
}

uint32_t JPEGEnc_OneFrame(void* handle, JPEGEncFrame* frame) {
    return frame == nullptr ? JPEGENC_FAILED : OnEncoder(handle, [&](JpegEncoder& e) { return e.OneFrame(*frame); });
}

uint32_t JPEGEnc_SetOptions(void* handle, const JPEGEncRequest* request) {
    return request == nullptr ? JPEGENC_FAILED
                              : OnEncoder(handle, [&](JpegEncoder& e) { return e.SetOptions(*request); });
}

uint32_t JPEGEnc_TakeData(void* handle, void* destination, uint32_t count) {
    if (destination == nullptr && count != 0)
        return JPEGENC_FAILED;
    return OnEncoder(handle, [&](JpegEncoder& e) { return e.TakeData(static_cast<uint8_t*>(destination), count); });
}

uint32_t JPEGEnc_QueryFilledBufferSpace(void* handle) {
    return OnEncoder(handle, [](JpegEncoder& e) { return e.FilledBytes(); });
}

uint32_t JPEGEnc_Quit(void* handle) {
    return OnEncoder(handle, [](JpegEncoder& e) {
        e.Quit();
        return corvane::Status::Ok;
    });
}

uint32_t JPEGEnc_Release(void** handle) {
    if (handle != nullptr) {
        JpegEncoder::Release(corvane::PlainObjectOf<JpegEncoder>(*handle));
        *handle = nullptr;
    }
    return 0;
}

uint32_t JPEGEnc_GetVersionInfo(uint8_t* a, uint8_t* b, uint8_t* c, uint8_t* d) {
    if (a == nullptr || b == nullptr || c == nullptr || d == nullptr)
        return JPEGENC_FAILED;
    *a = 11;
    *b = *c = 0;
    *d = 1;
    return 0;
}

}    // extern "C"
