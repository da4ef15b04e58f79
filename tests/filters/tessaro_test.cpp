#include <gtest/gtest.h>

#include "filters/ChainFixture.h"
#include "filters/TessaroStage.h"

namespace corvane {
namespace {

using namespace test;

class TessaroLibrary : public testing::Test {
protected:
    void SetUp() override {
        control = Tessaro();
        ASSERT_NE(control, nullptr);
        *control = TessaroControl();
    }
    void TearDown() override { *control = TessaroControl(); }

    int32_t Run(uint32_t width, uint32_t height) {
        const Decoded decoded(64, 48, false);
        Image to(width, height, PF_I420);
        return chain.Run(ChainSettings(), *VideoFrame(), decoded.frame, to.memory.Data(), to.stride, PF_I420, width,
                         height);
    }

    TessaroControl* control = nullptr;
    FilterChain chain;
};

TEST_F(TessaroLibrary, LivesAsLongAsLensFramesCome) {
    chain.UpdateDewarp(*VideoFrame());
    EXPECT_EQ(control->made, 0);
    for (uint64_t value = 10; value < 13; ++value) {
        chain.UpdateDewarp(*LensFrame(value));
        EXPECT_EQ(control->last_value, value);
    }
    EXPECT_EQ(control->version, 0x30303031u);
    EXPECT_EQ(control->made, 1);
    EXPECT_EQ(control->updates, 3);
    chain.UpdateDewarp(*VideoFrame());
    EXPECT_EQ(control->released, 1);
    chain.UpdateDewarp(*LensFrame());
    {
        FilterChain other;
        other.UpdateDewarp(*LensFrame());
        EXPECT_EQ(control->made, 3);
    }
    EXPECT_EQ(control->released, 2);
    chain.UpdateDewarp(*VideoFrame());
    EXPECT_EQ(control->released, 3);

    control->make_no_object = true;
    chain.UpdateDewarp(*LensFrame());
    EXPECT_EQ(Run(64, 48), 0);    // without the stage
    EXPECT_EQ(control->frames_ended, 0);
}

TEST_F(TessaroLibrary, SizesAndFailures) {
    chain.UpdateDewarp(*LensFrame());
    const struct {
        const char* name;
        uint32_t out_width, out_height;
        int32_t query_result, process_result;
        bool throws;
        int32_t size_result, run_result;
        int frames_ended;
    } rows[] = {
        {"size kept", 0, 0, 0, 0, false, 0, 0, 1},
        {"new size", 32, 20, 0, 0, false, 0, 0, 1},
        {"query refuses", 32, 20, -7, 0, false, -7, -7, 0},
        {"process refuses", 32, 20, 0, -8, false, 0, -1, 1},
        {"exceptions", 32, 20, 0, 0, true, -1, -1, 0},
        {"no width", 0, 0, 0, 0, false, 0, 0, 1},
        {"no height", 32, 0, 0, 0, false, -1, -1, 0},
        {"beyond the limits", 16385, 16, 0, 0, false, -1, -1, 0},
        {"product beyond 32 bits", 0x10000, 0x10000, 0, 0, false, -1, -1, 0},
    };
    for (const auto& row : rows) {
        control->out_width = row.out_width;
        control->out_height = row.out_height;
        control->query_result = row.query_result;
        control->process_result = row.process_result;
        control->throw_everywhere = row.throws;
        control->frames_ended = 0;
        uint32_t width = 64, height = 48;
        EXPECT_EQ(chain.OutputSize(&width, &height), row.size_result) << row.name;
        const bool changed = row.size_result == 0 && row.out_width != 0;
        EXPECT_EQ(width, changed ? row.out_width : 64u) << row.name;
        EXPECT_EQ(height, changed ? row.out_height : 48u) << row.name;
        EXPECT_EQ(Run(width, height), row.run_result) << row.name;
        EXPECT_EQ(control->frames_ended, row.frames_ended) << row.name;
    }
    control->throw_everywhere = true;    // in the update, and in the making of another object
    chain.UpdateDewarp(*LensFrame());
    EXPECT_EQ(TessaroStage::Make(), nullptr);
}

TEST_F(TessaroLibrary, TellsTwoPlanesFromThree) {
    const auto stage = TessaroStage::Make();
    ASSERT_NE(stage, nullptr);
    for (const bool nv12 : {false, true}) {
        const Decoded from(64, 48, nv12);
        Image to(64, 48, nv12 ? uint32_t{PF_NV12} : uint32_t{PF_I420});
        EXPECT_EQ(stage->Process({&from.picture, &to.picture, 64, 48}, 64, 48), nv12 ? -2 : 0);    // the fake's refusal
    }
}

TEST_F(TessaroLibrary, LastStepWritesIntoTheDestination) {
    chain.UpdateDewarp(*LensFrame());
    control->out_width = 32;
    control->out_height = 20;
    const Decoded decoded(64, 48, false);
    Image to(32, 20, PF_YV12);
    EXPECT_EQ(chain.Run(ChainSettings(), *VideoFrame(), decoded.frame, to.memory.Data(), to.stride, PF_YV12, 32, 20),
              0);
    EXPECT_EQ(control->last_output, to.memory.Data());
    EXPECT_EQ(chain.ScratchBytes(), 0u);
}

}    // namespace
}    // namespace corvane
