// The factories of decoder plug-ins, and the owners of decoders.
#pragma once

#include <cstdint>
#include <memory>

#include "base/Thread.h"
#include "corvane/decoder.h"

// On every function that calls a decoder which may come from a plug-in: an object laid out in C has no C++ type
// information, which the vptr check of the undefined behaviour sanitizer would look for.
#define CORVANE_CALLS_PLUGIN __attribute__((no_sanitize("vptr")))

namespace corvane {

// Each slot is null, or a C function of the plug-in that returns a new decoder or null. Sizes are in pixels, `adapter`
// is the index of the display adapter that shows the window, `data` and `size` the payload of the key frame at hand.
struct DecoderFactories {
    using Plain = DecoderContext* (*)();
    using WithBlob = DecoderContext* (*)(const uint8_t* blob, uint32_t blobLength);
    using WithAdapter = DecoderContext* (*)(uint32_t adapter);
    using WithSize = DecoderContext* (*)(uint32_t width, uint32_t height);
    using WithSizeAndData = DecoderContext* (*)(uint32_t width, uint32_t height, const uint8_t* data, uint32_t size);
    using WithAdapterAndSize = DecoderContext* (*)(uint32_t adapter, uint32_t width, uint32_t height);
    using WithAdapterSizeAndData = DecoderContext* (*)(uint32_t adapter, uint32_t width, uint32_t height,
                                                       const uint8_t* data, uint32_t size);

    Plain GetDecoderIsolated_Dahua = nullptr;
    WithBlob GetDecoderIsolated_Hikvision = nullptr;
    Plain GetDecoderIsolated_CUVID_MP4V = nullptr;
    Plain GetDecoderIsolated_CUVID_H264 = nullptr;
    Plain GetDecoderIsolated_CUVID_HEVC = nullptr;
    WithAdapter GetDecoderIsolated_CUVID_MP4V_v2 = nullptr;
    WithAdapter GetDecoderIsolated_CUVID_H264_v2 = nullptr;
    WithAdapter GetDecoderIsolated_CUVID_HEVC_v2 = nullptr;
    WithSizeAndData GetDecoderIsolated_DXVA2Native = nullptr;
    WithSize GetDecoderIsolated_DXVA2Native_HEVC = nullptr;
    WithAdapterSizeAndData GetDecoderIsolated_DXVA2_v2 = nullptr;
    WithAdapterAndSize GetDecoderIsolated_DXVA2_HEVC_v2 = nullptr;
    Plain GetDecoderIsolated_QuickSync = nullptr;
    Plain GetDecoderIsolated_QuickSync_HEVC = nullptr;
};

// The factories of a channel without a window: without those that take a display adapter.
inline DecoderFactories WithoutAdapters(DecoderFactories factories) {
    factories.GetDecoderIsolated_CUVID_MP4V_v2 = nullptr;
    factories.GetDecoderIsolated_CUVID_H264_v2 = nullptr;
    factories.GetDecoderIsolated_CUVID_HEVC_v2 = nullptr;
    factories.GetDecoderIsolated_DXVA2_v2 = nullptr;
    factories.GetDecoderIsolated_DXVA2_HEVC_v2 = nullptr;
    return factories;
}

// A decoder ends by its own Destroy: it may come from another allocator.
struct DecoderDestroyer {
    CORVANE_CALLS_PLUGIN void operator()(DecoderContext* decoder) const noexcept {
        const Thread::ScopedOwner scope(Thread::PluginCode());
        try {
            decoder->Destroy();
        } catch (...) {    // a plug-in that throws loses only its own object
        }
    }
};
using DecoderPtr = std::unique_ptr<DecoderContext, DecoderDestroyer>;

// Calls a factory; an empty slot and an exception are "no decoder".
template <typename Factory, typename... Arguments>
DecoderPtr CallFactory(Factory factory, Arguments... arguments) noexcept {
    if (factory == nullptr)
        return nullptr;
    const Thread::ScopedOwner scope(Thread::PluginCode());
    try {
        return DecoderPtr(factory(arguments...));
    } catch (...) {
        return nullptr;
    }
}

}    // namespace corvane
