// Built as Tessaro.so beside the test program of this room.
#include "filters/FakeTessaro.h"

#include <stdexcept>

extern "C" __attribute__((visibility("default"))) corvane::test::TessaroControl tessaro_control;
corvane::test::TessaroControl tessaro_control;

namespace {

using corvane::LensRecord;
using corvane::TessaroImage;

void MaybeThrow() {
    if (tessaro_control.throwEverywhere)
        throw std::runtime_error("fake");
}

// Its table has the seven entries of the interface and no destructor.
struct Object final {
    virtual void Release() {
        tessaro_control.released++;
        delete this;
    }
    virtual int32_t Update(const LensRecord* record) {
        tessaro_control.updates++;
        tessaro_control.lastValue = record->values[0];
        MaybeThrow();
        return 0;
    }
    virtual void Slot2() { tessaro_control.version = 0; }
    virtual void Slot3() { tessaro_control.version = 0; }
    virtual int32_t Query(uint32_t width, uint32_t height, uint32_t* outWidth, uint32_t* outHeight) {
        MaybeThrow();
        *outWidth = tessaro_control.outWidth != 0 ? tessaro_control.outWidth : width;
        *outHeight = tessaro_control.outWidth != 0 ? tessaro_control.outHeight : height;
        return tessaro_control.queryResult;
    }
    virtual int32_t Process(const TessaroImage* input, TessaroImage* output) {
        MaybeThrow();
        if (input->layout != 1 || output->layout != 1)
            return -2;
        corvane::test::FakeDewarp(*input, *output);
        return tessaro_control.processResult;
    }
    virtual void EndFrame() { tessaro_control.framesEnded++; }
};

}    // namespace

extern "C" __attribute__((visibility("default"))) void Tessaro_Initial(void** object, uint32_t version) {
    tessaro_control.version = version;
    MaybeThrow();
    tessaro_control.made++;
    *object = new Object;
}
