// Built as Tessaro.so beside the test program of this room.
#include "filters/FakeTessaro.h"

#include <stdexcept>

extern "C" __attribute__((visibility("default"))) corvane::test::TessaroControl tessaroControl;
corvane::test::TessaroControl tessaroControl;

namespace {

using corvane::LensRecord;
using corvane::TessaroImage;

void MaybeThrow() {
    if (tessaroControl.throwEverywhere)
        throw std::runtime_error("fake");
}

// Its table has the seven entries of the interface and no destructor.
struct Object final {
    virtual void Release() {
        tessaroControl.released++;
        delete this;
    }
    virtual int32_t Update(const LensRecord* record) {
        tessaroControl.updates++;
        tessaroControl.lastValue = record->values[0];
        MaybeThrow();
        return 0;
    }
    virtual void Slot2() { tessaroControl.version = 0; }
    virtual void Slot3() { tessaroControl.version = 0; }
    virtual int32_t Query(uint32_t width, uint32_t height, uint32_t* outWidth, uint32_t* outHeight) {
        MaybeThrow();
        *outWidth = tessaroControl.outWidth != 0 ? tessaroControl.outWidth : width;
        *outHeight = tessaroControl.outWidth != 0 ? tessaroControl.outHeight : height;
        return tessaroControl.queryResult;
    }
    virtual int32_t Process(const TessaroImage* input, TessaroImage* output) {
        MaybeThrow();
        if (input->layout != 1 || output->layout != 1)
            return -2;
        corvane::test::FakeDewarp(*input, *output);
        return tessaroControl.processResult;
    }
    virtual void EndFrame() { tessaroControl.framesEnded++; }
};

}    // namespace

extern "C" __attribute__((visibility("default"))) void Tessaro_Initial(void** object, uint32_t version) {
    tessaroControl.version = version;
    MaybeThrow();
    tessaroControl.made++;
    *object = new Object;
}
