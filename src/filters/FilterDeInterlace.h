// Weaves a picture whose two fields lie one above the other, and smooths a picture whose lines were captured at two
// times.
#pragma once

#include "base/AlignedBuffer.h"
#include "base/PictureSize.h"
#include "corvane/filter.h"

namespace QMRX::Filter {

class FilterDeInterlace final : public IFilter {
public:
    // Setting either switch to false frees the scratch picture.
    void SetWeave(bool on);
    void SetSmooth(bool on);

    // I420 to I420. The last row of a plane of odd height belongs to neither field and is copied. 0; -1 when neither
    // switch is on or a plane is too small; 0x80000002 without memory.
    int32_t Process(FilterArgs* args) override;

    size_t ScratchBytes() const { return m_woven.Size(); }

private:
    bool m_weave = false;
    bool m_smooth = false;
    corvane::AlignedBuffer m_woven;    // PF_I420, used when both switches are on
    corvane::PictureSize m_wovenSize;
};

}    // namespace QMRX::Filter
