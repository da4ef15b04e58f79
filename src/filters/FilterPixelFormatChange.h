// Puts a picture into the format that the destination wants; plain copies where the formats agree.
#pragma once

#include <optional>

#include "base/ColourSignal.h"
#include "corvane/filter.h"

namespace QMRX::Filter {

class FilterPixelFormatChange final : public IFilter {
public:
    // From PF_I420 or PF_NV12 to any format of corvane.h. 0; -1 for a pair that is not offered, without memory, and
    // when an odd last row or column of a 24 or 32 bit picture stays unwritten.
    int32_t Process(FilterArgs* args) override;

    // What the samples mean where RGB is made of them. Without a value: full-range BT.601, and the analogue matrix for
    // 16 bits a pixel.
    void SetColours(const std::optional<corvane::ColourSignal>& colours) { m_colours = colours; }

private:
    std::optional<corvane::ColourSignal> m_colours;
};

}    // namespace QMRX::Filter
