// A decoder plug-in for tests: FACTORIES is a list of FACTORY(name), LABEL the plug-in's own name. It counts the
// references on its pictures, whose pixels and functions are gone after it was unloaded. It has no memory of operator
// new.
#include <sys/mman.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "entry/FakePlugin.h"

namespace {

using corvane::DecodedFrame;
using corvane::EncodedUnit;
using corvane::test::FakeHost;

constexpr uint32_t kWidth = 64, kHeight = 32;
constexpr size_t kPictures = 64, kPictureBytes = kWidth * kHeight * 3 / 2;

std::atomic<int> decoders{0}, references{0};
std::atomic<int> used[kPictures];    // references on each picture
uint8_t* pixels = nullptr;
FakeHost none;

FakeHost& Host() {
    FakeHost* const host = FakeHost::Find();
    return host != nullptr ? *host : none;
}

void Count(void* owner, int change) {
    *static_cast<std::atomic<int>*>(owner) += change;
    references += change;
}

class FakeDecoder final : public corvane::DecoderContext {
public:
    FakeDecoder() { ++decoders; }
    ~FakeDecoder() { --decoders; }
    // Its luma is the first byte of the unit.
    int32_t DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit* in) override {
        for (m_picture = 0; m_picture < kPictures - 1 && used[m_picture] != 0;)
            ++m_picture;
        uint8_t* const luma = pixels + m_picture * kPictureBytes;
        uint8_t* const chroma = luma + kWidth * kHeight;
        for (volatile uint8_t* at = luma; at != luma + kPictureBytes; ++at)    // ThreadSanitizer would watch a memset
            *at = at < chroma ? in->data[0] : 128;
        *out = DecodedFrame{{luma, chroma, chroma + kWidth * kHeight / 4},
                            {kWidth, kWidth / 2, kWidth / 2},
                            kWidth,
                            kHeight,
                            nullptr,
                            nullptr,
                            nullptr,
                            {}};
        *got = 2;
        return Host().onDecode ? Host().onDecode(*in, *out, got) : 0;
    }
    int32_t DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) override { return static_cast<int32_t>(0x80000004); }
    void Destroy() override {
        this->~FakeDecoder();
        std::free(this);
        if (Host().onDestroy)
            Host().onDestroy();
    }
    int32_t ShareFrame(DecodedFrame* out, int32_t) override {
        if (const int32_t refused = Host().onShare ? Host().onShare() : 0; refused < 0)
            return refused;
        out->owner = &used[m_picture];
        out->add_ref = [](void* owner) { Count(owner, 1); };
        out->release = [](void* owner) { Count(owner, -1); };
        Count(out->owner, 1);
        return 0;
    }

private:
    size_t m_picture = 0;
};

// The arguments of a factory, none of which is wider than a register.
corvane::DecoderContext* Make(const char* name, uint64_t a, uint64_t b, uint64_t c, uint64_t d, uint64_t e) {
    if (Host().onMake) {
        char text[160];
        std::snprintf(text, sizeof text, "%s %s %u %u %u %u %u", name, LABEL, unsigned(a), unsigned(b), unsigned(c),
                      unsigned(d), unsigned(e));
        if (!Host().onMake(text))
            return nullptr;
    }
    return new (std::malloc(sizeof(FakeDecoder))) FakeDecoder;
}

__attribute__((constructor)) void Start() {
    pixels = static_cast<uint8_t*>(
        mmap(nullptr, kPictures * kPictureBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (Host().onStart)
        Host().onStart(LABEL);
}

__attribute__((destructor)) void End() {
    if (Host().onEnd)
        Host().onEnd(LABEL + (decoders != 0 || references != 0 ? std::string(" in use") : std::string()));
    munmap(pixels, kPictures * kPictureBytes);
}

}    // namespace

#define FACTORY(name)                                                                                                \
    extern "C" __attribute__((visibility("default")))                                                                \
    corvane::DecoderContext* GetDecoderIsolated_##name(uint64_t a, uint64_t b, uint64_t c, uint64_t d, uint64_t e) { \
        return Make(#name, a, b, c, d, e);                                                                           \
    }
FACTORIES
extern "C" __attribute__((visibility("default"))) int InUse() {
    return decoders + references;
}
extern "C" __attribute__((visibility("default"))) void LogTrace_GetGlobalObject(uint64_t, LogTraceObject** object) {
    *object = Host().onLog ? Host().onLog() : nullptr;
}
#ifdef UNRESOLVED
extern "C" int aFunctionOfNobody();
int (*volatile unresolved)() = &aFunctionOfNobody;
#endif
