// Converts a picture into the format of the destination; copies it where the formats are equal.
#pragma once

#include <optional>

#include "base/ColourSignal.h"
#include "corvane/filter.h"

namespace QMRX::Filter {

class FilterPixelFormatChange final : public IFilter {
public:
    // From PF_I420 or PF_NV12 to any format of corvane.h. 0; -1 for a pair of formats without a conversion, and when an
    // odd last row or column of a 24 or 32 bit picture stays unwritten.
    int32_t Process(FilterArgs* args) override;

    // The colours of the source, which the record does not state; as those of a PictureView.
    void SetColours(const std::optional<corvane::ColourSignal>& colours) { m_colours = colours; }

private:
    std::optional<corvane::ColourSignal> m_colours;
};

}    // namespace QMRX::Filter
