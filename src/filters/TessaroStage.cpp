#include "filters/TessaroStage.h"

#include <new>

#include "base/PictureLayout.h"
#include "platform/Library.h"

namespace corvane {

// The library's object begins with the address of its table: C++ virtual functions in this order, without a destructor.
// They are called as plain functions, since the library's class is another one.
struct TessaroStage::Object {
    struct Table {
        void (*release)(Object*);
        int32_t (*update)(Object*, const LensRecord* record);
        void (*unused[2])(Object*);
        int32_t (*query)(Object*, uint32_t width, uint32_t height, uint32_t* outWidth, uint32_t* outHeight);
        int32_t (*process)(Object*, const TessaroImage* input, TessaroImage* output);
        void (*end_frame)(Object*);
    };
    const Table* table;
};

namespace {

constexpr uint32_t kInterfaceVersion = 0x30303031;

using InitialFunction = void(void** object, uint32_t version);

// The library is never unloaded: its objects and threads may outlive every stage.
InitialFunction* LoadLibraryOnce() {
    static InitialFunction* const initial = [] {
        Library library;
        if (!library.Open("Tessaro.so"))
            return static_cast<InitialFunction*>(nullptr);
        auto* const found = library.Find<InitialFunction>("Tessaro_Initial");
        library.Keep();
        return found;
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
    InitialFunction* const initial = LoadLibraryOnce();
    if (initial == nullptr)
        return nullptr;
    void* object = nullptr;
    if (Guarded([&] { return initial(&object, kInterfaceVersion), 0; }) < 0 || object == nullptr)
        return nullptr;
    auto* made = static_cast<Object*>(object);
    std::unique_ptr<TessaroStage> stage(new (std::nothrow) TessaroStage(made));
    if (stage == nullptr)
        Guarded([&] { return made->table->release(made), 0; });
    return stage;
}

TessaroStage::~TessaroStage() {
    Guarded([&] { return m_object->table->release(m_object), 0; });
}

void TessaroStage::Update(const LensRecord& record) noexcept {
    Guarded([&] { return m_object->table->update(m_object, &record); });
}

int32_t TessaroStage::Query(uint32_t width, uint32_t height, uint32_t* outWidth, uint32_t* outHeight) noexcept {
    uint32_t newWidth = width;
    uint32_t newHeight = height;
    const int32_t result =
        Guarded([&] { return m_object->table->query(m_object, width, height, &newWidth, &newHeight); });
    if (result < 0)
        return result;
    if (PictureBytes(PF_I420, newWidth, newHeight) == 0)
        return -1;
    *outWidth = newWidth;
    *outHeight = newHeight;
    return 0;
}

int32_t TessaroStage::Process(const QMRX::Filter::FilterArgs& args, uint32_t outWidth, uint32_t outHeight) noexcept {
    const TessaroImage input = ImageOf(*args.source, args.width, args.height);
    TessaroImage output = ImageOf(*args.destination, outWidth, outHeight);
    const int32_t result = Guarded([&] { return m_object->table->process(m_object, &input, &output); });
    const int32_t ended = Guarded([&] { return m_object->table->end_frame(m_object), 0; });
    return result < 0 ? result : ended;
}

}    // namespace corvane
