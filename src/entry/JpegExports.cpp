// Exports of the JPEG encoder: null tests, then the object.
#include "corvane/jpegenc.h"
#include "picture/jpeg/JpegEncoder.h"

namespace {

using corvane::JpegEncoder;

JpegEncoder* Own(void* handle) {
    return static_cast<JpegEncoder*>(handle);
}

uint32_t Word(corvane::Status status) {
    return static_cast<uint32_t>(status);
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
    return handle == nullptr || frame == nullptr ? JPEGENC_FAILED : Word(Own(handle)->OneFrame(*frame));
}

uint32_t JPEGEnc_SetOptions(void* handle, const JPEGEncRequest* request) {
    return handle == nullptr || request == nullptr ? JPEGENC_FAILED : Word(Own(handle)->SetOptions(*request));
}

uint32_t JPEGEnc_TakeData(void* handle, void* destination, uint32_t count) {
    if (handle == nullptr || (destination == nullptr && count != 0))
        return JPEGENC_FAILED;
    return Word(Own(handle)->TakeData(static_cast<uint8_t*>(destination), count));
}

uint32_t JPEGEnc_QueryFilledBufferSpace(void* handle) {
    return handle == nullptr ? JPEGENC_FAILED : Own(handle)->FilledBytes();
}

uint32_t JPEGEnc_Quit(void* handle) {
    if (handle == nullptr)
        return JPEGENC_FAILED;
    Own(handle)->Quit();
    return 0;
}

uint32_t JPEGEnc_Release(void** handle) {
    if (handle != nullptr) {
        JpegEncoder::Release(Own(*handle));
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
