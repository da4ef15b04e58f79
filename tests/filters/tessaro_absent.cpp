// In a program of its own, since the library is looked for once per process.
#include <gtest/gtest.h>

#include "filters/ChainFixture.h"

namespace corvane {
namespace {

using namespace test;

TEST(TessaroAbsent, StageIsSkipped) {
    ASSERT_EQ(Tessaro(), nullptr) << "a Tessaro.so stands in this program's way";
    EXPECT_EQ(TessaroStage::Make(), nullptr);

    FilterChain chain;
    const FramePtr frame = LensFrame();
    const Decoded decoded(64, 48, true);
    const ChainSettings settings;
    chain.UpdateDewarp(*frame);
    EXPECT_EQ(chain.PreferredFormat(settings, *frame, decoded.frame), uint32_t{PF_NV12});
    uint32_t width = 7, height = 9;
    EXPECT_EQ(chain.OutputSize(&width, &height), 0);
    EXPECT_EQ(width, 7u);
    EXPECT_EQ(height, 9u);
    Image to(64, 48, PF_NV12);
    EXPECT_EQ(chain.Run(settings, *frame, decoded.frame, to.memory.Data(), to.stride, PF_NV12, 64, 48), 0);
    EXPECT_EQ(to.memory.Data()[0], decoded.frame.planes[0][0]);
    EXPECT_EQ(chain.ScratchBytes(), 0u);
}

}    // namespace
}    // namespace corvane
