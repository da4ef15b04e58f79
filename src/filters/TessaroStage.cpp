#include "filters/TessaroStage.h"

#include <dlfcn.h>

#include <new>

#include "base/FailurePoint.h"
#include "filters/FilterChain.h"

namespace corvane {

// The library's object: a table of functions in this order, without a destructor.
class TessaroStage::Object {
public:
    virtual void Release() = 0;
    virtual int32_t Update(const LensRecord* record) = 0;
    virtual void Unused2() = 0;
    virtual void Unused3() = 0;
    virtual int32_t Query(uint32_t width, uint32_t height, uint32_t* out_width, uint32_t* out_height) = 0;
    virtual int32_t Process(const TessaroImage* input, TessaroImage* output) = 0;
    virtual void EndFrame() = 0;

protected:
    ~Object() = default;
};

namespace {

constexpr uint32_t kInterfaceVersion = 0x30303031;

using InitialFunction = void (*)(void** object, uint32_t version);

// The library stays loaded for good: objects and threads of it may outlive every stage.
InitialFunction LoadLibraryOnce() {
    using failure::MustFail;
    using failure::Site;
    static const InitialFunction initial = []() -> InitialFunction {
        void* library = MustFail(Site::PlatformCall) ? nullptr : dlopen("Tessaro.so", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr || MustFail(Site::PlatformCall))
            return nullptr;
        return reinterpret_cast<InitialFunction>(dlsym(library, "Tessaro_Initial"));
    }();
    return initial;
}

// An exception of the library counts as -1.
template <typename Call>
int32_t Guarded(Call call) noexcept {
    try {
        return call();
    } catch (...) {
        return -1;
    }
}

TessaroImage ImageOf(const QMRX::Filter::Picture& picture, uint32_t width, uint32_t height) {
    TessaroImage image{};
    image.width = width;
    image.height = height;
    for (int i = 0; i < 3; ++i) {
        image.stride[i] = static_cast<uint32_t>(picture.stride[i]);
        image.plane[i] = picture.plane[i];
    }
    image.layout = picture.stride[2] > 0 ? 1 : 2;
    return image;
}

}    // namespace

std::unique_ptr<TessaroStage> TessaroStage::Make() noexcept {
    const InitialFunction initial = LoadLibraryOnce();
    if (initial == nullptr)
        return nullptr;
    void* object = nullptr;
    if (Guarded([&] { return initial(&object, kInterfaceVersion), 0; }) < 0 || object == nullptr)
        return nullptr;
    std::unique_ptr<TessaroStage> stage(new (std::nothrow) TessaroStage(static_cast<Object*>(object)));
    if (stage == nullptr)
        Guarded([&] { return static_cast<Object*>(object)->Release(), 0; });
    return stage;
}

TessaroStage::~TessaroStage() {
    Guarded([&] { return m_object->Release(), 0; });
}

void TessaroStage::Update(const LensRecord& record) noexcept {
    Guarded([&] { return m_object->Update(&record); });
}

int32_t TessaroStage::Query(uint32_t width, uint32_t height, uint32_t* out_width, uint32_t* out_height) noexcept {
    uint32_t new_width = width;
    uint32_t new_height = height;
    const int32_t result = Guarded([&] { return m_object->Query(width, height, &new_width, &new_height); });
    if (result < 0)
        return result;
    if (PictureBytes(PF_I420, new_width, new_height) == 0)
        return -1;
    *out_width = new_width;
    *out_height = new_height;
    return 0;
}

int32_t TessaroStage::Process(const QMRX::Filter::FilterArgs& args, uint32_t out_width, uint32_t out_height) noexcept {
    const TessaroImage input = ImageOf(*args.source, args.width, args.height);
    TessaroImage output = ImageOf(*args.destination, out_width, out_height);
    const int32_t result = Guarded([&] { return m_object->Process(&input, &output); });
    const int32_t ended = Guarded([&] { return m_object->EndFrame(), 0; });
    return result < 0 ? result : ended;
}

}    // namespace corvane
