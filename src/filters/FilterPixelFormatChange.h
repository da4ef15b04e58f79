// Puts a picture into the format that the destination wants; plain copies where the formats agree.
#pragma once

#include "base/AlignedBuffer.h"
#include "corvane/filter.h"

namespace QMRX::Filter {

class FilterPixelFormatChange final : public IFilter {
public:
    // From PF_I420 or PF_NV12 to any format of corvane.h. 0; -1 for a pair that is not offered, without memory, and
    // when an odd last row or column of a 24 or 32 bit picture stays unwritten.
    int32_t Process(FilterArgs* args) override;
};

}    // namespace QMRX::Filter
