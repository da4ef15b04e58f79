// In a program of its own, since the library is looked for once per process.
#include <gtest/gtest.h>

#include "filters/ChainFixture.h"

namespace corvane::test {

TEST(TessaroAbsent, StageIsSkipped) {
    ASSERT_EQ(Tessaro(), nullptr) << "a Tessaro.so stands in this program's way";
    FilterChain chain;
    const FramePtr frame = VideoFrame(true);
    const Decoded decoded(64, 48, true);
    chain.UpdateDewarp(*frame);
    EXPECT_EQ(chain.PreferredFormat({}, *frame, decoded.frame), uint32_t{PF_NV12});
    uint32_t width = 7, height = 9;
    EXPECT_EQ(chain.OutputSize(&width, &height), 0);
    EXPECT_EQ(width * 10 + height, 79u);
    Image to(64, 48, PF_NV12);
    EXPECT_EQ(RunInto(to, chain, {}, *frame, decoded.frame), 0);
    EXPECT_EQ(to.memory.Data()[0], decoded.frame.planes[0][0]);
}

}    // namespace corvane::test
