// Copies of pictures whose decoder does not share them.
#pragma once

#include "base/AlignedBuffer.h"
#include "base/SharedPicture.h"
#include "decoders/FrameQueue.h"

namespace corvane {

// Keeps the memory of copies that were released. One thread makes copies; any thread may release them.
class PictureCopies {
public:
    // All planes with their strides, chroma with half the rows, rounded up. Without a picture where there is no memory.
    SharedPicture Copy(const SharedPicture& from);

private:
    struct Frame final : QMRX::SDK::Utility::PooledFrame<Frame> {
        AlignedBuffer memory;
    };
    QMRX::SDK::Utility::FrameQueue<Frame> m_frames;
};

}    // namespace corvane
